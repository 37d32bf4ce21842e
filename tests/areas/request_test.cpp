// Requests, and the encoding of a share.
#include "interpose.h"
#include "trace.h"
#include "zel_common/holders.h"
#include "zel_common_request/dumps.h"
#include "zel_common_request/request.h"
#include "zel_common_request/share_encoding.h"

#include <climits>
#include <memory>
#include <utility>

using namespace zel_test;

namespace
{

using share = zel_trans_share_content_info;
using request = zel_request;
using share_holder = std::unique_ptr<share, releaser<_common_free_share_content_info>>;

constexpr char *request::*strings[] = {&request::description,    &request::local_path,   &request::url,
                                       &request::contents_token, &request::folder_token, &request::group_id,
                                       &request::list_next,      &request::list_more};
constexpr GList *request::*lists[] = {&request::receiver_list, &request::url_list, &request::file_list,
                                      &request::server_file_list};

template <typename Value> std::string number(Value value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string text(const std::string &value)
{
    return number(static_cast<int>(value.size())) + value;
}

/// What is written at a place that is not aligned; nothing may be changed beyond it.
template <typename Value> std::string written(zel_err_e (*writer)(void *, int *, Value), Value value)
{
    std::string buffer(1000, '#');
    int end = 1;
    EXPECT_EQ(writer(buffer.data(), &end, value), ZEL_ERR_NONE);
    EXPECT_EQ(buffer.find_first_not_of('#', static_cast<size_t>(end)), std::string::npos);
    return buffer.substr(1, static_cast<size_t>(end - 1));
}

/// Reads from exactly as many bytes as the content has, so that the address check sees every step beyond. True for
/// ZEL_ERR_NONE; otherwise the result must be ZEL_ERR_MEMORY and the outputs untouched.
template <typename Output>
bool read(zel_err_e (*reader)(const void *, int, int *, Output *), const std::string &content, int *offset, Output *out)
{
    const auto bytes = std::make_unique<char[]>(content.size());
    content.copy(bytes.get(), content.size());
    const std::pair before(*offset, *out);
    const zel_err_e result = reader(bytes.get(), static_cast<int>(content.size()), offset, out);
    EXPECT_TRUE(result == ZEL_ERR_NONE || (result == ZEL_ERR_MEMORY && before == std::pair(*offset, *out)));
    return result == ZEL_ERR_NONE;
}

/// A share of two items, the second one empty. Each text is its member's name.
const std::string bytes = text("contents_token") + text("description") + text("type") + text("from_msisdn") +
                          text("to_list") + number(0x8877665544332211ULL) + number(2U) + text("original") +
                          text("thumbnail") + text("mid_thumbnail") + text("big_thumbnail") + text("name") +
                          text("content_type") + text("contents_token") + number(4000000001U) + number(4000000002U) +
                          number(4000000003U) + number(4000000004U) + std::string(44, '\0');

/// A share as it is written, which must be as long as its computed length.
std::string encode(share *source)
{
    const std::string encoded = written(__set_share_content_info_list, source);
    EXPECT_EQ(__find_length_of_share_content_info_list(source), encoded.size());
    return encoded;
}

/// A share as it is read, which is written as the same bytes; NULL when it is refused.
share_holder decode(const std::string &content)
{
    share *decoded = nullptr;
    int offset = 0;
    if (read(__get_share_content_info_list, content, &offset, &decoded)) {
        EXPECT_EQ(encode(decoded), content.substr(0, static_cast<size_t>(offset)));
    }
    return share_holder(decoded);
}

} // namespace

TEST(Request, a_copy_is_independent_but_for_three_members)
{
    auto *source = g_new0(request, 1);
    int nth = 0;
    for (const auto string : strings)
        source->*string = g_strdup_printf("text %d", ++nth);
    for (const auto list : lists)
        source->*list = g_list_append(nullptr, g_strdup_printf("text %d", ++nth));
    source->req_id = 4000000001U;
    source->caller = new_handle();
    auto *copy = g_new0(request, 1);
    copy->description = reinterpret_cast<char *>(1); // overwritten, not released
    EXPECT_EQ(_common_copy_zel_request_members(source, copy), ZEL_ERR_NONE);
    // The source gives up what both refer to, and is released.
    source->server_file_list = nullptr;
    source->list_next = source->list_more = nullptr;
    _common_free_zel_request(source);

    nth = 0;
    for (const auto string : strings)
        EXPECT_EQ(copy->*string, printed("text %d", ++nth));
    for (const auto list : lists)
        EXPECT_EQ(static_cast<const char *>((copy->*list)->data), printed("text %d", ++nth));
    EXPECT_EQ(copy->req_id, 4000000001U);
    platform.destroy_result = -7;
    _common_free_zel_request_members(copy); // resets the strings only
    for (const auto string : strings)
        EXPECT_EQ(copy->*string, nullptr);
    EXPECT_TRUE(copy->file_list && copy->caller);
    g_free(copy);
    EXPECT_TRUE(platform.handles.empty()) << "the copy has a handle of its own";
    expect_lines(R"(
_common_copy_zel_request_members: Debug: app_control_clone result : [0]
_common_free_zel_request_members: Debug: g_list_free_full
    Debug: destroy app control
    Debug: app_control_destroy ret[0]
    Debug: g_list_free_full
    Debug: destroy app control
    Debug: app_control_destroy ret[-7]
)");
}

TEST(Request, a_copied_list_ends_before_null_and_a_handle_that_cannot_be_cloned_is_null)
{
    request source{};
    for (const char *text : {"first", "second", static_cast<const char *>(nullptr), "fourth"})
        source.receiver_list = g_list_append(source.receiver_list, g_strdup(text));
    for (const app_control_h caller : {app_control_h(), new_handle()}) {
        request copy{};
        source.caller = platform.failed_clone = caller;
        platform.clone_result = -12;
        EXPECT_EQ(_common_copy_zel_request_members(&source, &copy), ZEL_ERR_NONE);
        const std::string cloned = "_common_copy_zel_request_members: Debug: app_control_clone result : [-12]\n";
        expect_lines("_common_glist_dup: Critical: NULL string (End)\n" + (caller ? cloned : ""));
        EXPECT_EQ(g_list_length(copy.receiver_list), 2u);
        EXPECT_STREQ(static_cast<const char *>(copy.receiver_list->next->data), "second");
        EXPECT_TRUE(!copy.url && !copy.caller);
        _common_free_zel_request_members(&copy); // the platform checks that no handle is destroyed
        take_trace();
    }
    _common_free_zel_request_members(&source);
}

TEST(Request, is_logged_in_the_callers_name)
{
    char token[] = "token", folder[] = "folder", file[] = "file", other[] = "other";
    request source{};
    source.cmd = ZEL_CMD_RECALL_UPLOAD;
    source.req_id = 4000000001U;
    source.receiver_count = 2;
    source.url_count = 3;
    source.file_count = 4;
    source.contents_token = token;
    source.content_token_expired_time = 1ULL << 40;
    source.folder_token = folder;
    source.folder_token_expired_time = ~0ULL;
    source.thumbnail_type = QUILLO_EVENT_THUMBNAIL_480;
    source.file_list = g_list_append(g_list_append(nullptr, file), other);
    __print_zel_request(&source, "send_it", 42);
    expect_lines(R"(
__print_zel_request: Info: from send_it(42) > cmd [26]
    Info: from send_it(42) > req_id [-294967295]
    Info: from send_it(42) > receiver_count [2]
    Info: from send_it(42) > url_count [3]
    Info: from send_it(42) > file_count [4]
    Plain: from send_it(42) > contents_token [token]
    Info: from send_it(42) > content_token_expired_time [1099511627776]
    Plain: from send_it(42) > folder_token [folder]
    Info: from send_it(42) > folder_token_expired_time [-1]
    Plain: from send_it(42) > group_id [(null)]
    Plain: from send_it(42) > thumbnail_type [2]
    Plain: from send_it(42) > g_list_length(file_list) [2]
    Plain: from send_it(42) > file [file]
    Plain: from send_it(42) > file [other]
)");
    g_list_free(source.file_list);
}

TEST(Request, null_arguments_are_rejected)
{
    expect_null_is_rejected(2, "Invalid parameters", ZEL_ERR_INVALID_ARG, _common_copy_zel_request_members);
    expect_null_is_rejected(1, "[request] is NULL_PARAM (End)", 0, _common_free_zel_request,
                            _common_free_zel_request_members);
    expect_null_is_rejected(1, "[src] is NULL_PARAM (End)", 0, _common_glist_dup);
    _common_free_zel_param_members(nullptr);
    expect_lines("");
    auto *param = g_new0(comm_param_s, 1);
    param->handle = &param; // not its own
    _common_free_zel_param_members(param);
    take_trace();
    constexpr char MESSAGE[] = "Fail: Invalid Parameter";
    expect_null_is_rejected(2, MESSAGE, ZEL_ERR_INVALID_ARG, __set_unsigned_int, __set_int, __set_unsigned_long_long,
                            __set_string);
    expect_null_is_rejected(3, MESSAGE, ZEL_ERR_INVALID_ARG, __get_unsigned_int, __get_int, __get_unsigned_long_long,
                            __get_string, __get_content_info, __set_content_info, __set_share_content_info_list,
                            __get_share_content_info_list);
    expect_null_is_rejected(1, MESSAGE, 0, __print_share_content_info_list);
    expect_null_is_rejected(1, "Invalid Parameter", 0, __find_length_of_content_info,
                            __find_length_of_share_content_info_list);
}

TEST(Share, fields_are_native_and_unaligned)
{
    const auto round_trip = [](auto set, auto get, auto value) {
        EXPECT_EQ(written(set, value), number(value));
        int end = 1;
        decltype(value) result = 0;
        EXPECT_EQ(get(("#" + number(value)).data(), &end, &result), ZEL_ERR_NONE);
        EXPECT_EQ(std::pair(end, result), std::pair(1 + static_cast<int>(sizeof value), value));
    };
    round_trip(__set_unsigned_int, __get_unsigned_int, 0xfffefdfcU);
    round_trip(__set_int, __get_int, -2);
    round_trip(__set_unsigned_long_long, __get_unsigned_long_long, 0x8877665544332211ULL);
    for (const char *string : {"abc", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(written(__set_string, string), text(string ? string : ""));
    expect_lines("");
}

TEST(Share, a_string_is_cut_at_the_end_of_its_buffer)
{
    constexpr char LEFT_ALONE[] = "left alone";
    const auto expect_read = [&](int start, int length, const std::string &rest, int end, const std::string &expected) {
        const std::string content = std::string(static_cast<size_t>(start), '?') + number(length) + rest;
        char given[] = "left alone", *result = given;
        int offset = start;
        EXPECT_TRUE(read(__get_string, content, &offset, &result));
        EXPECT_EQ(offset, end);
        EXPECT_EQ(result, expected);
        g_free(result == given ? nullptr : result);
        const bool is_cut = length > std::ssize(rest);
        expect_lines(is_cut ? printed("__get_string: Critical: offset to large, offset=%d, length=%d, max_length=%zu\n"
                                      "    Warning: truncated data: %s\n",
                                      start + 4, length, content.size(), expected.c_str())
                            : "");
    };
    const std::string run(9000, 'z'), zero("a\0c", 3);
    expect_read(2, 3, "abc", 9, "abc");
    expect_read(0, 3, zero, 7, "a");
    expect_read(0, INT_MIN, "abc", 4, LEFT_ALONE);
    expect_read(6000, 9000, run, 15004, run);
    expect_read(0, 1, "", 5, "");
    expect_read(0, INT_MAX, "ab", INT_MAX, "ab");
    expect_read(4092, 9001, run, 13097, run.substr(0, 4096));
}

TEST(Share, a_string_is_refused_without_memory_or_too_far_inside)
{
    const auto expect_refused = [](const std::string &content, int start) {
        char *result = nullptr;
        EXPECT_FALSE(read(__get_string, content, &start, &result));
    };
    for (const std::string &content : {text("abc"), number(100) + "abc"}) {
        const fault failure({LIBRARY_MEMORY}, 1);
        expect_refused(content, 0);
    }
    expect_refused(std::string(4093, '?') + number(9001) + std::string(9000, 'z'), 4093);
    expect_lines(R"(
__get_string: Critical: Memory allcation failure
    Critical: offset to large, offset=4, length=100, max_length=7
    Critical: Memory allcation failure
    Critical: offset to large, offset=4097, length=9001, max_length=13097
    Critical: fails to get string
)");
    for (const int start : {7, INT_MAX, -1, INT_MIN}) { // no room for the length itself
        expect_refused("0123456789", start);
        expect_lines(printed("__get_string: Critical: offset to large, offset=%d, max_length=10\n", start));
    }
}

TEST(Share, is_written_and_sized_byte_for_byte)
{
    const auto one = decode(bytes);
    take_trace();
    one->push_status = 5; // is not written
    one->content_info_list_length = 77;
    EXPECT_EQ(encode(one.get()), bytes);
    one->content_info_list_length = 77;
    EXPECT_EQ(__find_length_of_share_content_info_list(one.get()), bytes.size());
    EXPECT_EQ(one->content_info_list_length, 2U);
    expect_lines("");
    // A null element is counted and not written.
    one->content_info_list = g_list_insert(one->content_info_list, nullptr, 1);
    EXPECT_EQ(encode(one.get()).size(), bytes.size());
    EXPECT_EQ(one->content_info_list_length, 3U);
    expect_lines(R"(
__set_content_info: Critical: Fail: Invalid Parameter
__find_length_of_content_info: Critical: Invalid Parameter
)");
    share empty{};
    empty.content_info_list_length = 3; // without a list the stored count is written, and no items
    EXPECT_EQ(encode(&empty), std::string(28, '\0') + number(3));
}

TEST(Share, is_logged_with_as_many_items_as_it_counts)
{
    const auto one = decode(bytes);
    one->push_status = 5;
    one->content_info_list_length = 1;
    take_trace();
    __print_share_content_info_list(one.get());
    expect_lines(R"(
__print_share_content_info_list: Info: contents_token [contents_token]
    Info: description [description]
    Plain: type [type]
    Plain: from_msisdn [from_msisdn]
    Plain: to_list [to_list]
    Plain: expired_time [9833440827789222417]
    Info: push_status [5]
    Info: content_info_list_length [1]
    Info: original [original]
    Info: thumbnail [thumbnail]
    Info: mid_thumbnail [mid_thumbnail]
    Info: big_thumbnail [big_thumbnail]
    Info: name [name]
    Info: content_type [content_type]
    Info: contents_token [contents_token]
    Info: download_count [4000000001]
    Info: max_download_count [4000000002]
    Info: size [4000000003]
    Info: content_id [4000000004]
)");
    one->content_info_list = g_list_insert(one->content_info_list, nullptr, 1);
    one->content_info_list_length = 4; // of the three elements one is NULL
    __print_share_content_info_list(one.get());
    EXPECT_EQ(count(take_trace(), "content_id ["), 2);
}

// The fuzz target looks for what lying numbers do at every place.
TEST(Share, is_refused_when_its_bytes_end_too_early)
{
    EXPECT_TRUE(decode(bytes + "more"));
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(decode(bytes.substr(0, length))) << length;
    take_trace();
    // Within a string, the expiry time, the number of items, and a number of an item.
    for (const size_t length : {62U, 74U, 75U, 195U})
        EXPECT_FALSE(decode(bytes.substr(0, length)));
    expect_lines(R"(
__get_string: Critical: offset to large, offset=60, length=7, max_length=62
    Warning: truncated data: to
__get_share_content_info_list: Critical: offset to large, offset=67, max_length=62
    Critical: offset to large, offset=67, max_length=74
    Critical: offset to large, offset=75, max_length=75
__get_content_info: Critical: offset to large, offset=192, max_length=195
)");
}

TEST(Share, a_count_that_lies_ends_with_the_buffer)
{
    const fault counter({LIBRARY_MEMORY}, 0);
    EXPECT_FALSE(decode(std::string(28, '\0') + number(~0U) + std::string(440, '\0')));
    expect_lines("__get_string: Critical: offset to large, offset=472, max_length=472\n");
    EXPECT_EQ(fault::now.count, 1 + 10 + 1) << "ten items fit";
}

TEST(Share, is_refused_when_an_allocation_fails)
{
    // The share and its five strings, an item and its seven, an item without strings.
    const std::string in_share = "__get_share_content_info_list: Critical: Fail: Memory Allocation Failure\n";
    const std::string in_item = "__get_content_info: Critical: Fail: Memory Allocation Failure\n";
    const std::string in_string = "__get_string: Critical: Memory allcation failure\n";
    for (int nth = 1; nth <= 15; ++nth) {
        const fault failure({LIBRARY_MEMORY}, nth);
        EXPECT_FALSE(decode(bytes)) << nth;
        expect_lines(nth == 1 ? in_share : nth == 7 || nth == 15 ? in_item : in_string);
    }
    const fault after_all({LIBRARY_MEMORY}, 16);
    EXPECT_TRUE(decode(bytes));
}
