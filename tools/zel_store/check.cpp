/* What is wrong with a store, and what contradicts itself in it. */

#include "texts.h"
#include "zel_store.h"

#include <cstring>

namespace
{

constexpr size_t SHOWN_ROWS = 50; // of a finding; a document has all

/** Advice with the file and the rows filled in, so that a command in it can be run. */
std::string filled(std::string advice, const std::string &path, const json &rows)
{
    std::string ids;
    for (const json &row : rows) {
        const std::string id = row.get<std::string>().substr(0, row.get<std::string>().find(':'));
        const bool is_number = !id.empty() && id.find_first_not_of("-0123456789") == std::string::npos;
        ids += (is_number ? (ids.empty() ? "" : ", ") + id : "");
    }
    for (const auto &[place, value] :
         {std::pair("STORE", taken(g_shell_quote(path.c_str()))), {"ROWS", ids}, {"\\|", "|"}})
        for (size_t at = 0; (at = advice.find(place, at)) != std::string::npos; at += value.size())
            advice.replace(at, std::strlen(place), value);
    return advice;
}

} // namespace

outcome check(const options &wanted)
{
    store read(wanted.store);
    std::string complaint;
    const json damages = read.is_readable ? read.rows("PRAGMA copy.integrity_check", {}, &complaint) : json::array();
    if (!complaint.empty() || (!damages.empty() && damages[0]["integrity_check"] != "ok"))
        read.find("damaged", damages.empty() ? json{{{"integrity_check", complaint}}} : damages);
    if (!read.has_all_rows)
        read.salvage();
    // Rows that could not be read would be missed by others.
    for (const json &one : read.has_all_rows ? read.rows(CHECK_SQL) : json::array())
        read.find(one["kind"], read.rows(one["statement"]));
    std::string view = view_of_file(read.file);
    for (json &one : read.findings) {
        const size_t number = one["rows"].size();
        json first = one["rows"];
        std::string where;
        for (size_t i = 0; i < number && i < SHOWN_ROWS; ++i)
            where += (i == 0 ? " " : ", ") + first[i].get<std::string>();
        if (number > SHOWN_ROWS) {
            where += FORMAT(" and %zu more (--json has all)", number - SHOWN_ROWS);
            first.erase(first.begin() + SHOWN_ROWS, first.end());
        }
        one["do"] = filled(one["do"], read.file["path"], first);
        view += '\n';
        view += shown(text(one, "title") + "  [" + text(one, "kind") + "]", BOLD) +
                labelled("where", text(one, "key") + where) + labelled("means", text(one, "means")) +
                labelled("legal", text(one, "legal")) + labelled("do", text(one, "do"));
    }
    const size_t number = read.findings.size();
    if (number > 0)
        view += '\n';
    view += number == 0
                ? shown("Sound: nothing was found.", GREEN)
                : shown(FORMAT("Findings: %zu. Before a change, end the service and keep a copy.", number), RED);
    const exit_status status = !read.is_readable ? CANNOT_READ : number == 0 ? FINE : FINDINGS;
    return {status, view, {{"store", read.file}, {"findings", read.findings}}};
}
