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

template <typename T>
concept number = std::is_arithmetic_v<T> || std::is_enum_v<T>;

/// A list, all of whose elements are of one kind.
template <typename T> struct list_of {
    GList *&first;
};

using recipients = quillo_msisdn_s **; // of a call; ended by a null pointer
template <typename T> struct array_of {
    T *all;
    unsigned long long length;
};

// Each gives the members of a record, in their order, to whoever uses them.
#define MEMBERS(record, ...)                                                                                           \
    auto members(record &it, auto use)                                                                                 \
    {                                                                                                                  \
        return use(__VA_ARGS__);                                                                                       \
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
    members(it, static_cast<void (*)(...)>(nullptr));
};

/* How values are shown: they are released at once, with all that they refer to. */

std::string taken(number auto value)
{
    return std::to_string(+value); // an enumeration counts as its number
}

std::string taken(const char *text)
{
    const std::string all = shown(text);
    g_free(const_cast<char *>(text));
    return all;
}

std::string joined(const std::vector<std::string> &all)
{
    std::string line;
    for (const std::string &each : all)
        line += (line.empty() ? "" : ",") + each;
    return line;
}

std::string taken(record auto *it);
template <typename T> std::string taken(array_of<T> it)
{
    std::vector<std::string> all;
    for (unsigned long long i = 0; it.all && i < it.length; ++i)
        all.push_back(taken(it.all[i]));
    g_free(it.all);
    return it.all ? "[" + joined(all) + "]" : "NULL";
}

template <typename T> std::string taken(list_of<T> it)
{
    std::vector<std::string> all;
    for (; it.first; it.first = g_list_delete_link(it.first, it.first))
        all.push_back(taken(static_cast<T *>(it.first->data)));
    return "[" + joined(all) + "]";
}

std::string taken(recipients all)
{
    unsigned long long length = 0;
    while (all && all[length])
        ++length;
    return taken(array_of<quillo_msisdn_s *>{all, length});
}

/// The value, or the members of a record.
std::vector<std::string> cells(auto value)
{
    return {taken(value)};
}

std::vector<std::string> cells(record auto *it)
{
    if (!it)
        return {"NULL"};
    const auto all = members(*it, [](auto &&...each) { return std::vector{taken(each)...}; });
    g_free(it);
    return all;
}

std::string taken(record auto *it)
{
    return it ? "(" + joined(cells(it)) + ")" : "NULL";
}

/* How they are read: each from a word, those of records one behind the other. */

unsigned long long number_in(const std::string &word)
{
    static const std::vector<std::string> names[] = {
        {"any", "upload", "thumbnail", "download"}, {"todo", "ongoing", "failed", "paused", "paused_todo", "complete"}};
    for (const auto &known : names)
        if (const auto found = std::find(known.begin(), known.end(), word); found != known.end())
            return static_cast<unsigned long long>(found - known.begin());
    return strtoull(word.c_str(), nullptr, 10); // a negative one too
}

template <typename T> T read(const std::string &word);
template <typename T>
requires(number<T> || std::is_pointer_v<T>) void read_next(T &value, std::istream &words)
{
    std::string word;
    std::getline(words, word, ',');
    std::erase_if(word, [](char letter) { return letter == '(' || letter == ')'; });
    value = read<T>(word);
}
void read_next(auto &, std::istream &) {} // of lists and arrays but one nobody is given any

/// As many as there are; "*" for an element without a record, "&" for a record without anything.
template <record T> std::vector<T *> read_all(std::istream &words)
{
    std::vector<T *> all;
    for (int first = words.peek(); first != EOF; first = words.peek()) {
        all.push_back(first == '*' ? nullptr : g_new0(T, 1));
        if (first == '*' || first == '&')
            words.ignore(2);
        else
            members(*all.back(), [&](auto &&...each) { (read_next(each, words), ...); });
    }
    return all;
}

void read_next(list_of<zel_trans_content_info> &it, std::istream &words)
{
    for (zel_trans_content_info *each : read_all<zel_trans_content_info>(words))
        it.first = g_list_append(it.first, each);
}

template <typename T> T read(const std::string &word)
{
    using pointee = std::remove_pointer_t<T>;
    std::istringstream words(word == "nobody" ? "" : word);
    if constexpr (number<T>)
        return static_cast<T>(number_in(word));
    else if (word == "NULL")
        return nullptr;
    else if constexpr (record<pointee>)
        return read_all<pointee>(words).at(0);
    else if constexpr (std::is_same_v<T, recipients>) {
        const std::vector<pointee> all = read_all<quillo_msisdn_s>(words);
        const T people = g_new0(pointee, all.size() + 1);
        std::copy(all.begin(), all.end(), people);
        return people;
    } else { // Not g_strdup, of which the benchmarks count what the library calls.
        const std::string text = word.empty() ? word : prefix + word;
        return g_strndup(text.data(), text.size());
    }
}

/* How an argument is kept for the time of the call. */

/// What has been told of a call.
struct telling {
    std::string outputs;
    unsigned long long length = 0; ///< of an array: the number beside it
    void put(const std::string &output)
    {
        outputs = " " + output + outputs; // the last one comes first
        length = number_in(output);
    }
};

/// An input. Of a record the members that the call has changed are shown.
template <typename T> struct argument {
    argument(telling &told, const std::string &word) : told(told), before(cells(read<T>(word))), value(read<T>(word))
    {
        told.length = number_in(word);
    }
    ~argument()
    {
        const std::vector<std::string> now = cells(value);
        for (size_t i = now.size(); i-- > 0;)
            if (now[i] != before[i])
                told.put(now[i]);
    }
    telling &told;
    std::vector<std::string> before;
    T value;
};

/// An output, which holds before the call what no operation would put there.
template <typename T>
requires(!record<T> && !std::is_const_v<T> && !std::is_same_v<T *, recipients>) struct argument<T *> {
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
            told.put(taken(it));
        else if constexpr (!std::is_same_v<T, GList *>)
            told.put(taken(array_of<std::remove_pointer_t<T>>{it, told.length}));
        else if (word == "&urls")
            told.put(taken(list_of<zel_trans_url_info>{it}));
        else
            told.put(taken(list_of<zel_content_sync_info>{it}));
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
        return {0, " " + std::to_string(result != Result())};
    }
}

const auto &operations_by_name()
{
#define INTERNAL(name) std::pair(#name, [](auto &...with) { return call_with(name, with...); })
#define OP(name) std::pair(#name, [](auto &...with) { return call_with(_common_storage_##name, with...); })
    static const std::map<std::string, told (*)(const call &, telling &)> all = {
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
    for (std::string text, more; std::getline(file, text);) {
        while (file.peek() == ' ' && std::getline(file, more))
            text += "\n" + more;
        const bool is_given = text.empty() || text.starts_with("given ");
        if (is_given)
            given = text.empty() ? "" : text.substr(6);
        const call made(is_given || text[0] == '#' ? "" : text.substr(0, text.find("->")));
        const bool is_first = !made.name.empty() && given.empty() && known.insert(made.name).second;
        all.push_back({text, made, given, is_first});
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
