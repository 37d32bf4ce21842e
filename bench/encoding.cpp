/* The share encoding beside memcpy of the same pieces, and its decoding beside GVariant. */

#include "harness.h"
#include "samples.h"
#include "zel_common_log/trace.h"
#include "zel_common_request/dumps.h"
#include "zel_common_request/share_encoding.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace bench
{

namespace
{

using buffer = std::shared_ptr<char[]>;

buffer buffer_for(const share_holder &share)
{
    return buffer(new char[__find_length_of_share_content_info_list(share.get())]);
}

side encode(const share_holder &share, const buffer &to)
{
    return repeat([=] {
        return [=] {
            int offset = 0;
            __set_share_content_info_list(to.get(), &offset, share.get());
        };
    });
}

/** What an encoding is made of, its lengths known beforehand. */
struct text {
    const char *bytes;
    int length;
};

template <size_t N> std::array<text, N> lengths_of(const std::array<char **, N> &texts)
{
    std::array<text, N> all;
    std::transform(texts.begin(), texts.end(), all.begin(), [](char **each) {
        return text{*each, static_cast<int>(strlen(*each))};
    });
    return all;
}

struct item_pieces {
    std::array<text, 7> texts;
    std::array<unsigned int, 4> numbers;
};

template <typename Value> char *copy(char *to, const Value &value)
{
    memcpy(to, &value, sizeof value);
    return to + sizeof value;
}

char *copy(char *to, const text &value)
{
    to = copy(to, value.length);
    memcpy(to, value.bytes, static_cast<size_t>(value.length));
    return to + value.length;
}

side copy_pieces(const share_holder &share, const buffer &to)
{
    return repeat([=] {
        std::vector<item_pieces> items;
        for (const GList *node = share->content_info_list; node; node = node->next) {
            auto &item = *static_cast<zel_trans_content_info *>(node->data);
            const auto n = numbers_of(item);
            items.push_back({lengths_of(texts_of(item)), {*n[0], *n[1], *n[2], *n[3]}});
        }
        return [=, texts = lengths_of(texts_of(*share))] {
            ZEL_BEGIN();
            char *end = to.get();
            for (const text &each : texts)
                end = copy(end, each);
            end = copy(end, share->expired_time);
            end = copy(end, share->content_info_list_length);
            for (const item_pieces &item : items) {
                ZEL_BEGIN();
                for (const text &each : item.texts)
                    end = copy(end, each);
                for (const unsigned int number : item.numbers)
                    end = copy(end, number);
                ZEL_END();
            }
            ZEL_END();
        };
    });
}

/** Decoded shares are kept until the time has been taken. */
template <typename Decode> side decode_each(Decode decode_one)
{
    return repeat(
        [=] { return [=, kept = std::vector<share_holder>()]() mutable { kept.push_back(hold(decode_one())); }; });
}

side decode(size_t items)
{
    const share_holder share = new_share(items);
    const buffer from = buffer_for(share);
    int length = 0;
    __set_share_content_info_list(from.get(), &length, share.get());
    return decode_each([=] {
        int offset = 0;
        zel_trans_share_content_info *read = nullptr;
        __get_share_content_info_list(from.get(), length, &offset, &read);
        return read;
    });
}

const auto SHARE_TYPE = reinterpret_cast<const GVariantType *>("(sssssta(sssssssuuuu))");

/** Copies of texts; an empty one stands for an absent one. */
template <typename Record> void take_texts(Record &record, const char *const *texts)
{
    for (char **each : texts_of(record)) {
        *each = **texts ? g_strdup(*texts) : nullptr;
        ++texts;
    }
}

zel_trans_share_content_info *decode_variant(GVariant *encoded)
{
    ZEL_BEGIN();
    GVariant *variant = g_variant_ref_sink(g_variant_new_from_data(
        SHARE_TYPE, g_variant_get_data(encoded), g_variant_get_size(encoded), TRUE, nullptr, nullptr));
    auto *share = g_new0(zel_trans_share_content_info, 1);
    const char *texts[5];
    guint64 expired_time = 0;
    GVariantIter *items = nullptr;
    g_variant_get(variant, "(&s&s&s&s&sta(sssssssuuuu))", &texts[0], &texts[1], &texts[2], &texts[3], &texts[4],
                  &expired_time, &items);
    take_texts(*share, texts);
    share->expired_time = expired_time;
    const char *t[7];
    unsigned int n[4];
    while (g_variant_iter_next(items, "(&s&s&s&s&s&s&suuuu)", &t[0], &t[1], &t[2], &t[3], &t[4], &t[5], &t[6], &n[0],
                               &n[1], &n[2], &n[3])) {
        auto *item = g_new0(zel_trans_content_info, 1);
        take_texts(*item, t);
        for (size_t i = 0; i < std::size(n); ++i)
            *numbers_of(*item)[i] = n[i];
        share->content_info_list = g_list_prepend(share->content_info_list, item);
        ++share->content_info_list_length;
    }
    share->content_info_list = g_list_reverse(share->content_info_list);
    g_variant_iter_free(items);
    g_variant_unref(variant);
    __print_share_content_info_list(share);
    ZEL_END();
    return share;
}

side decode_variants(size_t items)
{
    const share_holder share = new_share(items);
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("a(sssssssuuuu)"));
    for (const GList *node = share->content_info_list; node; node = node->next) {
        auto &item = *static_cast<zel_trans_content_info *>(node->data);
        const auto t = texts_of(item);
        const auto n = numbers_of(item);
        g_variant_builder_add(&list, "(sssssssuuuu)", *t[0], *t[1], *t[2], *t[3], *t[4], *t[5], *t[6], *n[0], *n[1],
                              *n[2], *n[3]);
    }
    const auto t = texts_of(*share);
    GVariant *built = g_variant_new("(sssssta(sssssssuuuu))", *t[0], *t[1], *t[2], *t[3], *t[4],
                                    static_cast<guint64>(share->expired_time), &list);
    return decode_each([held = std::shared_ptr<GVariant>(g_variant_ref_sink(built), g_variant_unref)] {
        return decode_variant(held.get());
    });
}

const group measures([] {
    for (const size_t items : {10, 1000}) {
        const std::string share_of = "a share of " + std::to_string(items) + " items";
        add({.name = "encoding: " + share_of + " / memcpy", .bound = 2.0, .make = [=] {
                 // The same memory for both: where the pieces lie decides what reading and writing them costs.
                 const share_holder share = new_share(items);
                 const buffer to = buffer_for(share);
                 return sides{encode(share, to), copy_pieces(share, to)};
             }});
        add({.name = "decoding: " + share_of + " / GVariant", .bound = 1.0, .make = [=] {
                 return sides{decode(items), decode_variants(items)};
             }});
    }
    add_growth("encode an item", 10, [](size_t n) {
        const share_holder share = new_share(n);
        return encode(share, buffer_for(share));
    });
    add_growth("decode an item", 10, decode);
    add_growth("size of an item's encoding", 10, [](size_t n) {
        return repeat(
            [=] { return [share = new_share(n)] { __find_length_of_share_content_info_list(share.get()); }; });
    });
    add_growth("make and release a share's item", 10,
               [](size_t n) { return repeat([=] { return [=] { new_share(n); }; }); });
});

} // namespace

} // namespace bench
