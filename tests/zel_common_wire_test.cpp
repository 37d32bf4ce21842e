#include "interpose.h"
#include "recording_platform.h"
#include "zel_common_request_internal.h"

#include <climits>
#include <cstring>
#include <memory>
#include <string>

using namespace zel_test;

namespace
{

using item = zel_trans_content_info;
using share = zel_trans_share_content_info;
using share_holder = std::unique_ptr<share, void (*)(void *)>;

// The fields in the order in which they travel.
constexpr char *item::*item_strings[] = {&item::original,      &item::thumbnail, &item::mid_thumbnail,
                                         &item::big_thumbnail, &item::name,      &item::content_type,
                                         &item::contents_token};
constexpr unsigned int item::*item_numbers[] = {&item::download_count, &item::max_download_count, &item::size,
                                                &item::content_id};
constexpr char *share::*share_strings[] = {&share::contents_token, &share::description, &share::type,
                                           &share::from_msisdn, &share::to_list};

template <typename Value> std::string number(Value value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string text(const std::string &value)
{
    return number(static_cast<unsigned int>(value.size())) + value;
}

// Exactly as many bytes as the content, so that the address check sees every step beyond.
std::unique_ptr<char[]> exact(const std::string &content)
{
    auto bytes = std::make_unique<char[]>(content.size());
    std::memcpy(bytes.get(), content.data(), content.size());
    return bytes;
}

share_holder make_share(unsigned int items)
{
    share_holder one(g_new0(share, 1), _common_free_share_content_info);
    one->content_info_list_length = items;
    unsigned int n = 0;
    for (const auto string : share_strings)
        one.get()->*string = g_strdup_printf("text %u", n++);
    one->expired_time = 0x8877665544332211ULL;
    one->push_status = QUILLO_PUSH_STATUS_SHARE_RECALLED; // does not travel
    while (items-- > 0) {
        auto *an_item = g_new0(item, 1);
        for (const auto string : item_strings)
            an_item->*string = g_strdup_printf("text %u", n++);
        an_item->thumbnail[0] = '\0';                    // empty reads back as absent
        g_clear_pointer(&an_item->content_type, g_free); // so does absent
        for (const auto value : item_numbers)
            an_item->*value = 4000000000U + n++;
        one->content_info_list = g_list_append(one->content_info_list, an_item);
    }
    return one;
}

// The decoded share, or none, when the result must be ZEL_ERR_MEMORY and the outputs untouched.
share_holder decode(const std::string &content, int *offset)
{
    share *decoded = nullptr;
    const int before = *offset;
    const zel_err_e result =
        __get_share_content_info_list(exact(content).get(), static_cast<int>(content.size()), offset, &decoded);
    EXPECT_EQ(result, decoded ? ZEL_ERR_NONE : ZEL_ERR_MEMORY);
    EXPECT_TRUE(decoded || *offset == before);
    return {decoded, _common_free_share_content_info};
}

// The encoding of a share, put together by hand.
std::string bytes_of(const share *one)
{
    std::string bytes;
    for (const auto string : share_strings)
        bytes += text(one->*string);
    bytes += number(one->expired_time) + number(one->content_info_list_length);
    for (const GList *node = one->content_info_list; node; node = node->next) {
        const auto *an_item = static_cast<const item *>(node->data);
        for (const auto string : item_strings)
            bytes += text(an_item->*string ? an_item->*string : "");
        for (const auto value : item_numbers)
            bytes += number(an_item->*value);
    }
    return bytes;
}

std::string too_large(int offset, int max_length)
{
    return "offset to large, offset=" + std::to_string(offset) + ", max_length=" + std::to_string(max_length);
}

} // namespace

TEST(Wire, PrimitivesAreNativeAndUnaligned)
{
    char buffer[64];
    int end = 1;
    EXPECT_EQ(__set_unsigned_int(buffer, &end, 0xfffefdfcU), ZEL_ERR_NONE);
    EXPECT_EQ(__set_int(buffer, &end, -2), ZEL_ERR_NONE);
    EXPECT_EQ(__set_unsigned_long_long(buffer, &end, 0x8877665544332211ULL), ZEL_ERR_NONE);
    for (const char *string : {"abc", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(__set_string(buffer, &end, string), ZEL_ERR_NONE);
    EXPECT_EQ(std::string(buffer + 1, static_cast<size_t>(end - 1)),
              number(0xfffefdfcU) + number(-2) + number(0x8877665544332211ULL) + text("abc") + text("") + text(""));

    unsigned int u32 = 0;
    int i32 = 0;
    unsigned long long u64 = 0;
    int offset = 1;
    EXPECT_EQ(__get_unsigned_int(buffer, &offset, &u32), ZEL_ERR_NONE);
    EXPECT_EQ(__get_int(buffer, &offset, &i32), ZEL_ERR_NONE);
    EXPECT_EQ(__get_unsigned_long_long(buffer, &offset, &u64), ZEL_ERR_NONE);
    EXPECT_EQ(u32, 0xfffefdfcU);
    EXPECT_EQ(i32, -2);
    EXPECT_EQ(u64, 0x8877665544332211ULL);
    EXPECT_EQ(offset, 17);
    EXPECT_TRACE();
}

TEST(Wire, NullArgumentsAreRejected)
{
    char buffer[64] = {};
    int at = 5;
    unsigned int u32 = 0;
    int i32 = 0;
    unsigned long long u64 = 0;
    char *string = nullptr;
    item an_item{};
    item *item_out = nullptr;
    share a_share{};
    share *share_out = nullptr;
    const zel_err_e code = ZEL_ERR_INVALID_ARG;
    const char *body = "Fail: Invalid Parameter";
    EXPECT_NULLS_REFUSED(2, code, body, __set_unsigned_int, buffer, &at, 1);
    EXPECT_NULLS_REFUSED(2, code, body, __set_int, buffer, &at, 1);
    EXPECT_NULLS_REFUSED(2, code, body, __set_unsigned_long_long, buffer, &at, 1);
    EXPECT_NULLS_REFUSED(2, code, body, __set_string, buffer, &at, "x");
    EXPECT_NULLS_REFUSED(3, code, body, __set_content_info, buffer, &at, &an_item);
    EXPECT_NULLS_REFUSED(3, code, body, __get_unsigned_int, buffer, &at, &u32);
    EXPECT_NULLS_REFUSED(3, code, body, __get_int, buffer, &at, &i32);
    EXPECT_NULLS_REFUSED(3, code, body, __get_unsigned_long_long, buffer, &at, &u64);
    EXPECT_NULLS_REJECTED(3, code, body, __set_share_content_info_list, buffer, &at, &a_share);
    EXPECT_NULLS_REFUSED(3, code, body, __get_string, buffer, 64, &at, &string);
    EXPECT_NULLS_REFUSED(3, code, body, __get_content_info, buffer, 64, &at, &item_out);
    EXPECT_NULLS_REJECTED(3, code, body, __get_share_content_info_list, buffer, 64, &at, &share_out);
    EXPECT_REJECTED(0, body, __print_share_content_info_list, nullptr);
    EXPECT_REJECTED(0u, "Invalid Parameter", __find_length_of_content_info, nullptr);
    EXPECT_REJECTED(0u, "Invalid Parameter", __find_length_of_share_content_info_list, nullptr);
    EXPECT_EQ(at, 5);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(sizeof buffer, '\0'));
}

TEST(Wire, StringsAreReadWithinTheirBounds)
{
    // No string: it is absent, and the output untouched.
    const auto expect = [](const std::string &content, int offset, zel_err_e result, int offset_after,
                           const char *string, const trace &lines) {
        SCOPED_TRACE(offset_after);
        char untouched[] = "untouched";
        char *got = untouched;
        EXPECT_EQ(__get_string(exact(content).get(), static_cast<int>(content.size()), &offset, &got), result);
        EXPECT_TRACE(lines);
        EXPECT_EQ(offset, offset_after);
        EXPECT_STREQ(got, string ? string : untouched);
        if (got != untouched)
            g_free(got);
    };
    const std::string run(9000, 'z');
    expect("??" + text("abc"), 2, ZEL_ERR_NONE, 9, "abc", {});
    expect(text(std::string("a\0c", 3)), 0, ZEL_ERR_NONE, 7, "a", {});
    expect(std::string(6000, '?') + text(run), 6000, ZEL_ERR_NONE, 15004, run.c_str(), {});
    for (const unsigned int length : {0U, ~0U, 0x80000000U})
        expect(number(length) + "abc", 0, ZEL_ERR_NONE, 4, nullptr, {});
    const std::string get = "__get_string";
    for (const int offset : {7, 104, INT_MAX - 4, INT_MAX, -1, INT_MIN})
        expect("0123456789", offset, ZEL_ERR_MEMORY, offset, nullptr, critical(get, too_large(offset, 10)));
    expect("", 0, ZEL_ERR_MEMORY, 0, nullptr, critical(get, too_large(0, 0)));

    // What runs past the end is cut off, and whatever follows it lies outside.
    const auto expect_past_the_end = [&](int before, int length, const std::string &rest, const char *kept,
                                         int offset_after, const trace &outcome) {
        const std::string content = std::string(static_cast<size_t>(before), '?') + number(length) + rest;
        const std::string body = "offset to large, offset=" + std::to_string(before + 4) +
                                 ", length=" + std::to_string(length) +
                                 ", max_length=" + std::to_string(content.size());
        expect(content, before, kept ? ZEL_ERR_NONE : ZEL_ERR_MEMORY, offset_after, kept,
               join({critical(get, body), kept ? warning(get, "truncated data: " + std::string(kept)) : outcome}));
    };
    expect_past_the_end(0, 100, "0123456789abcdef", "0123456789abcdef", 104, {});
    expect_past_the_end(0, 1, "", "", 5, {});
    expect_past_the_end(0, INT_MAX, "ab", "ab", INT_MAX, {});
    expect_past_the_end(4092, 9001, run, run.substr(0, 4096).c_str(), 4096 + 9001, {});
    expect_past_the_end(4093, 9001, run, nullptr, 4093, critical(get, "fails to get string"));
    const allocation_failure failure(1);
    expect_past_the_end(0, 100, "abc", nullptr, 0, critical(get, "Memory allcation failure"));
}

TEST(Wire, EncodingAndSizesByteForByte)
{
    const share_holder one = make_share(2);
    one->content_info_list_length = 77; // either operation brings it up to date
    const unsigned int size = __find_length_of_share_content_info_list(one.get());
    const trace item_size = whole("__find_length_of_content_info");
    EXPECT_TRACE(whole("__find_length_of_share_content_info_list", {item_size, item_size}));
    EXPECT_EQ(one->content_info_list_length, 2u);
    one->content_info_list_length = 77;
    std::string bytes(size + 1, '#');
    int offset = 0;
    EXPECT_EQ(__set_share_content_info_list(bytes.data(), &offset, one.get()), ZEL_ERR_NONE);
    EXPECT_TRACE(whole("__set_share_content_info_list"));
    EXPECT_EQ(bytes, bytes_of(one.get()) + "#");
    EXPECT_EQ(static_cast<unsigned int>(offset), size);
    // A null element is counted and not written.
    one->content_info_list = g_list_insert(one->content_info_list, nullptr, 1);
    EXPECT_EQ(__find_length_of_share_content_info_list(one.get()), size);
    EXPECT_EQ(__set_share_content_info_list(bytes.data(), &(offset = 0), one.get()), ZEL_ERR_NONE);
    EXPECT_EQ(static_cast<unsigned int>(offset), size);
    EXPECT_EQ(one->content_info_list_length, 3u);
    take_trace();
    __print_share_content_info_list(one.get());
    EXPECT_EQ(count_lines(take_trace(), "INFO", "thumbnail []"), 2);

    const item empty_item{};
    share empty_share{};
    empty_share.content_info_list_length = 3; // without a list the stored count goes out, and no items
    EXPECT_EQ(__find_length_of_content_info(&empty_item), 44u);
    EXPECT_EQ(__find_length_of_share_content_info_list(&empty_share), 32u);
    bytes.assign(76, '#');
    EXPECT_EQ(__set_content_info(bytes.data(), &(offset = 0), &empty_item), ZEL_ERR_NONE);
    EXPECT_EQ(__set_share_content_info_list(bytes.data(), &offset, &empty_share), ZEL_ERR_NONE);
    EXPECT_EQ(bytes, std::string(44 + 28, '\0') + number(3));

    item *decoded = nullptr;
    EXPECT_EQ(__get_content_info(exact(bytes).get(), 44, &(offset = 0), &decoded), ZEL_ERR_NONE);
    EXPECT_EQ(offset, 44);
    g_free(decoded);
    EXPECT_EQ(__get_content_info(exact(bytes).get(), 43, &(offset = 0), &decoded), ZEL_ERR_MEMORY);
}

TEST(Wire, DecodingGivesBackWhatWasEncodedAndDumpsIt)
{
    const std::string bytes = bytes_of(make_share(3).get());
    int offset = 0;
    const share_holder decoded = decode(bytes + "more", &offset);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(static_cast<size_t>(offset), bytes.size());
    EXPECT_EQ(bytes_of(decoded.get()), bytes);
    const auto *first = static_cast<const item *>(decoded->content_info_list->data);
    EXPECT_EQ(first->thumbnail, nullptr) << "empty reads back as absent";

    take_trace();
    const share_holder one = decode(bytes_of(make_share(1).get()), &(offset = 0));
    const std::string dump = "__print_share_content_info_list";
    EXPECT_TRACE(whole("__get_share_content_info_list",
                       {whole(dump, {info(dump, "contents_token [text 0]"), info(dump, "description [text 1]"),
                                     plain(dump, "type [text 2]"), plain(dump, "from_msisdn [text 3]"),
                                     plain(dump, "to_list [text 4]"), plain(dump, "expired_time [9833440827789222417]"),
                                     info(dump, "push_status [0]"), info(dump, "content_info_list_length [1]"),
                                     info(dump, "original [text 5]"), info(dump, "thumbnail [(null)]"),
                                     info(dump, "mid_thumbnail [text 7]"), info(dump, "big_thumbnail [text 8]"),
                                     info(dump, "name [text 9]"), info(dump, "content_type [(null)]"),
                                     info(dump, "contents_token [text 11]"), info(dump, "download_count [4000000012]"),
                                     info(dump, "max_download_count [4000000013]"), info(dump, "size [4000000014]"),
                                     info(dump, "content_id [4000000015]")})}),
                 whole("_common_free_share_content_info"));
}

// Whatever the length, and whatever stands at whatever place: nothing beyond the buffer is read, nothing larger than it
// is allocated (but for the 4097 bytes of a truncated string), and what is accepted really lay inside.
TEST(Wire, ShortBuffersAndHostileNumbersAreSurvived)
{
    const std::string bytes = bytes_of(make_share(2).get());
    const std::string list = "__get_share_content_info_list";
    int offset = 0;
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(decode(bytes.substr(0, length), &offset), nullptr) << length;
    for (const int fixed : {20, 28}) { // the numbers of a share are refused in its name
        take_trace();
        EXPECT_EQ(decode(std::string(static_cast<size_t>(fixed) + 3, '\0'), &offset), nullptr);
        EXPECT_TRACE(begin(list), critical(list, too_large(fixed, fixed + 3)),
                     whole("_common_free_share_content_info"));
    }

    const allocation_failure watch(0);
    for (const unsigned int value :
         {0U, 1U, 300U, 5000U, INT_MAX - 200U, INT_MAX - 3U, 0x7fffffffU, 0x80000000U, ~0U}) {
        for (size_t place = 0; place + 4 <= bytes.size(); ++place) {
            std::string changed = bytes;
            changed.replace(place, 4, number(value));
            if (const share_holder decoded = decode(changed, &(offset = 0))) {
                EXPECT_LE(static_cast<size_t>(offset), changed.size());
                EXPECT_LE(__find_length_of_share_content_info_list(decoded.get()), static_cast<unsigned int>(offset));
            }
            take_trace();
        }
    }
    EXPECT_LE(allocations.largest, 4097u);
    const int count = allocations.count;
    EXPECT_EQ(decode(std::string(28, '\0') + number(~0U) + std::string(440, '\0'), &(offset = 0)), nullptr);
    EXPECT_LE(allocations.count - count, 1 + 10 + 1) << "the items end with the buffer, whatever their count";
}

TEST(Wire, DecodingSurvivesEveryFailedAllocation)
{
    const std::string bytes = bytes_of(make_share(2).get());
    int nth = 0;
    int offset = 0;
    for (bool failed = true; failed;) {
        take_trace();
        const allocation_failure failure(++nth);
        const share_holder decoded = decode(bytes, &offset);
        failed = allocations.count >= nth;
        EXPECT_EQ(decoded == nullptr, failed);
        const trace lines = take_trace();
        EXPECT_EQ(count_lines(lines, "CRITICAL", "Memory allcation failure") +
                      count_lines(lines, "CRITICAL", "Fail: Memory Allocation Failure"),
                  failed);
    }
    EXPECT_EQ(nth - 1, 1 + 5 + 2 * (1 + 5)) << "records and present strings, one allocation each";
}
