// What a power cut leaves of what a disk was asked to keep.
#ifndef ZEL_TESTS_POWER_CUT_H
#define ZEL_TESTS_POWER_CUT_H

#include "disk.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <span>

namespace zel_test
{

using files = std::map<std::string, std::string>; ///< contents by name

/// What is left of these files after these changes and a cut behind the last. What was synced is, and with a journal or
/// log its folder, as SQLite has it. Of the rest each write is kept, dropped or torn by sectors of 512 bytes, and each
/// truncation, creation and deletion is kept or lost, whatever became of the others.
inline files after_power_cut(files left, std::span<const disk_change> changes, std::mt19937 &random)
{
    const auto luck = random() % 5; // from a disk that has written nothing on its own to one that has written all
    std::map<std::string, std::string> found_as; // "" for a file whose creation is lost
    for (; !changes.empty(); changes = changes.subspan(1)) {
        const disk_change &now = changes.front();
        const bool is_of_folder = now.kind == disk_change::CREATION || now.kind == disk_change::DELETION;
        const bool is_synced = std::any_of(changes.begin(), changes.end(), [&](const disk_change &later) {
            return later.kind == disk_change::SYNC &&
                   (is_of_folder ? !later.file.ends_with(".db") : later.file == now.file);
        });
        const auto is_kept = [&] { return is_synced || random() % 4 < luck; };
        std::string &name = found_as.try_emplace(now.file, now.file).first->second;
        if (now.kind == disk_change::CREATION) {
            name = is_kept() ? now.file : "";
            left[name] = "";
        } else if (now.kind == disk_change::DELETION && is_kept()) {
            left.erase(name);
        } else if (now.kind == disk_change::TRUNCATION && is_kept()) {
            left[name].resize(now.place);
        } else if (now.kind == disk_change::WRITE) {
            const size_t unit = random() % 2 ? 512 : SIZE_MAX, end = now.place + now.bytes.size();
            for (size_t from = now.place, to; from < end; from = to) {
                to = std::min(end - from, unit - from % unit) + from;
                if (!is_kept())
                    continue;
                left[name].resize(std::max(left[name].size(), to));
                left[name].replace(from, to - from, now.bytes, from - now.place, to - from);
            }
        }
    }
    left.erase("");
    return left;
}

} // namespace zel_test

#endif
