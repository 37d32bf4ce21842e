// Requests, and the encoding of a share.
#include "interpose.h"
#include "platform.h"
#include "zel_common_request/dumps.h"
#include "zel_common_request/request.h"
#include "zel_common_request/share_encoding.h"

#include <climits>
#include <cstring>
#include <memory>
#include <string>

using namespace zel_test;

namespace
{

using item = zel_trans_content_info;
using share = zel_trans_share_content_info;

constexpr char *zel_request::*strings[] = {
    &zel_request::description,  &zel_request::local_path, &zel_request::url,       &zel_request::contents_token,
    &zel_request::folder_token, &zel_request::group_id,   &zel_request::list_next, &zel_request::list_more};
constexpr size_t copied_strings = 6; // the first ones
constexpr GList *zel_request::*lists[] = {&zel_request::receiver_list, &zel_request::url_list, &zel_request::file_list,
                                          &zel_request::server_file_list};
constexpr size_t copied_lists = 3;

GList *list_of(std::initializer_list<const char *> texts)
{
    GList *list = nullptr;
    for (const char *text : texts)
        list = g_list_append(list, g_strdup(text));
    return list;
}

std::string texts_of(const GList *list)
{
    std::string texts;
    for (; list; list = list->next)
        texts += std::string(static_cast<const char *>(list->data)) + ";";
    return texts;
}

zel_request *make_request()
{
    auto *request = g_new0(zel_request, 1);
    request->cmd = ZEL_CMD_RECALL_UPLOAD;
    request->req_id = 4000000001U;
    request->receiver_count = 2;
    request->url_count = 3;
    request->file_count = 4;
    request->thumbnail_type = QUILLO_EVENT_THUMBNAIL_480;
    request->content_token_expired_time = 1ULL << 40;
    request->folder_token_expired_time = ~0ULL;
    for (size_t i = 0; i < std::size(strings); ++i)
        request->*strings[i] = g_strdup_printf("text %zu", i);
    for (const auto list : lists)
        request->*list = list_of({"first", "second"});
    request->caller = new_handle();
    return request;
}

const trace duplicated = whole("_common_glist_dup");

trace members_released(const trace &at_the_handle = {})
{
    const std::string release = "_common_free_zel_request_members";
    return named(release, whole(it, {debug(it, "g_list_free_full"), debug(it, "destroy app control"), at_the_handle}));
}

template <typename Value> std::string number(Value value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string text(const std::string &value)
{
    return number(static_cast<int>(value.size())) + value;
}

// Reads from exactly as many bytes as the content has, so that the address check sees every step beyond. True for
// ZEL_ERR_NONE; otherwise the result must be ZEL_ERR_MEMORY and the outputs untouched.
template <typename Output>
bool read(zel_err_e (*reader)(const void *, int, int *, Output *), const std::string &content, int *offset, Output *out)
{
    const auto bytes = std::make_unique<char[]>(content.size());
    std::memcpy(bytes.get(), content.data(), content.size());
    const int offset_before = *offset;
    const Output before = *out;
    const zel_err_e result = reader(bytes.get(), static_cast<int>(content.size()), offset, out);
    EXPECT_TRUE(result == ZEL_ERR_NONE || (result == ZEL_ERR_MEMORY && *offset == offset_before && *out == before));
    return result == ZEL_ERR_NONE;
}

// What is read, encoded again by the library; nothing when it is refused.
std::string decode(const std::string &content, int *offset)
{
    share *decoded = nullptr;
    if (!read(__get_share_content_info_list, content, offset, &decoded))
        return "";
    std::string bytes(__find_length_of_share_content_info_list(decoded), '\0');
    int end = 0;
    EXPECT_EQ(__set_share_content_info_list(bytes.data(), &end, decoded), ZEL_ERR_NONE);
    _common_free_share_content_info(decoded);
    return bytes;
}

std::string too_large(int offset, size_t max_length)
{
    return "offset to large, offset=" + std::to_string(offset) + ", max_length=" + std::to_string(max_length);
}

// A share of two items, the second one empty, and its encoding put together by hand.
class Wire : public testing::Test
{
  protected:
    Wire()
    {
        const auto put = [this](const char *value) {
            bytes += text(value ? value : "");
            return g_strdup(value);
        };
        const auto put_number = [this](auto value) {
            bytes += number(value);
            return value;
        };
        // The push status does not travel.
        share record = {put("token"),
                        put("description"),
                        put("type"),
                        put("from"),
                        put("to"),
                        put_number(0x8877665544332211ULL),
                        put_number(2U),
                        nullptr,
                        QUILLO_PUSH_STATUS_SHARE_RECALLED};
        const item items[] = {{put("original"), put(""), put("mid"), put("big"), put("name"), put("image"),
                               put("its token"), put_number(4000000001U), put_number(4000000002U),
                               put_number(4000000003U), put_number(4000000004U)},
                              {}};
        bytes += std::string(44, '\0');
        for (const item &each : items)
            record.content_info_list = g_list_append(record.content_info_list, g_memdup2(&each, sizeof each));
        record.content_info_list_length = 77; // encoding and sizing bring it up to date
        one = static_cast<share *>(g_memdup2(&record, sizeof record));
    }
    ~Wire() override
    {
        _common_free_share_content_info(one);
    }

    share *one = nullptr;
    std::string bytes;
    int offset = 0;
};

} // namespace

TEST(Request, CopyIsIndependentButForThreeMembers)
{
    zel_request *source = make_request();
    auto *copy = g_new0(zel_request, 1);
    copy->description = reinterpret_cast<char *>(1); // overwritten, not released
    const trace cloned = debug(it, "app_control_clone result : [0]");
    EXPECT_WHOLE(ZEL_ERR_NONE, join({duplicated, duplicated, duplicated, cloned}), _common_copy_zel_request_members,
                 source, copy);
    EXPECT_EQ(copy->req_id, 4000000001U);
    EXPECT_EQ(copy->folder_token_expired_time, ~0ULL);
    for (size_t i = 0; i < std::size(strings); ++i) {
        EXPECT_STREQ(copy->*strings[i], source->*strings[i]);
        EXPECT_EQ(copy->*strings[i] == source->*strings[i], i >= copied_strings) << i;
    }
    for (size_t i = 0; i < std::size(lists); ++i) {
        EXPECT_EQ(texts_of(copy->*lists[i]), "first;second;");
        EXPECT_EQ(copy->*lists[i] == source->*lists[i], i >= copied_lists) << i;
        EXPECT_EQ((copy->*lists[i])->data == (source->*lists[i])->data, i >= copied_lists) << i;
    }

    // One of the two gives up what both refer to. A release resets the strings only.
    source->server_file_list = nullptr;
    source->list_next = source->list_more = nullptr;
    platform.destroy_result = -7;
    const trace released = members_released(debug(it, "app_control_destroy ret[-7]"));
    EXPECT_LOGS(0, released, _common_free_zel_request_members, copy);
    for (const auto string : strings)
        EXPECT_EQ(copy->*string, nullptr);
    EXPECT_NE(copy->file_list, nullptr);
    EXPECT_NE(copy->caller, nullptr);
    g_free(copy);
    EXPECT_WHOLE(0, released, _common_free_zel_request, source);
    EXPECT_TRUE(platform.handles.empty()) << "the copy's was another one";
}

TEST(Request, CopyHasNoHandleThatCannotBeClonedAndListsUpToANull)
{
    zel_request source{};
    source.receiver_list = list_of({"first", nullptr, "third"});
    const trace cut = whole("_common_glist_dup", {critical("_common_glist_dup", "NULL string")});
    const trace refused = debug(it, "app_control_clone result : [-12]");
    for (const app_control_h caller : {app_control_h(), new_handle()}) {
        zel_request copy{};
        source.caller = platform.clone_left_behind = caller;
        platform.clone_result = -12;
        EXPECT_WHOLE(ZEL_ERR_NONE, join({cut, caller ? refused : trace()}), _common_copy_zel_request_members, &source,
                     &copy);
        EXPECT_EQ(texts_of(copy.receiver_list), "first;");
        EXPECT_EQ(copy.url, nullptr);
        EXPECT_EQ(copy.caller, nullptr);
        EXPECT_LOGS(0, members_released(), _common_free_zel_request_members, &copy);
    }
    EXPECT_EQ(g_list_length(source.receiver_list), 3u);
    _common_free_zel_request_members(&source);
}

TEST(Request, NullArgumentsAreRejected)
{
    EXPECT_NULLS_REJECTED(2, ZEL_ERR_INVALID_ARG, "Invalid parameters", _common_copy_zel_request_members);
    const trace no_request = critical(it, "[request] is NULL_PARAM");
    EXPECT_WHOLE(0, no_request, _common_free_zel_request, nullptr);
    EXPECT_WHOLE(0, no_request, _common_free_zel_request_members, nullptr);
    EXPECT_WHOLE(nullptr, critical(it, "[src] is NULL_PARAM"), _common_glist_dup, nullptr);
    EXPECT_WHOLE(0, trace(), _common_free_zel_param_members, nullptr);
    auto *param = g_new0(comm_param_s, 1);
    param->handle = &param; // not its own
    EXPECT_WHOLE(0, members_released(), _common_free_zel_param_members, param);

    const char *body = "Fail: Invalid Parameter";
    EXPECT_NULLS_REFUSED(2, ZEL_ERR_INVALID_ARG, body, __set_unsigned_int, __set_int, __set_unsigned_long_long,
                         __set_string);
    EXPECT_NULLS_REFUSED(3, ZEL_ERR_INVALID_ARG, body, __get_unsigned_int, __get_int, __get_unsigned_long_long,
                         __get_string, __get_content_info);
    EXPECT_NULLS_REJECTED(3, ZEL_ERR_INVALID_ARG, body, __set_content_info, __set_share_content_info_list,
                          __get_share_content_info_list);
    EXPECT_NULLS_REJECTED(1, 0, body, __print_share_content_info_list);
    EXPECT_NULLS_REJECTED(1, 0, "Invalid Parameter", __find_length_of_content_info,
                          __find_length_of_share_content_info_list);
}

TEST(Request, DumpNamesItsCaller)
{
    zel_request *request = make_request();
    g_clear_pointer(&request->group_id, g_free);
    const std::string from = "from send_it(42) > ";
    const trace lines =
        join({info(it, from + "cmd [26]"), info(it, from + "req_id [-294967295]"),
              info(it, from + "receiver_count [2]"), info(it, from + "url_count [3]"),
              info(it, from + "file_count [4]"), plain(it, from + "contents_token [text 3]"),
              info(it, from + "content_token_expired_time [1099511627776]"), plain(it, from + "folder_token [text 4]"),
              info(it, from + "folder_token_expired_time [-1]"), plain(it, from + "group_id [(null)]"),
              plain(it, from + "thumbnail_type [2]"), plain(it, from + "g_list_length(file_list) [2]"),
              plain(it, from + "file [first]"), plain(it, from + "file [second]")});
    EXPECT_LOGS(0, lines, __print_zel_request, request, "send_it", 42);
    _common_free_zel_request(request);
}

TEST(Fields, AreNativeAndUnaligned)
{
    char buffer[64];
    int end = 1;
    EXPECT_EQ(__set_unsigned_int(buffer, &end, 0xfffefdfcU), ZEL_ERR_NONE);
    EXPECT_EQ(__set_int(buffer, &end, -2), ZEL_ERR_NONE);
    EXPECT_EQ(__set_unsigned_long_long(buffer, &end, 0x8877665544332211ULL), ZEL_ERR_NONE);
    for (const char *string : {"abc", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(__set_string(buffer, &end, string), ZEL_ERR_NONE);
    const std::string numbers = number(0xfffefdfcU) + number(-2) + number(0x8877665544332211ULL);
    EXPECT_EQ(std::string(buffer + 1, static_cast<size_t>(end - 1)), numbers + text("abc") + text("") + text(""));

    unsigned int u32 = 0;
    int i32 = 0;
    unsigned long long u64 = 0;
    int offset = 1;
    EXPECT_EQ(__get_unsigned_int(buffer, &offset, &u32), ZEL_ERR_NONE);
    EXPECT_EQ(__get_int(buffer, &offset, &i32), ZEL_ERR_NONE);
    EXPECT_EQ(__get_unsigned_long_long(buffer, &offset, &u64), ZEL_ERR_NONE);
    EXPECT_EQ(number(u32) + number(i32) + number(u64), numbers);
    EXPECT_EQ(offset, 17);
    EXPECT_TRACE();
}

TEST(Fields, StringsAreReadWithinTheirBounds)
{
    const std::string get = "__get_string";
    const std::string no_memory = "Memory allcation failure";
    const std::string run(9000, 'z');
    const std::string longest(4096, 'z');
    const struct {
        int before;       // so many bytes, then
        int length;       // this, then
        std::string rest; // the string, whose end may be missing
        int after;        // where the next field starts
        const char *kept; // none: it is absent, or refused
        std::string failure;
    } cases[] = {{2, 3, "abc", 9, "abc", ""},
                 {0, 3, std::string("a\0c", 3), 7, "a", ""},
                 {6000, 9000, run, 15004, run.c_str(), ""},
                 {0, 0, "abc", 4, nullptr, ""},
                 {0, -1, "abc", 4, nullptr, ""},
                 {0, INT_MIN, "abc", 4, nullptr, ""},
                 {0, 100, "0123456789abcdef", 104, "0123456789abcdef", ""},
                 {0, 1, "", 5, "", ""},
                 {0, INT_MAX, "ab", INT_MAX, "ab", ""},
                 {4092, 9001, run, 4096 + 9001, longest.c_str(), ""},
                 {4093, 9001, run, 4093, nullptr, "fails to get string"},
                 {0, 100, "abc", 0, nullptr, no_memory}};
    for (const auto &[before, length, rest, after, kept, failure] : cases) {
        const std::string content = std::string(static_cast<size_t>(before), '?') + number(length) + rest;
        const std::string body = "offset to large, offset=" + std::to_string(before + 4) +
                                 ", length=" + std::to_string(length) +
                                 ", max_length=" + std::to_string(content.size());
        char untouched[] = "untouched";
        char *got = untouched;
        int offset = before;
        const allocation_failure failing(failure == no_memory ? 1 : 0);
        EXPECT_EQ(read(__get_string, content, &offset, &got), failure.empty());
        if (length <= static_cast<int>(rest.size()))
            EXPECT_TRACE();
        else if (kept)
            EXPECT_TRACE(critical(get, body), warning(get, "truncated data: " + std::string(kept)));
        else
            EXPECT_TRACE(critical(get, body), critical(get, failure));
        EXPECT_EQ(offset, after);
        EXPECT_STREQ(got, kept ? kept : untouched);
        g_free(got == untouched ? nullptr : got);
    }
    for (const std::string content : {"0123456789", ""}) // no room for the length itself
        for (const int start : {7, 104, INT_MAX - 4, INT_MAX, -1, INT_MIN}) {
            char *got = nullptr;
            int offset = start;
            EXPECT_FALSE(read(__get_string, content, &offset, &got));
            EXPECT_TRACE(critical(get, too_large(start, content.size())));
        }
}

TEST_F(Wire, EncodingAndSizesByteForByte)
{
    const auto size = static_cast<unsigned int>(bytes.size());
    const trace item_size = whole("__find_length_of_content_info");
    EXPECT_WHOLE(size, join({item_size, item_size}), __find_length_of_share_content_info_list, one);
    EXPECT_EQ(one->content_info_list_length, 2u);
    one->content_info_list_length = 77;
    std::string encoded(size + 1, '#');
    const trace item_written = whole("__set_content_info");
    EXPECT_WHOLE(ZEL_ERR_NONE, join({item_written, item_written}), __set_share_content_info_list, encoded.data(),
                 &offset, one);
    EXPECT_EQ(encoded, bytes + "#");
    EXPECT_EQ(offset, static_cast<int>(size));

    // A null element is counted and not written.
    one->content_info_list = g_list_insert(one->content_info_list, nullptr, 1);
    EXPECT_EQ(__find_length_of_share_content_info_list(one), size);
    EXPECT_EQ(__set_share_content_info_list(encoded.data(), &(offset = 0), one), ZEL_ERR_NONE);
    EXPECT_EQ(offset, static_cast<int>(size));
    EXPECT_EQ(one->content_info_list_length, 3u);
    for (const auto &[count, dumped] : {std::pair(2U, 1), std::pair(3U, 2), std::pair(4U, 2)}) {
        one->content_info_list_length = count;
        take_trace();
        __print_share_content_info_list(one);
        EXPECT_EQ(count_lines(take_trace(), "INFO", "big_thumbnail [(null)]") + 1, dumped);
    }

    share empty{};
    empty.content_info_list_length = 3; // without a list the stored count goes out, and no items
    EXPECT_EQ(__find_length_of_share_content_info_list(&empty), 32u);
    EXPECT_EQ(__set_share_content_info_list(encoded.data(), &(offset = 0), &empty), ZEL_ERR_NONE);
    EXPECT_EQ(encoded.substr(0, 33), std::string(28, '\0') + number(3) + bytes[32]);
}

TEST_F(Wire, DecodingGivesBackWhatWasEncodedAndDumpsIt)
{
    EXPECT_EQ(decode(bytes + "more", &offset), bytes);
    EXPECT_EQ(static_cast<size_t>(offset), bytes.size());
    take_trace();
    share *decoded = nullptr;
    EXPECT_TRUE(read(__get_share_content_info_list, bytes, &(offset = 0), &decoded));
    const std::string fields[] = {"original",     "thumbnail",      "mid_thumbnail",  "big_thumbnail",      "name",
                                  "content_type", "contents_token", "download_count", "max_download_count", "size",
                                  "content_id"};
    const char *const values[] = {"original",  "(null)",     "mid",        "big",        "name",      "image",
                                  "its token", "4000000001", "4000000002", "4000000003", "4000000004"};
    const std::string dump = "__print_share_content_info_list";
    trace items;
    for (size_t i = 0; i < 2 * std::size(fields); ++i) {
        const size_t field = i % std::size(fields);
        const std::string value = i < std::size(fields) ? values[field] : field < 7 ? "(null)" : "0";
        items = join({items, info(dump, fields[field] + " [" + value + "]")});
    }
    EXPECT_TRACE(
        whole("__get_share_content_info_list",
              {whole(dump, {info(dump, "contents_token [token]"), info(dump, "description [description]"),
                            plain(dump, "type [type]"), plain(dump, "from_msisdn [from]"), plain(dump, "to_list [to]"),
                            plain(dump, "expired_time [9833440827789222417]"), info(dump, "push_status [0]"),
                            info(dump, "content_info_list_length [2]"), items})}));
    _common_free_share_content_info(decoded);
}

// What lying numbers do at every place, the fuzz target looks for.
TEST_F(Wire, ShortBuffersAndALyingCountAreRefused)
{
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(decode(bytes.substr(0, length), &offset), "") << length;
    for (const size_t fixed : {20U, 28U}) { // the numbers of a share are refused in its name
        take_trace();
        EXPECT_EQ(decode(std::string(fixed + 3, '\0'), &offset), "");
        const std::string list = "__get_share_content_info_list";
        EXPECT_TRACE(begin(list), critical(list, too_large(static_cast<int>(fixed), fixed + 3)),
                     whole("_common_free_share_content_info"));
    }
    const allocation_failure watch(0);
    EXPECT_EQ(decode(std::string(28, '\0') + number(~0U) + std::string(440, '\0'), &offset), "");
    EXPECT_LE(allocations.count, 1 + 10 + 1) << "the items end with the buffer";
    EXPECT_LE(allocations.largest, sizeof(share));
}

TEST_F(Wire, DecodingSurvivesEveryFailedAllocation)
{
    const int allocated = 1 + 5 + (1 + 6) + 1; // records and present strings, one each
    for (int nth = 1; nth <= allocated + 1; ++nth) {
        take_trace();
        const allocation_failure failure(nth);
        EXPECT_EQ(decode(bytes, &(offset = 0)).empty(), nth <= allocated) << nth;
        const trace lines = take_trace();
        EXPECT_EQ(count_lines(lines, "CRITICAL", "Memory allcation failure") +
                      count_lines(lines, "CRITICAL", "Fail: Memory Allocation Failure"),
                  nth <= allocated);
    }
}
