#include "call.h"

#include "world.h"
#include "zel_common_storage.h"
#include "zel_common_storage/received_shares.h"
#include "zel_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <tuple>
#include <type_traits>

namespace zel_test
{

namespace
{

using zel_test::shown;

template <typename T>
concept number = std::is_arithmetic_v<T> || std::is_enum_v<T>;

std::string shown(number auto value)
{
    return std::to_string(+value); // an enumeration counts as its number
}

/* The members of records, in their order. */

auto members(zel_content_sync_info &it)
{
    return std::tie(it.sync_id, it.type, it.status, it.content_id, it.req_id, it.wifi_only, it.fail_retry_count,
                    it.percentage, it.offset, it.chunk_no, it.sent_time, it.contents_token, it.original, it.thumbnail,
                    it.name, it.local_path, it.mupload_key);
}

auto members(zel_upload_request_info &it)
{
    return std::tie(it.unique_id, it.req_id, it.file_count, it.status, it.receiver_count, it.expired_time,
                    it.total_size, it.contents_token, it.app_type, it.from_ccc, it.from_number, it.description,
                    it.sent_time);
}

auto members(zel_trans_content_info &it)
{
    return std::tie(it.content_id, it.original, it.thumbnail, it.mid_thumbnail, it.big_thumbnail, it.name,
                    it.content_type, it.contents_token, it.download_count, it.max_download_count, it.size);
}

/// But for the items.
auto members(zel_trans_share_content_info &it)
{
    return std::tie(it.contents_token, it.description, it.type, it.from_msisdn, it.to_list, it.expired_time,
                    it.push_status);
}

auto members(quillo_msisdn_s &it)
{
    return std::tie(it.ccc, it.phone_number, it.number_id, it.group_id);
}

auto members(zel_trans_url_info &it)
{
    return std::tie(it.url, it.content_type);
}

/// But for the lists.
auto members(zel_trans_upload_info &it)
{
    return std::tie(it.request_id, it.total_size, it.file_count, it.expired_time, it.sent_time, it.contents_token,
                    it.status);
}

template <typename T>
concept record = requires(T it)
{
    members(it);
};

std::string shown(record auto &it)
{
    std::string all;
    std::apply([&](auto &...each) { ((all += (all.empty() ? "(" : " ") + shown(each)), ...); }, members(it));
    return all + ")";
}

/* What comes out, which is released. */

struct io {
    told &out;
    size_t length = 0;                 ///< of a list: the last number that was passed
    std::list<std::string> texts = {}; ///< in use by the call

    void put(const std::string &text)
    {
        out.outputs = " " + text + out.outputs; // the last one comes first
    }

    std::string take(number auto value)
    {
        length = static_cast<size_t>(value);
        return shown(value);
    }
    std::string take(char *text)
    {
        const std::string all = shown(const_cast<const char *>(text));
        g_free(text);
        return all;
    }
    std::string take(quillo_msisdn_s *it)
    {
        if (!it)
            return "NULL";
        const std::string all = shown(*it);
        g_free(it->ccc);
        g_free(it->phone_number);
        g_free(it);
        return all;
    }
    std::string take(zel_content_sync_info *it)
    {
        const std::string all = shown(*it);
        _common_storage_free_sync_content_info(it);
        return all;
    }
    /// Of an array whose length is known.
    template <typename T> std::string take(T *array)
    {
        std::vector<std::string> all;
        for (size_t i = 0; array && i < length; ++i)
            if constexpr (number<T>)
                all.push_back(shown(array[i]));
            else
                all.push_back(take(array[i]));
        free(array);
        return array ? listed(all) : "NULL";
    }
    /// Of a list, all of whose records are of one kind. It stays if there is no release.
    template <record T> std::string take(GList *list, GDestroyNotify release)
    {
        std::vector<std::string> all;
        for (const GList *node = list; node; node = node->next)
            all.push_back(shown(*static_cast<T *>(node->data)));
        if (release)
            g_list_free_full(list, release);
        return listed(all);
    }
    std::string take(zel_trans_upload_info *it)
    {
        std::string all = shown(*it);
        for (const GList *node = it->file_path_list; node; node = node->next)
            all += " " + shown(static_cast<const char *>(node->data));
        for (size_t i = 0; i < it->msisdn_count; ++i)
            all += " " + (it->msisdn_list[i] ? shown(*it->msisdn_list[i]) : "NULL");
        _common_free_upload_info(it);
        return all;
    }
    std::string take(zel_trans_share_content_info *it)
    {
        EXPECT_EQ(g_list_length(it->content_info_list), it->content_info_list_length);
        const std::string all = shown(*it) + take<zel_trans_content_info>(it->content_info_list, nullptr);
        _common_free_share_content_info(it);
        return all;
    }

    /// In full, or if that is long, the first words of the first and the last.
    std::string listed(const std::vector<std::string> &all) const
    {
        std::string line;
        for (const std::string &each : all)
            line += (line.empty() ? "[" : " ") + each;
        out.records += line.substr(line.empty() ? 0 : 1) + "\n";
        if (line.size() <= 80)
            return (all.empty() ? "[" : line) + "]";
        const auto head = [](const std::string &it) { return it.substr(it[0] == '(', it.find(' ') - (it[0] == '(')); };
        return "[" + std::to_string(all.size()) + ": " + head(all.front()) + " ... " + head(all.back()) + "]";
    }
};

/* How each type of argument is read, kept for the time of the call, and shown afterwards. */

/// The tokens of one argument, read one after the other.
class reader
{
  public:
    reader(const std::vector<call::token> &given, io &passed) : with(passed), tokens_(given) {}

    bool next_is(const char *text) const
    {
        return at_ < tokens_.size() && !tokens_[at_].quoted && tokens_[at_].text == text;
    }
    bool skip(const char *text)
    {
        const bool found = next_is(text);
        at_ += found;
        return found;
    }
    void read(char *&value)
    {
        value = nullptr;
        if (skip("NULL"))
            return;
        const std::string &text = tokens_.at(at_++).text;
        value = with.texts.emplace_back(text.empty() ? text : prefix + text).data();
    }
    void read(number auto &value)
    {
        static const std::map<std::string, int> names = {{"NULL", 0},
                                                         {"upload", ZEL_UPLOAD_FILE},
                                                         {"thumbnail", ZEL_DOWNLOAD_THUMBNAIL},
                                                         {"any", ZEL_UNKNOWN},
                                                         {"download", ZEL_DOWNLOAD_FILE},
                                                         {"todo", ZEL_SYNC_TODO},
                                                         {"ongoing", ZEL_SYNC_ONGOING},
                                                         {"failed", ZEL_SYNC_FAILED},
                                                         {"paused", ZEL_SYNC_PAUSED},
                                                         {"paused_todo", ZEL_SYNC_PAUSED_TODO},
                                                         {"complete", ZEL_SYNC_COMPLETE}};
        const std::string &text = tokens_.at(at_++).text;
        const auto name = names.find(text);
        const unsigned long long all = name != names.end()   ? static_cast<unsigned long long>(name->second)
                                       : text.front() == '-' ? static_cast<unsigned long long>(std::stoll(text))
                                                             : std::stoull(text);
        with.length = static_cast<size_t>(all);
        value = static_cast<std::remove_reference_t<decltype(value)>>(all);
    }
    void read(record auto &it)
    {
        EXPECT_TRUE(skip("("));
        std::apply([this](auto &...all) { (this->read(all), ...); }, members(it));
    }

    io &with;

  private:
    const std::vector<call::token> &tokens_;
    size_t at_ = 0;
};

template <typename T> struct argument {
    explicit argument(reader &in)
    {
        in.read(value);
    }
    T value;
};

template <> struct argument<const char *> {
    explicit argument(reader &in)
    {
        in.read(value);
    }
    char *value;
};

char nowhere[16];
/// What an output holds before a call: nothing that any operation would put there.
template <typename T> constexpr T UNTOUCHED = 77;
template <> constexpr bool UNTOUCHED<bool> = true;
template <> constexpr int UNTOUCHED<int> = -77;
template <typename T> T *const UNTOUCHED<T *> = reinterpret_cast<T *>(nowhere);

template <typename T> struct argument<T *> {
    explicit argument(reader &in) : with(in.with), value(in.skip("NULL") ? nullptr : &it)
    {
        lists_urls = in.skip("&urls");
        if constexpr (std::is_same_v<T, bool>)
            it = !in.skip("&false");
    }
    argument(const argument &) = delete;
    argument &operator=(const argument &) = delete;
    ~argument()
    {
        if (value)
            with.put(std::is_same_v<T, bool> || it != UNTOUCHED<T> ? handed_out() : "-");
    }
    std::string handed_out()
    {
        if constexpr (!std::is_same_v<T, GList *>)
            return with.take(it);
        else if (lists_urls)
            return with.template take<zel_trans_url_info>(it, _common_free_url_info);
        else
            return with.template take<zel_content_sync_info>(it, _common_storage_free_sync_content_info);
    }
    io &with;
    T it = UNTOUCHED<T>, *value;
    bool lists_urls = false;
};

template <> struct argument<quillo_storage_unique_data_involk_cb> {
    explicit argument(reader &in) : value(in.skip("NULL") ? nullptr : log) {}
    static void log(void *key, void *text)
    {
        dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): called with %s, %s\n", "callback", 1, static_cast<char *>(key),
                   static_cast<char *>(text));
    }
    quillo_storage_unique_data_involk_cb value;
};

/// A record, of which the numbers that the call has changed are shown.
template <record T> struct argument<T *> {
    explicit argument(reader &in) : with(in.with), value(in.skip("NULL") ? nullptr : &it)
    {
        if (value)
            in.read(it);
        before = it;
    }
    argument(const argument &) = delete;
    argument &operator=(const argument &) = delete;
    ~argument()
    {
        std::string all;
        const auto show = [&]<typename M>(M then, M now) {
            if (then != now && number<M>)
                all += (all.empty() ? "" : " ") + shown(now);
        };
        [&]<size_t... I>(const auto &then, const auto &now, std::index_sequence<I...>)
        {
            (show(std::get<I>(then), std::get<I>(now)), ...);
        }
        (members(before), members(it), std::make_index_sequence<std::tuple_size_v<decltype(members(it))>>());
        if (!all.empty())
            with.put(all);
    }
    io &with;
    T it = {}, before = {}, *value;
};

template <> struct argument<zel_trans_share_content_info *> {
    explicit argument(reader &in)
    {
        if (in.skip("NULL"))
            return;
        in.read(it);
        for (; in.next_is("(") || in.next_is("NULL"); in.skip(")"))
            it.content_info_list = g_list_append(it.content_info_list, items.emplace_back(in).value);
        value = &it;
    }
    ~argument()
    {
        g_list_free(it.content_info_list);
        while (!items.empty())
            items.pop_back();
    }
    zel_trans_share_content_info it = {}, *value = nullptr;
    std::list<argument<zel_trans_content_info *>> items;
};

template <> struct argument<quillo_msisdn_s **> {
    explicit argument(reader &in)
    {
        if (in.skip("NULL"))
            return;
        for (; in.next_is("("); in.skip(")"))
            in.read(people.emplace_back());
        addresses.reserve(1); // nobody is no null pointer
        for (quillo_msisdn_s &it : people)
            addresses.push_back(&it);
        value = addresses.data();
    }
    std::list<quillo_msisdn_s> people;
    std::vector<quillo_msisdn_s *> addresses;
    quillo_msisdn_s **value = nullptr;
};

/// A report that an operation puts paths into.
template <> struct argument<zel_trans_upload_info *> {
    explicit argument(reader &in) : with(in.with), value(in.skip("NULL") ? nullptr : &it) {}
    ~argument()
    {
        with.put(it.file_path_list ? with.take(static_cast<zel_trans_upload_info *>(g_memdup2(&it, sizeof it))) : "-");
    }
    io &with;
    zel_trans_upload_info it = {}, *value;
};

struct named {
    std::string function;
    std::function<int(const call::tokens &, io &)> call;
};

/// Reads the arguments, each from its tokens, and calls with all of them.
template <typename Result, typename... Parameters, typename... Held>
Result call_with(Result (*function)(Parameters...), const call::tokens &given, io &with, Held &...held)
{
    if constexpr (sizeof...(Held) == sizeof...(Parameters)) {
        at_call(true);
        const Result result = function(held.value...);
        at_call(false);
        return result;
    } else {
        reader in(given.at(1 + sizeof...(Held)), with);
        argument<std::tuple_element_t<sizeof...(Held), std::tuple<Parameters...>>> next(in);
        return call_with(function, given, with, held..., next);
    }
}

template <typename Result, typename... Parameters> named bind(const char *name, Result (*function)(Parameters...))
{
    return {name, [function](const call::tokens &given, io &with) {
                EXPECT_EQ(given.size(), 1 + sizeof...(Parameters)) << given[0][0].text;
                const Result result = call_with(function, given, with);
                if constexpr (std::is_same_v<Result, zel_err_e>)
                    return static_cast<int>(result);
                with.put(shown(result));
                return 0;
            }};
}

// One whose result is no code, one that takes any pointer, one whose result is a statement.

unsigned int batch_count(zel_file_sync_type type, zel_file_sync_status status, bool retried)
{
    return static_cast<unsigned int>(_common_storage_get_batch_count(type, status, retried));
}

zel_err_e release(bool there)
{
    _common_storage_free_sync_content_info(there ? g_new0(zel_content_sync_info, 1) : nullptr);
    return ZEL_ERR_NONE;
}

bool can_prepare(const char *query)
{
    sqlite3_stmt *const statement = __execute_select_query(query);
    sqlite3_finalize(statement);
    return statement;
}

const std::map<std::string, named> &operations_by_name()
{
#define OP(name)                                                                                                       \
    {                                                                                                                  \
#name, bind("_common_storage_" #name, _common_storage_##name)                                                  \
    }
#define INNER(name)                                                                                                    \
    {                                                                                                                  \
#name, bind(#name, name)                                                                                       \
    }
    static const std::map<std::string, named> all = {
        {"free_sync_content_info", bind("_common_storage_free_sync_content_info", release)},
        {"get_batch_count", bind("_common_storage_get_batch_count", batch_count)},
        {"__execute_select_query", bind("__execute_select_query", can_prepare)},
        INNER(__execute_query),
        INNER(__execute_insert_query),
        INNER(__common_storage_get_db_version),
        OP(delete_push_noti),
        OP(delete_content_info),
        OP(add_content_info),
        OP(exist_content_info),
        OP(get_contents),
#include "exported_operations.inc" // OP of each, made from the list of exports; what stands above goes first
    };
    return all;
}

} // namespace

std::string without_prefix(std::string text)
{
    for (size_t at = 0; !prefix.empty() && (at = text.find(prefix, at)) != std::string::npos;)
        text.erase(at, prefix.size());
    return text;
}

std::string shown(const char *text)
{
    const std::string all = text ? without_prefix(text) : "NULL";
    return all.empty() || all.find(' ') != std::string::npos ? "\"" + all + "\"" : all;
}

call::call(const std::string &text) : text_(text)
{
    int depth = 0; // of parentheses
    bool after_record = false;
    for (size_t at = 0; (at = text.find_first_not_of(' ', at)) != std::string::npos;) {
        const bool quoted = text[at] == '"', opens = text[at] == '(', closes = text[at] == ')';
        const size_t start = at + quoted;
        const size_t stop =
            opens || closes ? start + 1 : std::min(text.find_first_of(quoted ? "\"" : " ()", start), text.size());
        if (depth == 0 && !(opens && after_record))
            arguments_.emplace_back();
        arguments_.back().push_back({text.substr(start, stop - start), quoted});
        depth += opens - closes;
        after_record = closes;
        at = stop + quoted;
    }
}

std::vector<std::string> call::names()
{
    std::vector<std::string> all;
    for (const auto &[name, operation] : operations_by_name())
        all.push_back(name);
    return all;
}

told call::operator()() const
{
    told out;
    io with{out};
    out.code = operations_by_name().at(name()).call(arguments_, with);
    return out;
}

std::string call::function() const
{
    return operations_by_name().at(name()).function;
}

bool call::has(size_t argument) const
{
    return arguments_.at(argument)[0].text != "NULL" && arguments_[argument][0].text != "0";
}

call call::without(size_t argument) const
{
    call other = *this;
    other.arguments_.at(argument) = {{"NULL", false}};
    return other;
}

std::vector<table_line> table_of_calls()
{
    std::vector<table_line> all;
    std::set<std::string> known;
    std::string section, given;
    const std::vector<std::string> lines = lines_of(content_of(ZEL_TEST_OPERATIONS));
    for (size_t i = 0, next; i < lines.size(); i = next) {
        std::string text = lines[i];
        for (next = i + 1; next < lines.size() && lines[next].starts_with("    "); ++next)
            text += lines[next].substr(3);
        if (text.starts_with("== ")) {
            section = text.substr(3);
        } else if (text.starts_with("given ")) {
            given = text.substr(6);
        } else if (text.empty()) {
            given.clear();
        } else if (text[0] != '#') {
            const call made(text.substr(0, text.find(" -> ")));
            all.push_back({section, given, made, given.empty() && known.insert(made.name()).second, text, i, next});
        }
    }
    return all;
}

std::vector<std::string> sections()
{
    std::vector<std::string> all;
    for (const table_line &line : table_of_calls())
        if (all.empty() || all.back() != line.section)
            all.push_back(line.section);
    return all;
}

std::vector<call> operations()
{
    std::vector<call> all;
    for (const table_line &line : table_of_calls()) {
        const std::string name = line.made.name();
        if (line.is_first && !name.starts_with("__execute") && name != "init" && name != "free_sync_content_info")
            all.push_back(line.made);
    }
    return all;
}

} // namespace zel_test
