/* A store at a glance. view.sql puts the lines together. */

#include "texts.h"
#include "zel_common_storage/schema.h"
#include "zel_store.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

bool is_narrowed(const options &wanted)
{
    return !wanted.request.empty() || !wanted.token.empty();
}

} // namespace

store opened_for_view(const options &wanted)
{
    store read(wanted.store);
    sqlite3_create_function(
        read.database.handle.get(), "amount", 1, SQLITE_UTF8, nullptr,
        [](sqlite3_context *context, int, sqlite3_value **bytes) {
            sqlite3_result_text(context, amount(sqlite3_value_int64(*bytes)).c_str(), -1, SQLITE_TRANSIENT);
        },
        nullptr, nullptr);
    const auto id = static_cast<unsigned int>(std::strtoll(wanted.request.c_str(), nullptr, 10));
    const json shortening =
        read.database.rows(VIEW_SQL, {wanted.request.empty() ? "" : std::to_string(id), wanted.token});
    for (const json &one : wanted.shows_secrets ? json::array() : shortening)
        read.database.rows(one["statement"]);
    return read;
}

json document_of(const store &read)
{
    json document = {{"store", read.file}, {"findings", read.findings}};
    document["summary"] = read.database.rows("SELECT * FROM summary");
    for (const zel_storage::table &one : zel_storage::TABLES)
        document[one.name] = read.database.rows(std::string("SELECT * FROM ") + one.name);
    return document;
}

texts lines_of_file(const json &file)
{
    std::string openers;
    for (const json &one : file["open_in"])
        openers += (openers.empty() ? "" : ", ") + text(one, "name") + " (" + text(one, "pid") + ")";
    texts lines = {shown(text(file, "path"), BOLD),
                   shown("  owner " + text(file, "owner") + ", mode " + text(file, "mode") + ", " +
                         amount(file["size"]) +
                         (file.value("journal_mode", "") == "wal" ? ", write-ahead log" : ", rollback journal") +
                         "; times are UTC"),
                   shown("  open in " + (openers.empty() ? "no process" : openers) +
                         (file["sees_all_processes"] ? "" : "; those of other users are not seen"))};
    if (!file["journal_size"].is_null() && file["journal_size"] != 0)
        lines.push_back(
            shown("  beside it a journal of " + amount(file["journal_size"]) +
                  (openers.empty() ? ": a write was broken off; here it is undone" : ": a write is under way")));
    if (!file["log_size"].is_null())
        lines.push_back(shown("  beside it a write-ahead log of " + amount(file["log_size"]) + ", part of the data"));
    return lines;
}

texts lines_of(const store &read, const options &wanted)
{
    texts lines = lines_of_file(read.file);
    for (const json &one : read.findings)
        lines.push_back(shown("  " + text(one, "title") + "  (zel-store check tells more)", RED));
    lines.emplace_back();
    for (const json &one : read.database.rows("SELECT * FROM places"))
        lines.push_back(shown(text(one, "line"), one["style"]));
    for (const char *section : {"Uploads", "Received shares", "Other transfers", "Recent groups", "Keys", "Folders"}) {
        const json rows = read.database.rows("SELECT * FROM lines WHERE section = ? ORDER BY at, id, part", {section});
        const auto entries = std::count_if(rows.begin(), rows.end(), [](const json &row) { return row["id"] == -1; });
        if (rows.empty() && is_narrowed(wanted))
            continue;
        lines.insert(lines.end(), {"", shown(format("%s (%td)", section, entries), BOLD)});
        for (const json &row : rows)
            for (const char *name : {"line1", "line2", "line3", "line4"})
                if (!row[name].is_null())
                    lines.push_back(shown(text(row, name), name[4] == '1' ? row["style"].get<int>() : PLAIN));
    }
    return lines;
}

int show(const options &wanted)
{
    const store read = opened_for_view(wanted);
    if (wanted.as_json)
        std::fputs(written(document_of(read)).c_str(), stdout);
    else
        for (const std::string &line : lines_of(read, wanted))
            std::puts(line.c_str());
    const bool has_match = !is_narrowed(wanted) || !read.database.rows("SELECT 1 FROM lines LIMIT 1").empty();
    return !read.is_readable ? CANNOT_READ : has_match ? FINE : FINDINGS;
}
