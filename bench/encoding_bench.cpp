/* The share encoding beside memcpy of the same pieces, and its decoding beside copies of the same records. */

#include "harness.h"
#include "zel_common_log/trace.h"
#include "zel_common_request/dumps.h"
#include "zel_common_request/share_encoding.h"

#include <array>
#include <cstring>
#include <memory>
#include <vector>

namespace bench
{

namespace
{

/* The members of records. */

std::array<char **, 5> texts_of(zel_trans_share_content_info &share)
{
    return {&share.contents_token, &share.description, &share.type, &share.from_msisdn, &share.to_list};
}

std::array<char **, 7> texts_of(zel_trans_content_info &item)
{
    return {&item.original, &item.thumbnail,    &item.mid_thumbnail, &item.big_thumbnail,
            &item.name,     &item.content_type, &item.contents_token};
}

std::array<unsigned int *, 4> numbers_of(zel_trans_content_info &item)
{
    return {&item.download_count, &item.max_download_count, &item.size, &item.content_id};
}

using share_holder = std::shared_ptr<zel_trans_share_content_info>;

share_holder hold(zel_trans_share_content_info *share)
{
    return {share, _common_free_share_content_info};
}

share_holder new_share(size_t items)
{
    auto *share = g_new0(zel_trans_share_content_info, 1);
    for (char **text : texts_of(*share))
        *text = g_strdup("Three days at the lake, the best of them");
    share->content_info_list_length = static_cast<unsigned int>(items);
    for (size_t i = 0; i < items; ++i) {
        auto *item = g_new0(zel_trans_content_info, 1);
        for (char **text : texts_of(*item))
            *text = g_strdup("https://files.example.org/v1/contents/4f1c9a7e2b5d4803/0001");
        share->content_info_list = g_list_prepend(share->content_info_list, item);
    }
    return hold(share);
}

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

/** The pieces of an encoding, with known lengths. */
struct piece {
    const void *bytes;
    int length;
    bool is_text; /**< with its length in front */
};

template <typename Record> void add_texts(std::vector<piece> &pieces, Record &record)
{
    for (char **text : texts_of(record))
        pieces.push_back({*text, static_cast<int>(strlen(*text)), true});
}

side copy_pieces(const share_holder &share, const buffer &to)
{
    std::vector<piece> pieces;
    add_texts(pieces, *share);
    pieces.push_back({&share->expired_time, sizeof share->expired_time, false});
    pieces.push_back({&share->content_info_list_length, sizeof share->content_info_list_length, false});
    for (const GList *node = share->content_info_list; node; node = node->next) {
        auto &item = *static_cast<zel_trans_content_info *>(node->data);
        add_texts(pieces, item);
        for (const unsigned int *number : numbers_of(item))
            pieces.push_back({number, sizeof *number, false});
    }
    return repeat([=] {
        return [=] {
            for (unsigned int i = 0; i <= share->content_info_list_length; ++i) { // the share's lines and each item's
                ZEL_BEGIN();
                ZEL_END();
            }
            char *end = to.get();
            for (const piece &each : pieces) {
                if (each.is_text)
                    end = static_cast<char *>(mempcpy(end, &each.length, sizeof each.length));
                end = static_cast<char *>(mempcpy(end, each.bytes, static_cast<size_t>(each.length)));
            }
        };
    });
}

/** Keeps decoded shares until the time is measured. */
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

template <typename Record> Record *copy_record(const Record &from)
{
    auto *to = static_cast<Record *>(g_memdup2(&from, sizeof from));
    for (char **text : texts_of(*to))
        *text = g_strdup(*text);
    return to;
}

/** Copies existing records into the records and log lines of a decoding. */
side copy_records(size_t items)
{
    return decode_each([share = new_share(items)] {
        ZEL_BEGIN();
        zel_trans_share_content_info *copy = copy_record(*share);
        const auto copy_item = [](const void *item, void *) -> void * {
            return copy_record(*static_cast<const zel_trans_content_info *>(item));
        };
        copy->content_info_list = g_list_copy_deep(share->content_info_list, copy_item, nullptr);
        __print_share_content_info_list(copy);
        ZEL_END();
        return copy;
    });
}

const group measures([] {
    for (const size_t items : {10U, 1000U}) {
        const std::string share_of = "a share of " + std::to_string(items) + " items";
        add({"encoding: " + share_of + " / memcpy piece by piece", 0.9, [=] {
                 // Both sides use the same memory, since the place of the pieces decides the cost.
                 const share_holder share = new_share(items);
                 const buffer to = buffer_for(share);
                 return std::pair(encode(share, to), copy_pieces(share, to));
             }});
        add({"decoding: " + share_of + " / the same records copied", 1.2,
             [=] { return std::pair(decode(items), copy_records(items)); }});
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
