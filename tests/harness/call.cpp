#include "call.h"

#include "world.h"
#include "zel_common_storage.h"
#include "zel_common_storage/received_shares.h"
#include "zel_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <tuple>
#include <type_traits>

namespace zel_test
{

namespace
{

using zel_test::shown;

template <typename T>
concept number = std::is_arithmetic_v<T> || std::is_enum_v<T>;

/// A list, all of whose elements are of one kind.
template <typename T> struct list_of {
    GList *&first;
};

template <typename T> struct array_of {
    T *all;
    size_t length;
};

// The members of records, in their order.
template <typename... Members> std::tuple<Members...> tied(Members &&...all)
{
    return {std::forward<Members>(all)...};
}
#define MEMBERS(record, ...)                                                                                           \
    auto members(record &it)                                                                                           \
    {                                                                                                                  \
        return tied(__VA_ARGS__);                                                                                      \
    }
MEMBERS(zel_content_sync_info, it.sync_id, it.type, it.status, it.content_id, it.req_id, it.wifi_only,
        it.fail_retry_count, it.percentage, it.offset, it.chunk_no, it.sent_time, it.contents_token, it.original,
        it.thumbnail, it.name, it.local_path, it.mupload_key)
MEMBERS(zel_upload_request_info, it.unique_id, it.req_id, it.file_count, it.status, it.receiver_count, it.expired_time,
        it.total_size, it.contents_token, it.app_type, it.from_ccc, it.from_number, it.description, it.sent_time)
MEMBERS(zel_trans_content_info, it.content_id, it.original, it.thumbnail, it.mid_thumbnail, it.big_thumbnail, it.name,
        it.content_type, it.contents_token, it.download_count, it.max_download_count, it.size)
MEMBERS(zel_trans_share_content_info, it.contents_token, it.description, it.type, it.from_msisdn, it.to_list,
        it.expired_time, it.push_status, list_of<zel_trans_content_info>{it.content_info_list},
        it.content_info_list_length)
MEMBERS(zel_trans_upload_info, it.request_id, it.total_size, it.file_count, it.expired_time, it.sent_time,
        it.contents_token, it.status, list_of<char>{it.file_path_list},
        array_of<quillo_msisdn_s *>{it.msisdn_list, it.msisdn_count})
MEMBERS(quillo_msisdn_s, it.ccc, it.phone_number, it.number_id, it.group_id)
MEMBERS(zel_trans_url_info, it.url, it.content_type)

template <typename T>
concept record = requires(T it)
{
    members(it);
};

/* How values are shown; what is taken is released besides, with all that it refers to. */

std::string shown(number auto value, bool = false)
{
    return std::to_string(+value); // an enumeration counts as its number
}

std::string shown(const char *text, bool is_taken)
{
    const std::string all = shown(text);
    g_free(is_taken ? const_cast<char *>(text) : nullptr);
    return all;
}

std::string joined(const std::vector<std::string> &all)
{
    std::string line;
    for (const std::string &each : all)
        line += (line.empty() ? "" : ",") + each;
    return line;
}

template <record T> std::string shown(T *it, bool is_taken);
template <typename T> std::string shown(array_of<T> it, bool is_taken)
{
    std::vector<std::string> all;
    for (size_t i = 0; it.all && i < it.length; ++i)
        all.push_back(shown(it.all[i], is_taken));
    g_free(is_taken ? it.all : nullptr);
    return it.all ? "[" + joined(all) + "]" : "NULL";
}

template <typename T> std::string shown(list_of<T> it, bool is_taken)
{
    std::vector<std::string> all;
    for (const GList *node = it.first; node; node = node->next)
        all.push_back(shown(static_cast<T *>(node->data), is_taken));
    g_list_free(is_taken ? it.first : nullptr);
    return "[" + joined(all) + "]";
}

std::vector<std::string> cells(record auto &it, bool is_taken = false)
{
    return std::apply([=](auto &&...each) { return std::vector{shown(each, is_taken)...}; }, members(it));
}

template <record T> std::string shown(T *it, bool is_taken)
{
    const std::string all = it ? "(" + joined(cells(*it, is_taken)) + ")" : "NULL";
    g_free(is_taken ? it : nullptr);
    return all;
}

/* How they are read: each from a word, those of records one behind the other. */

std::string text_of(const std::string &word)
{
    return word.empty() ? word : prefix + word;
}

void read(number auto &value, const std::string &word)
{
    static const std::vector<std::string> names[] = {
        {"any", "upload", "thumbnail", "download"}, {"todo", "ongoing", "failed", "paused", "paused_todo", "complete"}};
    unsigned long long all = strtoull(word.c_str(), nullptr, 10); // a negative one too
    for (const auto &known : names)
        if (const auto found = std::find(known.begin(), known.end(), word); found != known.end())
            all = static_cast<unsigned long long>(found - known.begin());
    value = static_cast<std::remove_reference_t<decltype(value)>>(all);
}

void read(auto *&text, const std::string &word)
{
    // Not g_strdup, of which the benchmarks count what the library calls.
    text = word == "NULL" ? nullptr : g_strndup(text_of(word).data(), text_of(word).size());
}

template <typename T>
requires(number<T> || std::is_pointer_v<T>) void read_next(T &value, std::istream &words)
{
    std::string word;
    std::getline(words, word, ',');
    read(value, word);
}

template <record T> T *read_record(std::istream &words)
{
    T *const it = g_new0(T, 1);
    std::apply([&](auto &&...each) { (read_next(each, words), ...); }, members(*it));
    return it;
}

/// As many as there are; "*" for an element without a record. Of others nobody is given any.
template <typename List> void read_next(List &&it, std::istream &words)
{
    if constexpr (std::is_same_v<List, list_of<zel_trans_content_info> &>)
        while (words.peek() != EOF) {
            const bool is_empty = words.peek() == '*';
            it.first = g_list_append(it.first, is_empty ? nullptr : read_record<zel_trans_content_info>(words));
            words.ignore(is_empty ? 2 : 0);
        }
}

std::istringstream words_of(std::string text)
{
    std::erase_if(text, [](char letter) { return letter == '(' || letter == ')'; });
    return std::istringstream(text);
}

/* How an argument is kept for the time of the call. */

/// What has been told of a call.
struct telling {
    std::string outputs;
    size_t length = 0; ///< of an array: the last number that was passed
    void put(const std::string &output)
    {
        outputs = " " + output + outputs; // the last one comes first
    }
};

template <typename T> struct argument {
    argument(telling &told, const std::string &word)
    {
        read(value, word);
        told.length = static_cast<size_t>(value);
    }
    T value;
};

template <typename C>
requires std::is_same_v<const C, const char>
struct argument<C *> {
    argument(telling &, const std::string &word) : text(text_of(word)), value(word == "NULL" ? nullptr : text.data()) {}
    std::string text;
    C *value;
};

/// A record, of which the members that the call has changed are shown.
template <record T> struct argument<T *> {
    argument(telling &told, const std::string &word) : told(told)
    {
        std::istringstream words = words_of(word);
        value = word == "NULL" ? nullptr : word == "&" ? g_new0(T, 1) : read_record<T>(words);
        if (value)
            before = cells(*value);
    }
    ~argument()
    {
        for (size_t i = before.size(); i-- > 0;)
            if (const std::string now = cells(*value)[i]; now != before[i])
                told.put(now);
        shown(value, true);
    }
    telling &told;
    T *value;
    std::vector<std::string> before;
};

template <> struct argument<quillo_msisdn_s **> {
    argument(telling &, const std::string &word)
    {
        std::istringstream words = words_of(word == "nobody" ? "" : word);
        while (words.peek() != EOF)
            people.push_back(read_record<quillo_msisdn_s>(words));
        people.reserve(1); // nobody is no null pointer
        value = word == "NULL" ? nullptr : people.data();
    }
    ~argument()
    {
        for (quillo_msisdn_s *each : people)
            shown(each, true);
    }
    std::vector<quillo_msisdn_s *> people;
    quillo_msisdn_s **value;
};

/// An output, which holds before the call what no operation would put there.
template <typename T>
requires(!record<T> && !std::is_const_v<T>) struct argument<T *> {
    argument(telling &told, const std::string &word) : told(told), word(word), value(word == "NULL" ? nullptr : &it)
    {
        std::memset(&it, 77, sizeof it);
        if constexpr (std::is_same_v<T, bool>)
            it = word != "&false";
        before = it;
    }
    ~argument()
    {
        if (!value)
            return;
        if (it == before && !std::is_same_v<T, bool>)
            told.put("-");
        else if constexpr (number<T> || std::is_same_v<T, char *> || record<std::remove_pointer_t<T>>)
            told.put(shown(it, true));
        else if constexpr (!std::is_same_v<T, GList *>)
            told.put(shown(array_of<std::remove_pointer_t<T>>{it, told.length}, true));
        else if (word == "&urls")
            told.put(shown(list_of<zel_trans_url_info>{it}, true));
        else
            told.put(shown(list_of<zel_content_sync_info>{it}, true));
        if constexpr (number<T>)
            told.length = static_cast<size_t>(it);
    }
    telling &told;
    std::string word;
    T it, before, *value;
};

template <> struct argument<quillo_storage_unique_data_involk_cb> {
    argument(telling &, const std::string &word) : value(word == "NULL" ? nullptr : log) {}
    static void log(void *key, void *text)
    {
        dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "callback(1): called with %s, %s\n", static_cast<char *>(key),
                   static_cast<char *>(text));
    }
    quillo_storage_unique_data_involk_cb value;
};

/// Reads the arguments, each from its word, and calls with all of them.
template <typename Result, typename... Parameters, typename... Held>
told call_with(Result (*function)(Parameters...), const call &given, telling &with, Held &...held)
{
    if constexpr (sizeof...(Held) < sizeof...(Parameters)) {
        using next = argument<std::tuple_element_t<sizeof...(Held), std::tuple<Parameters...>>>;
        next one(with, given.arguments.at(sizeof...(Held)));
        return call_with(function, given, with, held..., one);
    } else {
        EXPECT_EQ(given.arguments.size(), sizeof...(Parameters)) << given.text;
        at_call(true);
        const Result result = function(held.value...);
        at_call(false);
        if constexpr (std::is_same_v<Result, zel_err_e>)
            return {result, ""};
        if constexpr (std::is_pointer_v<Result>)
            sqlite3_finalize(result);
        return {0, " " + shown(result != Result())};
    }
}

using binding = told (*)(const call &, telling &);
template <auto FUNCTION> told bound(const call &given, telling &with)
{
    return call_with(FUNCTION, given, with);
}

const std::map<std::string, binding> &operations_by_name()
{
#define OP(name) std::pair<std::string, binding>(#name, bound<_common_storage_##name>)
#define INTERNAL(name) std::pair<std::string, binding>(#name, bound<name>)
    static const std::map<std::string, binding> all = {
        INTERNAL(__execute_query),
        INTERNAL(__execute_insert_query),
        INTERNAL(__execute_select_query),
        INTERNAL(__common_storage_get_db_version),
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

call::call(const std::string &given) : text(given)
{
    std::istringstream words(given);
    words >> name;
    for (std::string word; words >> std::quoted(word);)
        arguments.push_back(word);
}

told call::operator()() const
{
    telling with;
    told out = operations_by_name().at(name)(*this, with);
    out.outputs += with.outputs;
    return out;
}

std::string call::function() const
{
    return (name.starts_with("__") ? "" : "_common_storage_") + name;
}

std::vector<table_line> table_of(const std::string &section)
{
    std::vector<table_line> all;
    std::set<std::string> known;
    std::string given;
    std::ifstream file(ZEL_TEST_OPERATIONS "/" + section + ".txt");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("    "))
            all.back().text += "\n" + line;
        else
            all.push_back({line, call(""), "", false});
    }
    for (table_line &line : all) {
        if (line.text.starts_with("given "))
            given = line.text.substr(6);
        else if (line.text.empty())
            given.clear();
        else if (line.text[0] != '#')
            line = {line.text, call(line.text.substr(0, line.text.find("->"))), given, false};
        line.is_first = given.empty() && known.insert(line.made.name).second && !line.made.name.empty();
    }
    return all;
}

std::vector<call> operations()
{
    std::vector<call> all;
    for (const std::string &section : sections)
        for (const table_line &line : table_of(section))
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
