/* A store at a glance, once or refreshed in place, and what contradicts itself in it. */

#include "texts.h"
#include "zel_common_storage/schema.h"
#include "zel_store.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{

/** Tells a view how fast each transfer has moved since this program first saw it, and for how long still. */
void add_paces(const store &read)
{
    static std::map<long long, std::pair<double, gint64>> known;
    const gint64 now = g_get_monotonic_time(); // in microseconds
    for (const json &one : read.rows("SELECT * FROM movements")) {
        const double bytes = one["bytes"];
        const auto [first_bytes, first_time] = known.emplace(one["sync_id"], std::pair(bytes, now)).first->second;
        const double speed = (bytes - first_bytes) * 1e6 / static_cast<double>(now - first_time + 1);
        const double left = bytes * (100 / one["percent"].get<double>() - 1) / speed;
        if (speed >= 1)
            read.rows("INSERT INTO paces VALUES(?, format('  %s/s, %d s left', amount(CAST(? AS INTEGER)), ?))",
                      {text(one, "sync_id"), std::to_string(speed), std::to_string(left)});
    }
}

std::string view_of_file(const json &file)
{
    std::string openers;
    for (const auto &[id, name] : file["open_in"].items())
        openers += (openers.empty() ? "" : ", ") + name.get<std::string>() + " (" + id + ")";
    const std::string kind = file.value("journal_mode", "") == "wal" ? "write-ahead log" : "rollback journal";
    std::string view = shown(text(file, "path"), BOLD);
    view += shown("  owner " + text(file, "owner") + ", mode " + text(file, "mode") + ", " + amount(file["size"]) +
                  ", " + kind + "; times are UTC");
    view += shown("  open in " + (openers.empty() ? "no process" : openers) +
                  (file["sees_all_processes"] ? "" : "; those of other users are not seen"));
    if (file["journal_size"] > 0)
        view += shown("  beside it a journal of " + amount(file["journal_size"]) +
                      (openers.empty() ? ": a write was broken off; here it is undone" : ": a write is under way"));
    if (file["log_size"] > 0)
        view += shown("  beside it a write-ahead log of " + amount(file["log_size"]) + ", part of the data");
    return view;
}

volatile std::sig_atomic_t is_ended = 0;

} // namespace

outcome show(const options &wanted)
{
    const store read(wanted.store);
    const auto say = [](sqlite3_context *context, int, sqlite3_value **bytes) {
        sqlite3_result_text(context, amount(sqlite3_value_int64(*bytes)).c_str(), -1, SQLITE_TRANSIENT);
    };
    sqlite3_create_function(read.handle.get(), "amount", 1, SQLITE_UTF8, nullptr, say, nullptr, nullptr);
    const auto id = static_cast<unsigned int>(std::strtoll(wanted.request.c_str(), nullptr, 10));
    for (const json &one : read.rows(VIEW_SQL, {wanted.request.empty() ? "" : std::to_string(id), wanted.token}))
        if (!wanted.shows_secrets)
            read.rows(one["statement"]);
    add_paces(read);
    json document = {
        {"store", read.file}, {"findings", read.findings}, {"summary", read.rows("SELECT * FROM summary")}};
    for (const zel_storage::table &one : zel_storage::TABLES)
        document[one.name] = read.rows(std::string("SELECT * FROM ") + one.name);
    std::string view = view_of_file(read.file);
    for (const json &one : read.findings)
        view += shown("  " + text(one, "title") + "  (zel-store check tells more)", RED);
    view += "\n" + lines_of(read.rows("SELECT * FROM places"));
    for (const char *section : {"Uploads", "Received shares", "Other transfers", "Recent groups", "Keys", "Folders"}) {
        const json rows = read.rows("SELECT *, count(*) FILTER (WHERE id = -1) OVER () AS entries FROM lines"
                                    " WHERE section = ? ORDER BY at, id, part",
                                    {section});
        if (!rows.empty())
            view += "\n" + shown(FORMAT("%s (%s)", section, text(rows[0], "entries").c_str()), BOLD) + lines_of(rows);
    }
    const bool has_match = (wanted.request + wanted.token).empty() || !read.rows("SELECT 1 FROM lines LIMIT 1").empty();
    view += has_match ? "" : "\n" + shown("Nothing matches.", RED);
    return {!read.is_readable ? CANNOT_READ : has_match && read.findings.empty() ? FINE : FINDINGS, view, document};
}

outcome watch(const options &wanted)
{
    std::string view = show(wanted).view; // what cannot be read at all is told on the ordinary screen
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, [](int) { is_ended = 1; });
    termios before = {};
    const bool has_keys = screen.is_terminal && tcgetattr(STDIN_FILENO, &before) == 0;
    const auto set = [&](const termios &keys, const char *other_screen) {
        std::fputs(screen.is_terminal ? other_screen : "", stdout);
        if (has_keys)
            tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    };
    const std::shared_ptr<void> end(nullptr, [&](void *) { set(before, "\033[?25h\033[?1049l"); });
    termios raw = before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    set(raw, "\033[?1049h\033[?25l"); // a screen of its own, without a cursor
    char key = 0;
    for (int views = 0; !is_ended && key != 'q' && (wanted.views == 0 || views < wanted.views); ++views) {
        screen.look();
        std::string last = "q ends; --request and --token show less";
        try {
            const outcome seen = show(wanted);
            view = wanted.as_json ? written(seen.document, -1) : seen.view;
        } catch (const unreadable &error) { // gone for a moment, or written too fast: the last view stays
            last = error.what();
        }
        size_t fitting = 0;
        for (int line = 1; line < screen.height && fitting < view.size(); ++line)
            fitting = view.find('\n', fitting) + 1;
        const std::string whole = "\033[H\033[J" + view.substr(0, fitting) + "\033[m" + safe(last);
        std::fputs(screen.is_terminal ? whole.c_str() : view.c_str(), stdout);
        std::fflush(stdout);
        pollfd keyboard = {has_keys ? STDIN_FILENO : -1, POLLIN, 0};
        const bool is_pressed = poll(&keyboard, 1, static_cast<int>(wanted.interval * 1000)) == 1;
        key = !is_pressed ? '\0' : read(STDIN_FILENO, &key, 1) == 1 ? key : 'q';
    }
    return {FINE, "", {}};
}

outcome check(const options &wanted)
{
    store read(wanted.store);
    std::string complaint;
    const json damages = read.rows("PRAGMA copy.integrity_check", {}, &complaint);
    if (!damages.empty() && damages[0]["integrity_check"] != "ok")
        read.find("damaged", damages);
    // Rows that could not be read would be missed by others.
    for (const json &one : read.has_all_rows ? read.rows(CHECK_SQL) : json::array())
        read.find(one["kind"], read.rows(one["statement"]));
    std::string view = view_of_file(read.file);
    for (const json &one : read.findings) {
        std::string where;
        for (const json &row : one["rows"])
            where += (where.empty() ? " " : ", ") + row.get<std::string>();
        view += "\n" + shown(text(one, "title") + "  [" + text(one, "kind") + "]", BOLD) +
                labelled("where", text(one, "key") + where) + labelled("means", text(one, "means")) +
                labelled("do", text(one, "do"));
    }
    const size_t number = read.findings.size();
    view += number == 0 ? shown("Sound: nothing was found.", GREEN) : shown(FORMAT("Findings: %zu.", number), RED);
    const exit_status status = !read.is_readable ? CANNOT_READ : number == 0 ? FINE : FINDINGS;
    return {status, view, {{"store", read.file}, {"findings", read.findings}}};
}
