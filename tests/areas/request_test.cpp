// Requests, and the encoding of a share.
#include "interpose.h"
#include "platform.h"
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

// What is written behind a place that is not aligned; nothing may be touched behind that.
template <typename Value> std::string written(zel_err_e (*writer)(void *, int *, Value), Value value)
{
    std::string buffer(1000, '#');
    int end = 1;
    EXPECT_EQ(writer(buffer.data(), &end, value), ZEL_ERR_NONE);
    EXPECT_EQ(buffer.find_first_not_of('#', static_cast<size_t>(end)), std::string::npos);
    return buffer.substr(1, static_cast<size_t>(end - 1));
}

// Reads from exactly as many bytes as the content has, so that the address check sees every step beyond. True for
// ZEL_ERR_NONE; otherwise the result must be ZEL_ERR_MEMORY and the outputs untouched.
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

// A share of two items, the second one empty. Each text is its member's name, as the lines show.
const std::string bytes = text("contents_token") + text("description") + text("type") + text("from_msisdn") +
                          text("to_list") + number(0x8877665544332211ULL) + number(2U) + text("original") +
                          text("thumbnail") + text("mid_thumbnail") + text("big_thumbnail") + text("name") +
                          text("content_type") + text("contents_token") + number(4000000001U) + number(4000000002U) +
                          number(4000000003U) + number(4000000004U) + std::string(44, '\0');

// A share as it is written, which must be as long as it is said to be.
std::string encode(share *source)
{
    const std::string encoded = written(__set_share_content_info_list, source);
    EXPECT_EQ(__find_length_of_share_content_info_list(source), encoded.size());
    return encoded;
}

// What is read must be what is written again; nothing when it is refused.
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

TEST(Request, a_copy_is_dumped_and_independent_but_for_three_members)
{
    auto *source = g_new0(request, 1);
    source->cmd = ZEL_CMD_RECALL_UPLOAD;
    source->req_id = 4000000001U;
    source->receiver_count = 2;
    source->url_count = 3;
    source->file_count = 4;
    source->thumbnail_type = QUILLO_EVENT_THUMBNAIL_480;
    source->content_token_expired_time = 1ULL << 40;
    source->folder_token_expired_time = ~0ULL;
    int nth = 0;
    for (const auto string : strings)
        source->*string = g_strdup_printf("text %d", ++nth);
    for (const auto list : lists)
        source->*list = g_list_append(nullptr, g_strdup_printf("element %d", ++nth));
    source->caller = new_handle();
    auto *copy = g_new0(request, 1);
    copy->description = reinterpret_cast<char *>(1); // overwritten, not released
    EXPECT_EQ(_common_copy_zel_request_members(source, copy), ZEL_ERR_NONE);
    // The source keeps nothing that both refer to, and goes.
    source->server_file_list = nullptr;
    source->list_next = source->list_more = nullptr;
    _common_free_zel_request(source);
    for (const auto string : strings)
        note(copy->*string);
    for (const auto list : lists)
        note(static_cast<const char *>((copy->*list)->data));
    g_clear_pointer(&copy->group_id, g_free);
    __print_zel_request(copy, "send_it", 42);

    platform.destroy_result = -7; // a release resets the strings only
    _common_free_zel_request_members(copy);
    for (const auto string : strings)
        EXPECT_EQ(copy->*string, nullptr);
    EXPECT_TRUE(copy->file_list && copy->caller);
    g_free(copy);
    EXPECT_TRUE(platform.handles.empty()) << "the copy's was another one";
    expect_lines(0xdeeb2107);
}

TEST(Request, a_copy_has_no_handle_that_cannot_be_cloned_and_lists_up_to_a_null)
{
    request source{};
    for (const char *text : {"first", "second", static_cast<const char *>(nullptr), "fourth"})
        source.receiver_list = g_list_append(source.receiver_list, g_strdup(text));
    for (const app_control_h caller : {app_control_h(), new_handle()}) {
        request copy{};
        source.caller = platform.clone_left_behind = caller;
        platform.clone_result = -12;
        EXPECT_EQ(_common_copy_zel_request_members(&source, &copy), ZEL_ERR_NONE);
        for (const GList *node = copy.receiver_list; node; node = node->next)
            note(static_cast<const char *>(node->data));
        EXPECT_TRUE(!copy.url && !copy.caller);
        _common_free_zel_request_members(&copy);
    }
    _common_free_zel_request_members(&source);
    expect_lines(0xcb571686);
}

TEST(Request, null_arguments_are_rejected)
{
    leave_out_each(2, _common_copy_zel_request_members, __set_unsigned_int, __set_int, __set_unsigned_long_long,
                   __set_string);
    leave_out_each(3, __get_unsigned_int, __get_int, __get_unsigned_long_long, __get_string, __get_content_info,
                   __set_content_info, __set_share_content_info_list, __get_share_content_info_list);
    leave_out_each(1, _common_free_zel_request, _common_free_zel_request_members, _common_glist_dup,
                   _common_free_zel_param_members, __print_share_content_info_list, __find_length_of_content_info,
                   __find_length_of_share_content_info_list);
    auto *param = g_new0(comm_param_s, 1);
    param->handle = &param; // not its own
    _common_free_zel_param_members(param);
    expect_lines(0xac6f5046);
}

TEST(Fields, are_native_and_unaligned)
{
    const auto round_trip = [](auto set, auto get, auto value) {
        EXPECT_EQ(written(set, value), number(value));
        int end = 1;
        decltype(value) got = 0;
        EXPECT_EQ(get(("#" + number(value)).data(), &end, &got), ZEL_ERR_NONE);
        EXPECT_EQ(std::pair(end, got), std::pair(1 + static_cast<int>(sizeof value), value));
    };
    round_trip(__set_unsigned_int, __get_unsigned_int, 0xfffefdfcU);
    round_trip(__set_int, __get_int, -2);
    round_trip(__set_unsigned_long_long, __get_unsigned_long_long, 0x8877665544332211ULL);
    for (const char *string : {"abc", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(written(__set_string, string), text(string ? string : ""));
    EXPECT_EQ(take_trace(), "");
}

TEST(Fields, strings_are_read_within_their_bounds)
{
    const std::string run(9000, 'z'), zero("a\0c", 3);
    // So many bytes, the length, and the string, whose end may be missing.
    const std::tuple<int, int, std::string> cases[] = {
        {2, 3, "abc"}, {0, 3, zero},       {0, 0, "abc"},     {0, INT_MIN, "abc"}, {0, 100, "abc"},
        {0, 1, ""},    {0, INT_MAX, "ab"}, {6000, 9000, run}, {4092, 9001, run},   {4093, 9001, run}};
    for (const auto &[before, length, rest] : cases)
        for (const int failing : {0, 1}) { // the allocation, if there is one
            char untouched[] = "untouched", *got = untouched;
            int offset = before;
            const fault failure({LIBRARY_MEMORY}, failing);
            const bool done = read(__get_string, std::string(static_cast<size_t>(before), '?') + number(length) + rest,
                                   &offset, &got);
            note(testing::PrintToString(std::tuple(before, length, done, offset, std::string(got))));
            g_free(got == untouched ? nullptr : got);
        }
    for (const std::string content : {"0123456789", ""}) // no room for the length itself
        for (const int start : {7, 104, INT_MAX - 4, INT_MAX, -1, INT_MIN}) {
            char *got = nullptr;
            int offset = start;
            EXPECT_FALSE(read(__get_string, content, &offset, &got));
        }
    expect_lines(0x22bd9bc5);
}

TEST(Wire, is_written_and_sized_byte_for_byte)
{
    const auto one = decode(bytes);
    one->push_status = 5; // does not travel
    one->content_info_list_length = 77;
    EXPECT_EQ(encode(one.get()), bytes);
    // A null element is counted and not written.
    one->content_info_list = g_list_insert(one->content_info_list, nullptr, 1);
    EXPECT_EQ(encode(one.get()).size(), bytes.size());
    for (const unsigned int count : {2U, 3U, 4U}) {
        one->content_info_list_length = count;
        __print_share_content_info_list(one.get());
    }
    EXPECT_EQ(__find_length_of_share_content_info_list(one.get()), bytes.size());
    EXPECT_EQ(one->content_info_list_length, 3U);
    share empty{};
    empty.content_info_list_length = 3; // without a list the stored count goes out, and no items
    EXPECT_EQ(encode(&empty), std::string(28, '\0') + number(3));
    expect_lines(0xb8d0ee57);
}

// What lying numbers do at every place, the fuzz target looks for.
TEST(Wire, is_read_whole_and_refused_with_short_buffers_a_lying_count_and_failed_allocations)
{
    EXPECT_TRUE(decode(bytes + "more"));
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(decode(bytes.substr(0, length))) << length;
    {
        const fault watch({LIBRARY_MEMORY}, 0);
        EXPECT_FALSE(decode(std::string(28, '\0') + number(~0U) + std::string(440, '\0')));
        EXPECT_LE(fault::now.met, 1 + 10 + 1) << "the items end with the buffer";
        EXPECT_LE(fault::now.largest, sizeof(share));
    }
    const int allocated = 1 + 5 + (1 + 7) + 1; // records and present strings, one each
    for (int nth = 1; nth <= allocated + 1; ++nth) {
        const fault failure({LIBRARY_MEMORY}, nth);
        EXPECT_EQ(decode(bytes) == nullptr, nth <= allocated) << nth;
    }
    expect_lines(0x9070114c);
}
