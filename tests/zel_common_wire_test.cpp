#include "interpose.h"
#include "recording_platform.h"
#include "zel_common_request_internal.h"

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace zel_test;

namespace
{

using item = zel_trans_content_info;
using share = zel_trans_share_content_info;
using share_holder = std::unique_ptr<share, void (*)(void *)>;

constexpr char *item::*item_strings[] = {&item::original,      &item::thumbnail, &item::mid_thumbnail,
                                         &item::big_thumbnail, &item::name,      &item::content_type,
                                         &item::contents_token};
constexpr unsigned int item::*item_numbers[] = {&item::download_count, &item::max_download_count, &item::size,
                                                &item::content_id};
constexpr char *share::*share_strings[] = {&share::contents_token, &share::description, &share::type,
                                           &share::from_msisdn, &share::to_list};

std::string number(unsigned int value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string long_number(unsigned long long value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string text(const std::string &value)
{
    return number(static_cast<unsigned int>(value.size())) + value;
}

// Exactly as many bytes as the content, so that the address check sees every step beyond.
struct exact_buffer {
    explicit exact_buffer(const std::string &content)
        : size(static_cast<int>(content.size())), bytes(std::make_unique<char[]>(content.size()))
    {
        std::memcpy(bytes.get(), content.data(), content.size());
    }
    int size;
    std::unique_ptr<char[]> bytes;
};

item *make_item(unsigned int seed)
{
    auto *one = g_new0(item, 1);
    for (const auto string : item_strings)
        one->*string = g_strdup_printf("item text %u", seed++);
    one->thumbnail[0] = '\0';                    // empty reads back as absent
    g_clear_pointer(&one->content_type, g_free); // so does absent
    for (const auto value : item_numbers)
        one->*value = 4000000000U + seed++;
    return one;
}

share_holder make_share(int items)
{
    share_holder one(g_new0(share, 1), _common_free_share_content_info);
    one->content_info_list_length = static_cast<unsigned int>(items);
    int n = 0;
    for (const auto string : share_strings)
        one.get()->*string = g_strdup_printf("share text %d", n++);
    one->expired_time = 0x8877665544332211ULL;
    one->push_status = QUILLO_PUSH_STATUS_SHARE_RECALLED;
    for (unsigned int i = 0; i < static_cast<unsigned int>(items); ++i)
        one->content_info_list = g_list_append(one->content_info_list, make_item(100 * i));
    return one;
}

std::string encode(share *one)
{
    std::string bytes(__find_length_of_share_content_info_list(one), '#');
    int offset = 0;
    EXPECT_EQ(__set_share_content_info_list(bytes.data(), &offset, one), ZEL_ERR_NONE);
    EXPECT_EQ(static_cast<size_t>(offset), bytes.size());
    take_trace();
    return bytes;
}

// The decoded share, or none, when the result must be ZEL_ERR_MEMORY and the outputs untouched.
share_holder decode(const std::string &content, int *consumed = nullptr)
{
    const exact_buffer buffer(content);
    share *const untouched = reinterpret_cast<share *>(8);
    share *decoded = untouched;
    int offset = 0;
    const zel_err_e result = __get_share_content_info_list(buffer.bytes.get(), buffer.size, &offset, &decoded);
    if (consumed)
        *consumed = offset;
    if (result == ZEL_ERR_NONE)
        return {decoded, _common_free_share_content_info};
    EXPECT_EQ(result, ZEL_ERR_MEMORY);
    EXPECT_EQ(decoded, untouched);
    EXPECT_FALSE(take_trace().text.ends_with(end("__get_share_content_info_list").text));
    return {nullptr, _common_free_share_content_info};
}

// The encoding of a share, put together by hand.
std::string bytes_of(const share *one)
{
    std::string bytes;
    for (const auto string : share_strings)
        bytes += text(one->*string);
    bytes += long_number(one->expired_time) + number(one->content_info_list_length);
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
    int offset = 1;
    EXPECT_EQ(__set_unsigned_int(buffer, &offset, 0xfffefdfcU), ZEL_ERR_NONE);
    EXPECT_EQ(__set_int(buffer, &offset, -2), ZEL_ERR_NONE);
    EXPECT_EQ(__set_unsigned_long_long(buffer, &offset, 0x8877665544332211ULL), ZEL_ERR_NONE);
    EXPECT_EQ(__set_string(buffer, &offset, "abc"), ZEL_ERR_NONE);
    EXPECT_EQ(__set_string(buffer, &offset, ""), ZEL_ERR_NONE);
    EXPECT_EQ(__set_string(buffer, &offset, nullptr), ZEL_ERR_NONE);
    EXPECT_EQ(std::string(buffer + 1, static_cast<size_t>(offset - 1)), number(0xfffefdfcU) + number(0xfffffffeU) +
                                                                            long_number(0x8877665544332211ULL) +
                                                                            text("abc") + text("") + text(""));

    unsigned int u32 = 0;
    int i32 = 0;
    unsigned long long u64 = 0;
    char *string = nullptr;
    const int length = offset;
    offset = 1;
    EXPECT_EQ(__get_unsigned_int(buffer, &offset, &u32), ZEL_ERR_NONE);
    EXPECT_EQ(__get_int(buffer, &offset, &i32), ZEL_ERR_NONE);
    EXPECT_EQ(__get_unsigned_long_long(buffer, &offset, &u64), ZEL_ERR_NONE);
    EXPECT_EQ(__get_string(buffer, length, &offset, &string), ZEL_ERR_NONE);
    EXPECT_EQ(u32, 0xfffefdfcU);
    EXPECT_EQ(i32, -2);
    EXPECT_EQ(u64, 0x8877665544332211ULL);
    EXPECT_STREQ(string, "abc");
    EXPECT_EQ(offset, length - 8);
    g_free(string);
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
        const exact_buffer buffer(content);
        char untouched[] = "untouched";
        char *got = untouched;
        EXPECT_EQ(__get_string(buffer.bytes.get(), buffer.size, &offset, &got), result);
        EXPECT_TRACE(lines);
        EXPECT_EQ(offset, offset_after);
        EXPECT_STREQ(got, string ? string : untouched);
        if (got != untouched)
            g_free(got);
    };
    const std::string long_run(9000, 'z');
    expect("??" + text("abc"), 2, ZEL_ERR_NONE, 9, "abc", {});
    expect(text(std::string("a\0c", 3)), 0, ZEL_ERR_NONE, 7, "a", {});
    expect(std::string(6000, '?') + text(long_run), 6000, ZEL_ERR_NONE, 15004, long_run.c_str(), {});
    for (const unsigned int length : {0U, ~0U, 0x80000000U})
        expect(number(length) + "abc", 0, ZEL_ERR_NONE, 4, nullptr, {});

    const std::string get = "__get_string";
    for (const int offset : {8, 10, 104, INT_MAX - 4, INT_MAX, -1, -4, INT_MIN})
        expect("0123456789", offset, ZEL_ERR_MEMORY, offset, nullptr, critical(get, too_large(offset, 10)));
    expect("", 0, ZEL_ERR_MEMORY, 0, nullptr, critical(get, too_large(0, 0)));

    // What runs past the end is cut off, and whatever follows it lies outside.
    const auto expect_truncated = [&](int before, unsigned int length, const std::string &rest, const std::string &kept,
                                      int offset_after) {
        const std::string content = std::string(static_cast<size_t>(before), '?') + number(length) + rest;
        const std::string body = "offset to large, offset=" + std::to_string(before + 4) +
                                 ", length=" + std::to_string(length) +
                                 ", max_length=" + std::to_string(content.size());
        expect(content, before, ZEL_ERR_NONE, offset_after, kept.c_str(),
               join({critical(get, body), warning(get, "truncated data: " + kept)}));
    };
    expect_truncated(0, 100, "0123456789abcdef", "0123456789abcdef", 104);
    expect_truncated(0, 4, "abc", "abc", 8);
    expect_truncated(0, 1, "", "", 5);
    expect_truncated(0, INT_MAX, "ab", "ab", INT_MAX);
    expect_truncated(4092, 9001, long_run, std::string(4096, 'z'), 4096 + 9001);
    expect(std::string(4093, '?') + number(9001) + long_run, 4093, ZEL_ERR_MEMORY, 4093, nullptr,
           join({critical(get, "offset to large, offset=4097, length=9001, max_length=13097"),
                 critical(get, "fails to get string")}));
    const allocation_failure failure(1);
    expect(number(100) + "abc", 0, ZEL_ERR_MEMORY, 0, nullptr,
           join({critical(get, "offset to large, offset=4, length=100, max_length=7"),
                 critical(get, "Memory allcation failure")}));
}

TEST(Wire, EncodingOfAShareByteForByte)
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
    EXPECT_EQ(one->content_info_list_length, 2u);
    EXPECT_EQ(bytes, bytes_of(one.get()) + "#");
    EXPECT_EQ(static_cast<unsigned int>(offset), size);
}

TEST(Wire, SizesOfEmptyRecords)
{
    const item empty_item{};
    std::string bytes(44, '#');
    int offset = 0;
    EXPECT_EQ(__find_length_of_content_info(&empty_item), 44u);
    EXPECT_EQ(__set_content_info(bytes.data(), &offset, &empty_item), ZEL_ERR_NONE);
    EXPECT_EQ(offset, 44);
    EXPECT_EQ(bytes, std::string(44, '\0'));

    share empty_share{};
    EXPECT_EQ(encode(&empty_share), std::string(32, '\0'));
    empty_share.content_info_list_length = 3; // without a list the stored count goes out, and no items
    EXPECT_EQ(encode(&empty_share), std::string(28, '\0') + number(3));

    // A null element is counted and not written.
    const share_holder gaps = make_share(2);
    const size_t without = encode(gaps.get()).size();
    gaps->content_info_list = g_list_insert(gaps->content_info_list, nullptr, 1);
    EXPECT_EQ(encode(gaps.get()).size(), without);
    EXPECT_EQ(gaps->content_info_list_length, 3u);
}

TEST(Wire, DecodingGivesBackWhatWasEncoded)
{
    const share_holder many = make_share(3);
    const std::string bytes = bytes_of(many.get());
    int consumed = 0;
    const share_holder decoded = decode(bytes + "more", &consumed);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(static_cast<size_t>(consumed), bytes.size());
    EXPECT_EQ(bytes_of(decoded.get()), bytes);
    EXPECT_EQ(decoded->push_status, 0u);
    const auto *first = static_cast<const item *>(decoded->content_info_list->data);
    EXPECT_EQ(first->thumbnail, nullptr) << "empty reads back as absent";
    EXPECT_EQ(first->content_type, nullptr);

    const share_holder one = make_share(1);
    take_trace();
    const share_holder dumped = decode(bytes_of(one.get()));
    const std::string dump = "__print_share_content_info_list";
    EXPECT_TRACE(
        whole("__get_share_content_info_list",
              {whole(dump, {info(dump, "contents_token [share text 0]"), info(dump, "description [share text 1]"),
                            plain(dump, "type [share text 2]"), plain(dump, "from_msisdn [share text 3]"),
                            plain(dump, "to_list [share text 4]"), plain(dump, "expired_time [9833440827789222417]"),
                            info(dump, "push_status [0]"), info(dump, "content_info_list_length [1]"),
                            info(dump, "original [item text 0]"), info(dump, "thumbnail [(null)]"),
                            info(dump, "mid_thumbnail [item text 2]"), info(dump, "big_thumbnail [item text 3]"),
                            info(dump, "name [item text 4]"), info(dump, "content_type [(null)]"),
                            info(dump, "contents_token [item text 6]"), info(dump, "download_count [4000000007]"),
                            info(dump, "max_download_count [4000000008]"), info(dump, "size [4000000009]"),
                            info(dump, "content_id [4000000010]")})}));
}

TEST(Wire, EveryShorterBufferIsRefused)
{
    const share_holder one = make_share(2);
    const std::string bytes = bytes_of(one.get());
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(decode(bytes.substr(0, length)), nullptr) << length;

    // The fixed-width fields of a share are refused in its name.
    for (const int missing : {20 + 7, 28 + 3}) {
        const exact_buffer buffer(std::string(static_cast<size_t>(missing), '\0'));
        int at = 0;
        share *decoded = nullptr;
        EXPECT_EQ(__get_share_content_info_list(buffer.bytes.get(), buffer.size, &at, &decoded), ZEL_ERR_MEMORY);
        EXPECT_TRACE(begin("__get_share_content_info_list"),
                     critical("__get_share_content_info_list", too_large(missing < 28 ? 20 : 28, missing)),
                     whole("_common_free_share_content_info"));
    }
}

// Whatever stands at whatever place: nothing beyond the buffer is read, nothing larger than it is allocated (but for
// the 4097 bytes of a truncated string), and what is accepted really lay inside.
TEST(Wire, HostileNumbersAnywhereAreSurvived)
{
    const share_holder one = make_share(2);
    const std::string bytes = bytes_of(one.get());
    const allocation_failure watch(0);
    for (const unsigned int value :
         {0U, 1U, 300U, 5000U, INT_MAX - 200U, INT_MAX - 3U, 0x7fffffffU, 0x80000000U, ~0U}) {
        for (size_t place = 0; place + 4 <= bytes.size(); ++place) {
            std::string changed = bytes;
            changed.replace(place, 4, number(value));
            int consumed = 0;
            const share_holder decoded = decode(changed, &consumed);
            if (!decoded)
                continue;
            EXPECT_LE(static_cast<size_t>(consumed), changed.size());
            EXPECT_LE(__find_length_of_share_content_info_list(decoded.get()), static_cast<unsigned int>(consumed));
            take_trace();
        }
    }
    EXPECT_LE(watch.largest(), 4097u);

    const auto count = watch.count();
    EXPECT_EQ(decode(std::string(28, '\0') + number(0xffffffffU)), nullptr);
    EXPECT_EQ(decode(std::string(28, '\0') + number(0xffffffffU) + std::string(440, '\0')), nullptr);
    EXPECT_LE(watch.count() - count, 14) << "the items end with the buffer, whatever their count";
}

TEST(Wire, OffsetsOutsideTheBufferAreRefused)
{
    const exact_buffer buffer(std::string(64, '\0'));
    for (const int start : {-1, -44, INT_MIN, 64, 65, INT_MAX - 3, INT_MAX}) {
        int offset = start;
        item *item_out = nullptr;
        share *share_out = nullptr;
        EXPECT_EQ(__get_content_info(buffer.bytes.get(), buffer.size, &offset, &item_out), ZEL_ERR_MEMORY);
        EXPECT_TRACE(critical("__get_string", too_large(start, 64)));
        offset = start;
        EXPECT_EQ(__get_share_content_info_list(buffer.bytes.get(), buffer.size, &offset, &share_out), ZEL_ERR_MEMORY);
        EXPECT_EQ(item_out, nullptr);
        EXPECT_EQ(share_out, nullptr);
        take_trace();
    }
    int offset = 64 - 44;
    item *item_out = nullptr;
    EXPECT_EQ(__get_content_info(buffer.bytes.get(), -1, &offset, &item_out), ZEL_ERR_MEMORY);
    EXPECT_EQ(__get_content_info(buffer.bytes.get(), 64, &offset, &item_out), ZEL_ERR_NONE);
    EXPECT_EQ(offset, 64);
    g_free(item_out);
}

TEST(Wire, DecodingSurvivesEveryFailedAllocation)
{
    const share_holder one = make_share(2);
    const std::string bytes = bytes_of(one.get());
    int nth = 1;
    for (bool failed = true; failed; ++nth) {
        const exact_buffer buffer(bytes);
        share *decoded = nullptr;
        int offset = 0;
        const allocation_failure failure(nth);
        const zel_err_e result = __get_share_content_info_list(buffer.bytes.get(), buffer.size, &offset, &decoded);
        failed = failure.happened();
        EXPECT_EQ(result, failed ? ZEL_ERR_MEMORY : ZEL_ERR_NONE);
        EXPECT_EQ(decoded == nullptr, failed);
        const trace lines = take_trace();
        EXPECT_EQ(count_lines(lines, "CRITICAL", "Memory allcation failure") +
                      count_lines(lines, "CRITICAL", "Fail: Memory Allocation Failure"),
                  failed);
        if (decoded)
            _common_free_share_content_info(decoded);
    }
    EXPECT_EQ(nth - 2, 1 + 5 + 2 * (1 + 5)) << "records and present strings, one allocation each";
}
