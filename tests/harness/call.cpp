#include "call.h"

#include "world.h"
#include "zel_common_storage.h"
#include "zel_common_storage/received_shares.h"
#include "zel_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <set>
#include <span>
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

// The members of records, in their order, but for lists.
#define MEMBERS(record, ...)                                                                                           \
    auto members(record &it)                                                                                           \
    {                                                                                                                  \
        return std::tie(__VA_ARGS__);                                                                                  \
    }
MEMBERS(zel_content_sync_info, it.sync_id, it.type, it.status, it.content_id, it.req_id, it.wifi_only,
        it.fail_retry_count, it.percentage, it.offset, it.chunk_no, it.sent_time, it.contents_token, it.original,
        it.thumbnail, it.name, it.local_path, it.mupload_key)
MEMBERS(zel_upload_request_info, it.unique_id, it.req_id, it.file_count, it.status, it.receiver_count, it.expired_time,
        it.total_size, it.contents_token, it.app_type, it.from_ccc, it.from_number, it.description, it.sent_time)
MEMBERS(zel_trans_content_info, it.content_id, it.original, it.thumbnail, it.mid_thumbnail, it.big_thumbnail, it.name,
        it.content_type, it.contents_token, it.download_count, it.max_download_count, it.size)
MEMBERS(zel_trans_share_content_info, it.contents_token, it.description, it.type, it.from_msisdn, it.to_list,
        it.expired_time, it.push_status)
MEMBERS(zel_trans_upload_info, it.request_id, it.total_size, it.file_count, it.expired_time, it.sent_time,
        it.contents_token, it.status)
MEMBERS(quillo_msisdn_s, it.ccc, it.phone_number, it.number_id, it.group_id)
MEMBERS(zel_trans_url_info, it.url, it.content_type)

template <typename T>
concept record = requires(T it)
{
    members(it);
};

std::vector<std::string> cells(record auto &it)
{
    return std::apply([](auto &...each) { return std::vector{shown(each)...}; }, members(it));
}

std::string joined(const std::vector<std::string> &all)
{
    std::string line;
    for (const std::string &each : all)
        line += (line.empty() ? "" : " ") + each;
    return line;
}

std::string shown(record auto &it)
{
    return "(" + joined(cells(it)) + ")";
}

/// The outputs of one call, which are told and released, and what it was given, which lives as long.
struct io {
    told &out;
    size_t length = 0;       ///< of a list: the last number that was passed
    std::string result = {}; ///< if that is no code

    std::list<std::string> texts = {};
    std::list<zel_trans_content_info> items = {};
    std::unique_ptr<GList, decltype(&g_list_free)> item_list = {nullptr, g_list_free};
    std::list<quillo_msisdn_s> people = {};
    std::vector<quillo_msisdn_s *> addresses = {};

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
        const std::string all = it ? shown(*it) : "NULL";
        for (void *each : {it ? it->ccc : nullptr, it ? it->phone_number : nullptr, reinterpret_cast<char *>(it)})
            g_free(each);
        return all;
    }
    std::string take(zel_content_sync_info *it)
    {
        const std::string all = shown(*it);
        _common_storage_free_sync_content_info(it);
        return all;
    }
    /// An array whose length is known.
    template <typename T> std::string take(T *array)
    {
        std::vector<std::string> all;
        const size_t before = length;
        for (size_t i = 0; array && i < before; ++i)
            all.push_back(take(array[i]));
        free(array);
        return array ? listed(all) : "NULL";
    }
    /// A list, all of whose elements are of one kind. It stays if there is no release.
    template <typename T> std::string take(GList *list, GDestroyNotify release)
    {
        std::vector<std::string> all;
        for (const GList *node = list; node; node = node->next)
            if constexpr (record<T>)
                all.push_back(shown(*static_cast<T *>(node->data)));
            else
                all.push_back(shown(static_cast<const T *>(node->data)));
        if (release)
            g_list_free_full(list, release);
        return listed(all);
    }
    std::string take(zel_trans_upload_info *it)
    {
        std::vector<std::string> people;
        for (size_t i = 0; i < it->msisdn_count; ++i)
            people.push_back(it->msisdn_list[i] ? shown(*it->msisdn_list[i]) : "NULL");
        std::string all = shown(*it) + take<char>(it->file_path_list, nullptr);
        all += listed(people);
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
    /// With those of the items that were given.
    std::vector<std::string> all_cells(record auto &it)
    {
        std::vector<std::string> all = cells(it);
        for (zel_trans_content_info &item : items)
            for (const std::string &cell : cells(item))
                all.push_back(cell);
        return all;
    }
    /// In full, or if that is long, the first words of the first and the last.
    std::string listed(const std::vector<std::string> &all) const
    {
        const std::string line = joined(all);
        out.records += line + "\n";
        const auto head = [](const std::string &it) { return it.substr(it[0] == '(', it.find(' ') - (it[0] == '(')); };
        return line.size() < 40
                   ? "[" + line + "]"
                   : "[" + std::to_string(all.size()) + ": " + head(all[0]) + " ... " + head(all.back()) + "]";
    }
};

/// The words of one argument, read one after the other.
struct reader {
    io &with;
    std::span<const std::string> words;

    bool skip(const char *word)
    {
        const bool found = !words.empty() && words[0] == word;
        words = words.subspan(found);
        return found;
    }
    bool skip_null()
    {
        return words.empty() || skip("NULL");
    }
    std::string next()
    {
        EXPECT_FALSE(words.empty());
        words = words.subspan(1);
        return *(words.data() - 1);
    }
    template <typename C>
    requires std::is_same_v<const C, const char>
    void read(C *&value)
    {
        value = nullptr;
        if (skip_null())
            return;
        const std::string text = next();
        value = with.texts.emplace_back(text == "\"" ? "" : prefix + text.substr(text[0] == '"')).data();
    }
    void read(number auto &value)
    {
        static const std::vector<std::string> names[] = {
            {"any", "upload", "thumbnail", "download"},
            {"todo", "ongoing", "failed", "paused", "paused_todo", "complete"}};
        const std::string text = skip_null() ? "0" : next();
        unsigned long long all = strtoull(text.c_str(), nullptr, 10); // a negative one too
        for (const auto &known : names)
            if (const auto found = std::find(known.begin(), known.end(), text); found != known.end())
                all = static_cast<unsigned long long>(found - known.begin());
        with.length = static_cast<size_t>(all);
        value = static_cast<std::remove_reference_t<decltype(value)>>(all);
    }
    void read(record auto &it)
    {
        EXPECT_TRUE(skip("("));
        std::apply([this](auto &...all) { (this->read(all), ...); }, members(it));
        if constexpr (std::is_same_v<decltype(it), zel_trans_share_content_info &>)
            for (; words.size() > 1; skip(")")) {
                void *const item = skip_null() ? nullptr : &with.items.emplace_back();
                if (item)
                    read(with.items.back());
                with.item_list.reset(it.content_info_list = g_list_append(with.item_list.release(), item));
            }
    }
    void read(quillo_msisdn_s **&value)
    {
        value = nullptr;
        if (skip_null())
            return;
        with.addresses.reserve(1); // nobody is no null pointer
        for (skip("nobody"); !words.empty(); skip(")"))
            read(*with.addresses.emplace_back(&with.people.emplace_back()));
        value = with.addresses.data();
    }
    void read(quillo_storage_unique_data_involk_cb &value)
    {
        const auto log = [](void *key, void *text) {
            dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "callback(1): called with %s, %s\n", static_cast<char *>(key),
                       static_cast<char *>(text));
        };
        value = skip_null() ? nullptr : +log;
    }
};

/* How an argument is read, kept for the time of the call, and shown afterwards. */

template <typename T> struct argument {
    explicit argument(reader &in)
    {
        in.read(value);
    }
    T value;
};

/// A record, of which the members that the call has changed are shown; or an output, which holds before the call what
/// no operation would put there.
template <typename T>
requires(!std::is_const_v<T> && !std::is_function_v<T> && !std::is_same_v<T, quillo_msisdn_s *>) struct argument<T *> {
    explicit argument(reader &in) : with(in.with), value(in.skip_null() ? nullptr : &it)
    {
        lists_urls = in.skip("&urls");
        if constexpr (std::is_same_v<T, bool>)
            it = !in.skip("&false");
        else if constexpr (!record<T>)
            std::memset(&it, 77, sizeof it);
        else if (value && !in.skip("&"))
            in.read(it);
        if constexpr (record<T>)
            before = with.all_cells(it);
        else
            before = it;
    }
    ~argument()
    {
        if (!value)
            return;
        if constexpr (std::is_same_v<T, zel_trans_upload_info>) {
            with.put(it.file_path_list ? with.take(static_cast<T *>(g_memdup2(&it, sizeof it))) : "-");
        } else if constexpr (record<T>) {
            std::vector<std::string> changed;
            for (size_t i = 0; const std::string &cell : with.all_cells(it))
                if (cell != before[i++])
                    changed.push_back(cell);
            if (!changed.empty())
                with.put(joined(changed));
        } else if (it == before && !std::is_same_v<T, bool>) {
            with.put("-");
        } else if constexpr (!std::is_same_v<T, GList *>) {
            with.put(with.take(it));
        } else if (lists_urls) {
            with.put(with.template take<zel_trans_url_info>(it, _common_free_url_info));
        } else {
            with.put(with.template take<zel_content_sync_info>(it, _common_storage_free_sync_content_info));
        }
    }
    io &with;
    T it = {}, *value;
    std::conditional_t<record<T>, std::vector<std::string>, T> before = {};
    bool lists_urls;
};

/// Reads the arguments, each from its words, and calls with all of them.
template <typename Result, typename... Parameters, typename... Held>
int call_with(Result (*function)(Parameters...), const call &given, io &with, Held &...held)
{
    if constexpr (sizeof...(Held) < sizeof...(Parameters)) {
        reader in{with, given.arguments.at(sizeof...(Held))};
        argument<std::tuple_element_t<sizeof...(Held), std::tuple<Parameters...>>> next(in);
        return call_with(function, given, with, held..., next);
    } else {
        EXPECT_EQ(given.arguments.size(), sizeof...(Parameters)) << given.text;
        at_call(true);
        const Result result = function(held.value...);
        at_call(false);
        if constexpr (std::is_same_v<Result, zel_err_e>)
            return result;
        with.result = " " + shown(result != Result());
        if constexpr (std::is_pointer_v<Result>)
            sqlite3_finalize(result);
        return 0;
    }
}

struct operation {
    const char *function;
    std::function<int(const call &, io &)> call;
};

template <auto FUNCTION> operation bound(const char *name)
{
    return {name, [](const call &given, io &with) { return call_with(FUNCTION, given, with); }};
}

const std::map<std::string, operation> &operations_by_name()
{
#define OP(name) std::pair(#name, bound<_common_storage_##name>("_common_storage_" #name))
    static const std::map<std::string, operation> all = {
        std::pair("__execute_query", bound<__execute_query>("__execute_query")),
        std::pair("__execute_insert_query", bound<__execute_insert_query>("__execute_insert_query")),
        std::pair("__execute_select_query", bound<__execute_select_query>("__execute_select_query")),
        std::pair("__common_storage_get_db_version",
                  bound<__common_storage_get_db_version>("__common_storage_get_db_version")),
        OP(delete_push_noti),
        OP(delete_content_info),
        OP(add_content_info),
        OP(exist_content_info),
        OP(get_contents),
#include "exported_operations.inc" // OP of each, made from the list of exports
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

call::call(const std::string &given) : text(given), name(given.substr(0, given.find(' ')))
{
    int depth = 0; // of parentheses
    bool after_record = false;
    for (size_t at = name.size(), end; (at = text.find_first_not_of(' ', at)) != std::string::npos; at = end) {
        const bool opens = text[at] == '(', closes = text[at] == ')', quoted = text[at] == '"';
        end = std::min(opens || closes ? at + 1 : text.find_first_of(quoted ? "\"" : " ()", at + quoted), text.size());
        if (depth == 0 && !(opens && after_record))
            arguments.emplace_back();
        arguments.back().push_back(text.substr(at, end - at));
        depth += opens - closes;
        after_record = closes;
        end += quoted;
    }
}

told call::operator()() const
{
    told out;
    io with{out};
    out.code = operations_by_name().at(name).call(*this, with);
    out.outputs = with.result + out.outputs;
    return out;
}

std::string call::function() const
{
    return operations_by_name().at(name).function;
}

bool call::has(size_t argument) const
{
    const std::string &first = arguments[argument].at(0);
    return first != "NULL" && first != "0";
}

call call::with(size_t argument, const std::string &word) const
{
    call other = *this;
    other.arguments[argument] = {word};
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
            all.push_back({section, given, made, given.empty() && known.insert(made.name).second, text, i, next});
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
    for (const table_line &line : table_of_calls())
        if (line.is_first && !line.made.name.starts_with("__execute") && line.made.name != "init")
            all.push_back(line.made);
    return all;
}

std::set<std::string> operation_names()
{
    std::set<std::string> all;
    for (const auto &[name, operation] : operations_by_name())
        all.insert(name);
    return all;
}

} // namespace zel_test
