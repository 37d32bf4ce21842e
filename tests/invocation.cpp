#include "invocation.h"

#include "store_fixture.h"
#include "zel_common_storage/received_shares.h"

#include <functional>
#include <list>
#include <map>
#include <type_traits>

namespace zel_test
{

const char *word = "word";

namespace
{

std::string shown(const char *value)
{
    return value ? value : "NULL";
}

template <typename T>
requires std::is_arithmetic_v<T> || std::is_enum_v<T> std::string shown(T value)
{
    return std::to_string(+value); // an enumeration counts as its number
}

/// A line of these values.
template <typename... Values> std::string entry(const char *what, const Values &...values)
{
    return what + ((" " + shown(values)) + ...) + "\n";
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
    return std::tie(it.original, it.thumbnail, it.mid_thumbnail, it.big_thumbnail, it.name, it.content_type,
                    it.contents_token, it.download_count, it.max_download_count, it.size, it.content_id);
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

template <typename Record> std::string entry_of(const char *what, Record &it)
{
    return std::apply([what](auto &...all) { return entry(what, all...); }, members(it));
}

template <typename Record> std::string entries_of(const char *what, const GList *node)
{
    std::string all;
    for (; node; node = node->next)
        all += entry_of(what, *static_cast<Record *>(node->data));
    return all;
}

std::string shown(quillo_msisdn_s *it)
{
    return it ? entry_of("person", *it) : "person NULL\n";
}

std::string shown(const zel_trans_upload_info &it)
{
    std::string all = entry("report", it.request_id, it.total_size, it.file_count, it.expired_time, it.sent_time,
                            it.contents_token, it.status);
    for (const GList *node = it.file_path_list; node; node = node->next)
        all += entry("path", static_cast<const char *>(node->data));
    for (size_t i = 0; i < it.msisdn_count; ++i)
        all += shown(it.msisdn_list[i]);
    return all;
}

/// The tokens of one argument, read one after the other.
class reader
{
  public:
    explicit reader(const std::vector<invocation::token> &tokens) : tokens_(tokens) {}

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
        value = skip("NULL")   ? nullptr
                : skip("word") ? const_cast<char *>(word)
                               : const_cast<char *>(tokens_.at(at_++).text.c_str());
    }
    template <typename T>
    requires std::is_arithmetic_v<T> || std::is_enum_v<T>
    void read(T &value)
    {
        const std::string &text = tokens_.at(at_++).text;
        static const std::map<std::string, int> names = {{"NULL", 0},
                                                         {"upload", ZEL_UPLOAD_FILE},
                                                         {"thumbnail", ZEL_DOWNLOAD_THUMBNAIL},
                                                         {"any", 0},
                                                         {"download", ZEL_DOWNLOAD_FILE},
                                                         {"todo", ZEL_SYNC_TODO},
                                                         {"ongoing", ZEL_SYNC_ONGOING},
                                                         {"failed", ZEL_SYNC_FAILED},
                                                         {"paused", ZEL_SYNC_PAUSED},
                                                         {"paused_todo", ZEL_SYNC_PAUSED_TODO},
                                                         {"complete", ZEL_SYNC_COMPLETE}};
        const auto name = names.find(text);
        value = static_cast<T>(name != names.end()   ? static_cast<unsigned long long>(name->second)
                               : text.front() == '-' ? static_cast<unsigned long long>(std::stoll(text))
                                                     : std::stoull(text));
    }
    template <typename Record> void read_members(Record &it)
    {
        EXPECT_TRUE(skip("("));
        std::apply([this](auto &...all) { (this->read(all), ...); }, members(it));
    }

  private:
    const std::vector<invocation::token> &tokens_;
    size_t at_ = 0;
};

/* How each type of argument is read, kept for the time of the call, and looked at afterwards. */

template <typename T> struct argument {
    argument(reader &in, answers &)
    {
        in.read(value);
    }
    T value;
};

template <> struct argument<const char *> {
    argument(reader &in, answers &)
    {
        in.read(value);
    }
    char *value;
};

template <typename T> struct argument<T *> {
    argument(reader &in, answers &out) : value(in.skip("NULL") ? nullptr : out.place<T>())
    {
        if constexpr (std::is_same_v<T, GList *>)
            out.lists_urls = in.skip("&urls");
        else if constexpr (std::is_same_v<T, bool>)
            if (value && in.skip("&false"))
                out.flag_before = *value = false;
    }
    T *value;
};

/// The length that a caller asks for.
struct list_length {
    unsigned int value;
};

template <> struct argument<list_length> {
    argument(reader &in, answers &out)
    {
        in.read(value.value);
        out.length_asked = value.value;
    }
    list_length value;
};

template <> struct argument<quillo_storage_unique_data_involk_cb> {
    argument(reader &in, answers &) : value(in.skip("NULL") ? nullptr : log) {}
    static void log(void *key, void *text)
    {
        dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): called with %s, %s\n", "callback", 1, static_cast<char *>(key),
                   static_cast<char *>(text));
    }
    quillo_storage_unique_data_involk_cb value;
};

/// A record, of which the numbers that the call has changed are shown.
template <typename Record>
requires requires(Record it)
{
    members(it);
}
struct argument<Record *> {
    argument(reader &in, answers &out) : results(out), value(in.skip("NULL") ? nullptr : &it)
    {
        if (value)
            in.read_members(it);
        before = it;
    }
    argument(const argument &) = delete;
    argument &operator=(const argument &) = delete;
    ~argument()
    {
        const auto show = [this]<typename T>(T then, T now) {
            if constexpr (std::is_unsigned_v<T>)
                if (then != now)
                    *results.place<T>() = now;
        };
        [&]<size_t... I>(const auto &then, const auto &now, std::index_sequence<I...>)
        {
            (show(std::get<I>(then), std::get<I>(now)), ...);
        }
        (members(before), members(it), std::make_index_sequence<std::tuple_size_v<decltype(members(it))>>());
    }
    answers &results;
    Record it = {}, before = {};
    Record *value;
};

template <> struct argument<zel_trans_share_content_info *> {
    argument(reader &in, answers &out)
    {
        if (in.skip("NULL"))
            return;
        in.read_members(it);
        for (; in.next_is("(") || in.next_is("NULL"); in.skip(")"))
            it.content_info_list = g_list_append(it.content_info_list, items.emplace_back(in, out).value);
        value = &it;
    }
    ~argument()
    {
        g_list_free(it.content_info_list);
    }
    zel_trans_share_content_info it = {}, *value = nullptr;
    std::list<argument<zel_trans_content_info *>> items;
};

template <> struct argument<quillo_msisdn_s **> {
    argument(reader &in, answers &)
    {
        if (in.skip("NULL"))
            return;
        for (quillo_msisdn_s it = {}; in.next_is("("); in.skip(")")) {
            in.read_members(it);
            people.push_back(it);
        }
        addresses.reserve(1); // nobody is no null pointer
        for (quillo_msisdn_s &it : people)
            addresses.push_back(&it);
        value = addresses.data();
    }
    std::vector<quillo_msisdn_s> people;
    std::vector<quillo_msisdn_s *> addresses;
    quillo_msisdn_s **value = nullptr;
};

template <> struct argument<zel_trans_upload_info *> {
    argument(reader &in, answers &out) : results(out), value(in.skip("NULL") ? nullptr : &it) {}
    ~argument()
    {
        if (it.file_path_list)
            *results.place<zel_trans_upload_info *>() = static_cast<zel_trans_upload_info *>(g_memdup2(&it, sizeof it));
    }
    answers &results;
    zel_trans_upload_info it = {}, *value;
};

using tokens = std::vector<std::vector<invocation::token>>;
struct named {
    std::string function;
    std::function<int(const tokens &, answers &)> call;
};

/// Reads the arguments, each from its tokens, and calls with all of them.
template <typename Result, typename... Parameters, typename... Held>
Result call_with(Result (*function)(Parameters...), const tokens &given, answers &out, Held &...held)
{
    if constexpr (sizeof...(Held) == sizeof...(Parameters)) {
        at_call(true);
        const Result result = function(held.value...);
        at_call(false);
        return result;
    } else {
        reader in(given.at(1 + sizeof...(Held)));
        argument<std::tuple_element_t<sizeof...(Held), std::tuple<Parameters...>>> next(in, out);
        return call_with(function, given, out, held..., next);
    }
}

template <typename Result, typename... Parameters> named bind(const char *name, Result (*function)(Parameters...))
{
    return {name, [function](const tokens &given, answers &out) {
                EXPECT_EQ(given.size(), 1 + sizeof...(Parameters)) << given[0][0].text;
                const Result result = call_with(function, given, out);
                if constexpr (std::is_same_v<Result, bool>) {
                    out.flag_before = !result;
                    *out.place<bool>() = result;
                    return 0;
                } else if constexpr (std::is_same_v<Result, unsigned int>) { // a number, not a code
                    *out.place<unsigned int>() = result;
                    return 0;
                } else {
                    return static_cast<int>(result);
                }
            }};
}

// Results and arguments that mean something else than those of the others.
zel_err_e recipients(unsigned int req_id, list_length length, char ***list)
{
    return _common_storage_get_upload_receipients_details(req_id, length.value, list);
}

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

#define OP(name)                                                                                                       \
    {                                                                                                                  \
#name, bind("_common_storage_" #name, _common_storage_##name)                                                  \
    }
#define INNER(name)                                                                                                    \
    {                                                                                                                  \
#name, bind(#name, name)                                                                                       \
    }

const std::map<std::string, named> &operations_by_name()
{
    static const std::map<std::string, named> all = {
        {"free_sync_content_info", bind("_common_storage_free_sync_content_info", release)},
        {"get_batch_count", bind("_common_storage_get_batch_count", batch_count)},
        {"get_upload_receipients_details", bind("_common_storage_get_upload_receipients_details", recipients)},
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

std::string answers::take()
{
    std::string out;
    /// Goes through what was put into the places of a type.
    const auto each = [this]<typename T>(T untouched, const auto &look) {
        places<T> &of_type = std::get<places<T>>(all);
        for (size_t i = 0; i < of_type.given; ++i)
            if (of_type.values[i] != untouched)
                look(of_type.values[i]);
    };
    size_t length = length_asked; // of a list: or the last number that came with it
    each(flag_before, [&](bool value) { out += entry("flag", value); });
    each(UNTOUCHED<int>, [&](int value) {
        out += entry("number", value);
        length = static_cast<size_t>(value);
    });
    each(UNTOUCHED<unsigned int>, [&](unsigned int value) {
        out += entry("count", value);
        length = value;
    });
    each(UNTOUCHED<unsigned long long>, [&](unsigned long long value) { out += entry("wide", value); });
    each(UNTOUCHED<char *>, [&](char *text) {
        out += entry("text", text);
        g_free(text);
    });
    /// Of an array, which is then released.
    const auto elements = [&](auto *list, const auto &look) {
        for (size_t i = 0; list && i < length; ++i)
            look(list[i]);
        out += list ? "" : "none\n";
        free(list);
    };
    each(UNTOUCHED<char **>, [&](char **list) {
        elements(list, [&](char *text) {
            out += entry("text", text);
            g_free(text);
        });
    });
    const auto show = [&](auto number) { out += entry("entry", number); };
    each(UNTOUCHED<int *>, [&](int *list) { elements(list, show); });
    each(UNTOUCHED<unsigned int *>, [&](unsigned int *list) { elements(list, show); });
    each(UNTOUCHED<quillo_msisdn_s **>, [&](quillo_msisdn_s **list) {
        elements(list, [&](quillo_msisdn_s *it) {
            out += shown(it);
            if (it) {
                g_free(it->ccc);
                g_free(it->phone_number);
            }
            g_free(it);
        });
    });
    each(UNTOUCHED<GList *>, [&](GList *list) {
        out += !list        ? "none\n"
               : lists_urls ? entries_of<zel_trans_url_info>("url", list)
                            : entries_of<zel_content_sync_info>("record", list);
        g_list_free_full(list, lists_urls ? _common_free_url_info : _common_storage_free_sync_content_info);
    });
    each(UNTOUCHED<zel_content_sync_info *>, [&](zel_content_sync_info *it) {
        out += entry_of("record", *it);
        _common_storage_free_sync_content_info(it);
    });
    each(UNTOUCHED<zel_trans_upload_info *>, [&](zel_trans_upload_info *it) {
        out += shown(*it);
        _common_free_upload_info(it);
    });
    each(UNTOUCHED<zel_trans_share_content_info *>, [&](zel_trans_share_content_info *it) {
        EXPECT_EQ(g_list_length(it->content_info_list), it->content_info_list_length);
        out += entry_of("share", *it) + entries_of<zel_trans_content_info>("item", it->content_info_list);
        _common_free_share_content_info(it);
    });
    *this = answers();
    return out;
}

invocation::invocation(const std::string &text)
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

std::vector<std::string> invocation::names()
{
    std::vector<std::string> all;
    for (const auto &[name, operation] : operations_by_name())
        all.push_back(name);
    return all;
}

int invocation::operator()(answers &out) const
{
    return operations_by_name().at(arguments_[0][0].text).call(arguments_, out);
}

std::string invocation::function() const
{
    return operations_by_name().at(arguments_[0][0].text).function;
}

bool invocation::has(size_t argument) const
{
    return argument < arguments_.size() && arguments_[argument][0].text != "NULL" &&
           arguments_[argument][0].text != "0";
}

invocation invocation::without(size_t argument) const
{
    invocation other = *this;
    other.arguments_.at(argument) = {{"NULL", false}};
    return other;
}

} // namespace zel_test
