/* The share encoding beside memcpy of the same pieces, and its decoding beside GVariant. */

#include "measures.h"
#include "samples.h"
#include "zel_common_log/trace.h"
#include "zel_common_request/dumps.h"
#include "zel_common_request/share_encoding.h"

#include <cstring>
#include <memory>

namespace bench
{

namespace
{

using share_holder = std::shared_ptr<zel_trans_share_content_info>;

share_holder hold(zel_trans_share_content_info *share)
{
    return share_holder(share, _common_free_share_content_info);
}

using buffer = std::shared_ptr<char[]>;

buffer buffer_for(const share_holder &share)
{
    return buffer(new char[__find_length_of_share_content_info_list(share.get())]);
}

side encode(const share_holder &share, const buffer &to)
{
    return {.run = [share, to](size_t count) {
        for (size_t i = 0; i < count; ++i) {
            int offset = 0;
            __set_share_content_info_list(to.get(), &offset, share.get());
        }
    }};
}

/** What an encoding is made of, its lengths known beforehand. */
struct text {
    const char *bytes;
    int length;
};

text text_of(const char *bytes)
{
    return {bytes, static_cast<int>(strlen(bytes))};
}

struct item_pieces {
    text texts[7];
    unsigned int numbers[4];
};

struct share_pieces {
    explicit share_pieces(const zel_trans_share_content_info *share)
        : texts{text_of(share->contents_token), text_of(share->description), text_of(share->type),
                text_of(share->from_msisdn), text_of(share->to_list)},
          expired_time(share->expired_time), length(share->content_info_list_length)
    {
        for (const GList *node = share->content_info_list; node; node = node->next) {
            const auto *item = static_cast<const zel_trans_content_info *>(node->data);
            items.push_back({{text_of(item->original), text_of(item->thumbnail), text_of(item->mid_thumbnail),
                              text_of(item->big_thumbnail), text_of(item->name), text_of(item->content_type),
                              text_of(item->contents_token)},
                             {item->download_count, item->max_download_count, item->size, item->content_id}});
        }
    }

    text texts[5];
    unsigned long long expired_time;
    unsigned int length;
    std::vector<item_pieces> items;
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
    return {.run = [share, pieces = share_pieces(share.get()), to](size_t count) {
        for (size_t i = 0; i < count; ++i) {
            ZEL_BEGIN();
            char *end = to.get();
            for (const text &each : pieces.texts)
                end = copy(end, each);
            end = copy(end, pieces.expired_time);
            end = copy(end, pieces.length);
            for (const item_pieces &item : pieces.items) {
                ZEL_BEGIN();
                for (const text &each : item.texts)
                    end = copy(end, each);
                for (const unsigned int number : item.numbers)
                    end = copy(end, number);
                ZEL_END();
            }
            ZEL_END();
        }
    }};
}

/** Keeps what a batch decodes and releases it before the next one. */
struct decoded_shares {
    void prepare(size_t count)
    {
        kept.clear();
        kept.reserve(count);
    }

    std::vector<share_holder> kept;
};

side decode(size_t items)
{
    const share_holder share = hold(new_share(items));
    const buffer from = buffer_for(share);
    int length = 0;
    __set_share_content_info_list(from.get(), &length, share.get());
    const auto decoded = std::make_shared<decoded_shares>();
    return {.run =
                [=](size_t count) {
                    for (size_t i = 0; i < count; ++i) {
                        int offset = 0;
                        zel_trans_share_content_info *read = nullptr;
                        __get_share_content_info_list(from.get(), length, &offset, &read);
                        decoded->kept.push_back(hold(read));
                    }
                },
            .prepare = [=](size_t count) { decoded->prepare(count); }};
}

constexpr char SHARE_TYPE[] = "(sssssta(sssssssuuuu))";

/** An empty string stands for an absent one. */
char *string_of(const char *value)
{
    return *value ? g_strdup(value) : nullptr;
}

zel_trans_share_content_info *decode_variant(const void *data, size_t size)
{
    ZEL_BEGIN();
    GVariant *variant =
        g_variant_ref_sink(g_variant_new_from_data(G_VARIANT_TYPE(SHARE_TYPE), data, size, TRUE, nullptr, nullptr));
    auto *share = g_new0(zel_trans_share_content_info, 1);
    const char *texts[5];
    guint64 expired_time = 0;
    GVariantIter *items = nullptr;
    g_variant_get(variant, "(&s&s&s&s&sta(sssssssuuuu))", &texts[0], &texts[1], &texts[2], &texts[3], &texts[4],
                  &expired_time, &items);
    share->contents_token = string_of(texts[0]);
    share->description = string_of(texts[1]);
    share->type = string_of(texts[2]);
    share->from_msisdn = string_of(texts[3]);
    share->to_list = string_of(texts[4]);
    share->expired_time = expired_time;
    const char *strings[7];
    unsigned int numbers[4];
    while (g_variant_iter_next(items, "(&s&s&s&s&s&s&suuuu)", &strings[0], &strings[1], &strings[2], &strings[3],
                               &strings[4], &strings[5], &strings[6], &numbers[0], &numbers[1], &numbers[2],
                               &numbers[3])) {
        auto *item = g_new0(zel_trans_content_info, 1);
        item->original = string_of(strings[0]);
        item->thumbnail = string_of(strings[1]);
        item->mid_thumbnail = string_of(strings[2]);
        item->big_thumbnail = string_of(strings[3]);
        item->name = string_of(strings[4]);
        item->content_type = string_of(strings[5]);
        item->contents_token = string_of(strings[6]);
        item->download_count = numbers[0];
        item->max_download_count = numbers[1];
        item->size = numbers[2];
        item->content_id = numbers[3];
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
    const share_holder share = hold(new_share(items));
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("a(sssssssuuuu)"));
    for (const GList *node = share->content_info_list; node; node = node->next) {
        const auto *item = static_cast<const zel_trans_content_info *>(node->data);
        g_variant_builder_add(&list, "(sssssssuuuu)", item->original, item->thumbnail, item->mid_thumbnail,
                              item->big_thumbnail, item->name, item->content_type, item->contents_token,
                              item->download_count, item->max_download_count, item->size, item->content_id);
    }
    GVariant *built = g_variant_ref_sink(
        g_variant_new("(sssssta(sssssssuuuu))", share->contents_token, share->description, share->type,
                      share->from_msisdn, share->to_list, static_cast<guint64>(share->expired_time), &list));
    const std::shared_ptr<GVariant> held(built, g_variant_unref);
    const auto decoded = std::make_shared<decoded_shares>();
    return {.run =
                [=](size_t count) {
                    const void *data = g_variant_get_data(held.get());
                    const size_t size = g_variant_get_size(held.get());
                    for (size_t i = 0; i < count; ++i)
                        decoded->kept.push_back(hold(decode_variant(data, size)));
                },
            .prepare = [=](size_t count) { decoded->prepare(count); }};
}

} // namespace

void add_encoding_measures()
{
    for (const size_t items : {10, 1000}) {
        add({
            .name = "encoding: a share of " + std::to_string(items) + " items / memcpy",
            .bound = 2.0,
            .make =
                [=] {
                    // The same memory for both: where the pieces lie decides what reading and writing them costs.
                    const share_holder share = hold(new_share(items));
                    const buffer to = buffer_for(share);
                    return sides{encode(share, to), copy_pieces(share, to)};
                },
        });
        add({
            .name = "decoding: a share of " + std::to_string(items) + " items / GVariant",
            .bound = 1.0,
            .make =
                [=] {
                    return sides{decode(items), decode_variants(items)};
                },
        });
    }
    add_growth("encode an item", 10, [](size_t n) {
        const share_holder share = hold(new_share(n));
        return encode(share, buffer_for(share));
    });
    add_growth("decode an item", 10, decode);
    add_growth("size of an item's encoding", 10, [](size_t n) {
        return side{.run = [share = hold(new_share(n))](size_t count) {
            for (size_t i = 0; i < count; ++i)
                __find_length_of_share_content_info_list(share.get());
        }};
    });
    add_growth("release a share's item", 10, [](size_t n) {
        const auto waiting = std::make_shared<std::vector<zel_trans_share_content_info *>>();
        return side{.run =
                        [=](size_t) {
                            for (auto *share : *waiting)
                                _common_free_share_content_info(share);
                            waiting->clear();
                        },
                    .prepare =
                        [=](size_t count) {
                            while (waiting->size() < count)
                                waiting->push_back(new_share(n));
                        }};
    });
}

} // namespace bench
