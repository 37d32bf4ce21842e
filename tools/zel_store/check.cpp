/* Is a store sound, and does it contradict itself? */

#include "texts.h"
#include "zel_store.h"

#include <algorithm>
#include <cstdio>

namespace
{

void check_all(store &read)
{
    std::string complaint;
    const json damages = read.database.rows("PRAGMA copy.integrity_check", {}, &complaint);
    if (!damages.empty() && damages[0]["integrity_check"] != "ok")
        read.find("damaged", damages);
    // Rows that could not be read would be missed by others.
    for (const json &one : read.findings)
        if (one["kind"] == "damaged" || one["kind"] == "damaged-table" || one["kind"] == "cut")
            return;
    const bool is_unused = read.file["open_in"].empty() && read.file["sees_all_processes"];
    for (const json &one : read.database.rows(CHECK_SQL))
        if (is_unused || one["kind"] != "interrupted")
            read.find(one["kind"], read.database.rows(one["statement"]));
}

} // namespace

int check(const options &wanted)
{
    static constexpr size_t SHOWN = 12;
    store read(wanted.store);
    if (read.is_readable)
        check_all(read);
    const bool is_sound = read.findings.empty();
    if (wanted.as_json)
        std::fputs(written({{"store", read.file}, {"findings", read.findings}}).c_str(), stdout);
    else
        for (const std::string &line : lines_of_file(read.file))
            std::puts(line.c_str());
    for (const json &one : wanted.as_json ? json::array() : read.findings) {
        std::string where = text(one, "key");
        const json &rows = one["rows"];
        for (size_t i = 0; i < std::min(rows.size(), SHOWN); ++i)
            where += (i > 0 ? ", " : " ") + rows[i].get<std::string>();
        if (rows.size() > SHOWN)
            where += format(" and %zu more", rows.size() - SHOWN);
        std::puts("");
        print(text(one, "title") + "  [" + text(one, "kind") + "]", BOLD);
        print_labelled("where", where);
        print_labelled("means", text(one, "means"));
        print_labelled("do", text(one, "do"));
    }
    if (!wanted.as_json)
        print(is_sound ? "Sound: nothing was found." : format("Findings: %zu.", read.findings.size()),
              is_sound ? GREEN : RED);
    return !read.is_readable ? CANNOT_READ : is_sound ? FINE : FINDINGS;
}
