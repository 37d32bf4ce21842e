/* A store at a glance, once or refreshed in place. */

#include "texts.h"
#include "zel_store.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{

/** Adds the speed of each transfer since this program first saw it, and its remaining time. */
void add_paces(store &read)
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

/** The date (UTC) of a time in seconds or, from the year 5138 on (as milliseconds: 1973), in milliseconds; how far
 * away. */
std::string moment(long long time)
{
    constexpr std::pair<long long, const char *> UNITS[] = {
        {31536000, "year"}, {86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}};
    const long long second = time >= 100'000'000'000 ? time / 1000 : time;
    const std::unique_ptr<GDateTime, void (*)(GDateTime *)> date(g_date_time_new_from_unix_utc(second),
                                                                 g_date_time_unref);
    if (!date)
        return std::to_string(time);
    const long long away = second - g_get_real_time() / G_USEC_PER_SEC;
    const auto *unit = std::begin(UNITS);
    while (unit->first > 1 && std::llabs(away) < unit->first)
        ++unit;
    const long long number = std::llabs(away) / unit->first;
    return taken(g_date_time_format(date.get(), "%Y-%m-%d %H:%M")) +
           FORMAT(away > 0 ? " (in %lld %s%s)" : " (%lld %s%s ago)", number, unit->second, number == 1 ? "" : "s");
}

/** What is left of a secret: the ends of one that is long, so that two can be told apart. */
std::string shortened(const std::string &secret)
{
    const auto is_plain = [](char letter) { return letter > ' ' && letter <= '~'; };
    if (secret.empty())
        return "";
    return secret.size() < 8 || !std::all_of(secret.begin(), secret.end(), is_plain)
               ? "…"
               : secret.substr(0, 3) + "…" + secret.substr(secret.size() - 2);
}

std::string in_full(const std::string &secret)
{
    return secret;
}

/** Gives the statements of a view what SQL lacks: functions of a number, which NULL and texts pass, or of a text. */
template <auto function, int type> void add_function(const store &read, const char *name)
{
    const auto call = [](sqlite3_context *context, int, sqlite3_value **value) {
        if (type == SQLITE_INTEGER ? sqlite3_value_type(*value) != type : sqlite3_value_type(*value) == SQLITE_NULL)
            return sqlite3_result_value(context, *value);
        std::string result;
        if constexpr (type == SQLITE_INTEGER)
            result = function(sqlite3_value_int64(*value));
        else if (const void *const bytes = sqlite3_value_blob(*value))
            result = function({static_cast<const char *>(bytes), static_cast<size_t>(sqlite3_value_bytes(*value))});
        sqlite3_result_text64(context, result.data(), result.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    };
    sqlite3_create_function(read.handle.get(), name, 1, SQLITE_UTF8 | SQLITE_INNOCUOUS, nullptr, call, nullptr,
                            nullptr);
}

/** A name as wide as the terminal has room for one. */
std::string fit(const std::string &name)
{
    constexpr int NARROWEST = 20;
    constexpr int OTHERS = 60; // columns of what stands beside it
    if (screen.width > 0)
        return fitted(name, std::max(NARROWEST, screen.width - OTHERS));
    return name.size() < NARROWEST ? fitted(name, NARROWEST) : name;
}

std::string expiry(long long time)
{
    return time == 0 ? "no expiry" : "expires " + moment(time);
}

outcome view(store &read, const options &wanted)
{
    add_function<amount, SQLITE_INTEGER>(read, "amount");
    add_function<moment, SQLITE_INTEGER>(read, "moment");
    add_function<expiry, SQLITE_INTEGER>(read, "expiry");
    add_function<fit, SQLITE_TEXT>(read, "fit");
    if (wanted.shows_secrets)
        add_function<in_full, SQLITE_TEXT>(read, "secret");
    else
        add_function<shortened, SQLITE_TEXT>(read, "secret");
    const json tables = read.rows(VIEW_SQL, {wanted.request, wanted.token, wanted.shows_all ? "1" : ""});
    add_paces(read);
    json document = {
        {"store", read.file}, {"findings", read.findings}, {"summary", read.rows("SELECT * FROM summary")}};
    for (const json &one : tables)
        document[text(one, "name")] = wanted.as_json ? read.rows(one["statement"]) : json();
    std::string view = view_of_file(read.file);
    for (const json &one : read.findings)
        view += shown("  " + text(one, "title") + "  (zel-store check tells more)", RED);
    view += "\n" + lines_of(read.rows("SELECT * FROM places"));
    bool has_match = (wanted.request + wanted.token).empty();
    for (const char *section : {"Uploads", "Received shares", "Other transfers", "Recent groups", "Keys", "Folders"}) {
        const json rows = read.rows("SELECT *, count(*) FILTER (WHERE id = -1) OVER () AS entries FROM lines"
                                    " WHERE section = ? ORDER BY at, id, part",
                                    {section});
        has_match = has_match || !rows.empty();
        if (!rows.empty())
            view += "\n" + shown(FORMAT("%s (%s)", section, text(rows[0], "entries").c_str()), BOLD) + lines_of(rows);
    }
    view += has_match ? "" : "\n" + shown("Nothing matches.", RED);
    std::string rest;
    for (const json &row : read.rows("SELECT * FROM rest"))
        for (const auto &[name, number] : row.items())
            if (document["rest"][name] = number; number != 0)
                rest += (rest.empty() ? "" : ", ") + number.dump() + " " + name;
    if (!rest.empty())
        view += "\n" + shown("Not shown, since nothing of it is unfinished: " + rest + ". --all shows everything.");
    document["store"]["steps"] = read.steps;
    return {!read.is_readable ? CANNOT_READ : has_match && read.findings.empty() ? FINE : FINDINGS, view, document};
}

termios keys_before;
bool has_keys = false;
constexpr char OWN_SCREEN[] = "\033[?1049h\033[?25l"; // without a cursor
constexpr char OTHER_SCREEN[] = "\033[?25h\033[?1049l";

/** Gives the terminal back as it was; also in the middle of something else. */
void give_back()
{
    if (screen.is_terminal && write(STDOUT_FILENO, OTHER_SCREEN, sizeof OTHER_SCREEN - 1) < 0)
        return;
    if (has_keys)
        tcsetattr(STDIN_FILENO, TCSANOW, &keys_before);
}

void end_at(int signal)
{
    give_back();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

outcome show(const options &wanted)
try {
    store read(wanted.store);
    return view(read, wanted);
} catch (const damaged &) {
    store read(wanted.store);
    read.salvage();
    return view(read, wanted);
}

outcome watch(const options &wanted)
{
    std::string view = show(wanted).view; // an unreadable store is reported on the ordinary screen
    has_keys = screen.is_terminal && tcgetattr(STDIN_FILENO, &keys_before) == 0;
    const std::shared_ptr<void> end(nullptr, [](void *) { give_back(); });
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, end_at);
    if (screen.is_terminal)
        print(OWN_SCREEN);
    termios raw = keys_before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    if (has_keys)
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    char key = 0;
    for (int views = 0; key != 'q' && (wanted.views == 0 || views < wanted.views); ++views) {
        screen.look();
        std::string last = "q ends; --request and --token show less, --all more";
        try {
            const outcome seen = show(wanted);
            view = wanted.as_json ? written(seen.document, -1) : seen.view;
        } catch (const unreadable &error) { // gone for a moment, or written too fast: the last view stays
            last = error.what();
        }
        size_t fitting = 0;
        for (int line = 1; line < screen.height && fitting < view.size(); ++line)
            fitting = view.find('\n', fitting) + 1;
        print(screen.is_terminal
                  ? "\033[H\033[J" + view.substr(0, fitting) + "\033[m" + safe(fitted(last, screen.width - 1))
                  : view);
        pollfd keyboard = {has_keys ? STDIN_FILENO : -1, POLLIN, 0};
        const bool is_pressed = poll(&keyboard, 1, static_cast<int>(wanted.interval * 1000)) == 1;
        key = !is_pressed ? '\0' : read(STDIN_FILENO, &key, 1) == 1 ? key : 'q';
    }
    return {FINE, "", {}};
}
