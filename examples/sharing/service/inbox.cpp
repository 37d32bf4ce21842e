#include <algorithm>
#include <cstring>
#include <filesystem>

#include "service.h"
#include "zel_platform.h"

namespace fs = std::filesystem;

namespace sharing
{

constexpr char last_push[] = "sharingd.push";
constexpr char unreadable_pushes[] = "sharingd.push.unreadable";

/** The sender chose the name: it must not lead elsewhere, nor be longer than a file system takes. */
static std::string harmless(const std::string &name)
{
    std::string last = name.substr(name.rfind('/') + 1);
    std::ranges::replace_if(
        last, [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; }, '_');
    if (last.size() > 200)
        last.erase(0, last.size() - 200); // the extension stays
    return last.empty() || last == "." || last == ".." ? "file" : last;
}

/** A path for a received file, numbered when the name is taken; kept for it by its part, which is made at once. */
static std::string new_path(const fs::path &folder, const std::string &name)
{
    const fs::path wanted = folder / harmless(name);
    fs::path path = wanted;
    std::unique_ptr<FILE, releaser<fclose>> part;
    for (int number = 1; !part; ++number) {
        if (!fs::exists(path))
            part.reset(fopen(part_of(path).c_str(), "wxe"));
        require(part || fs::exists(path) || errno == EEXIST, ZEL_ERR_PERMISSION_DENIED,
                part_of(path) + ": " + strerror(errno) + ".");
        if (!part)
            path.replace_filename(wanted.stem().string() + "_" + std::to_string(number) + wanted.extension().string());
    }
    return path;
}

share received_share(const std::string &token)
{
    share record;
    if (_common_storage_exist_push_noti(token.c_str())) // which tells that all items are there too
        record.reset(read<zel_trans_share_content_info *>(_common_storage_get_notification_data, token.c_str()));
    require(record != nullptr, ZEL_ERR_RESOURCE_DOESNT_EXIST, "There is no received share with this token.");
    return record;
}

static transfer transfer_of_item(const share_item &item, zel_file_sync_type kind)
{
    return transfer(read<zel_content_sync_info *>(_common_storage_get_sync_content_info, item.content_id, kind));
}

static void add_download(share_item &item, zel_file_sync_type kind, unsigned int req_id, const std::string &path)
{
    zel_content_sync_info row = {};
    row.content_id = item.content_id;
    row.contents_token = item.contents_token;
    row.original = item.original;
    row.thumbnail = item.thumbnail;
    add_transfer(row, kind, req_id, text_of(item.name), path);
}

/** Stores a share, and has its thumbnails fetched. A message that comes again changes nothing. */
static void take_in(service &s, const std::string &message)
{
    const share record = decode(message);
    const std::string token = text_of(record->contents_token);
    const auto items = elements_of<share_item>(record->content_info_list);
    require(!token.empty() && !items.empty(), ZEL_ERR_BAD_JSON_FORMAT, "The share has no token, or nothing in it.");
    for (const share_item *item : items)
        require(text_of(item->original).starts_with("/files/"), ZEL_ERR_BAD_JSON_FORMAT,
                "An item of the share is not on our server.");
    if (!_common_storage_exist_push_noti(token.c_str())) {
        // The items first, the notification last.
        const zel_err_e result = _common_storage_add_notification(record.get());
        if (result != ZEL_ERR_INVALID_ARG) // it refuses items that are there already
            must(result);
        write(_common_storage_add_push_noti_info, token.c_str(), record->type, record->expired_time,
              _common_util_get_current_unix_time());
    }
    const share stored = received_share(token);
    require(stored->content_info_list_length == record->content_info_list_length, ZEL_ERR_INTERNAL_ERROR,
            "The store holds only a part of the share.");
    const std::string folder = s.chosen.received + "/thumbnails";
    fs::create_directories(folder);
    const unsigned int req_id = next_request_id();
    for (auto *item : elements_of<share_item>(stored->content_info_list))
        if (item->thumbnail && !transfer_of_item(*item, ZEL_DOWNLOAD_THUMBNAIL))
            add_download(*item, ZEL_DOWNLOAD_THUMBNAIL, req_id, folder + "/" + std::to_string(item->content_id));
    take_up(s, req_id);
}

void listen(service &s, http &server)
{
    bool is_ours = false;
    while (!s.is_stopping)
        try {
            if (!is_ours && !(is_ours = has_shares(s, server)))
                return; // a server that knows tus only has nothing to tell
            const std::string number = s.chosen.number.substr(s.chosen.number.find_first_not_of('+'));
            const auto push =
                send(s, server, "GET", "/push/" + number + "?after=" + std::to_string(number_at(last_push)), {});
            if (push.status == 204) // nothing for a while
                continue;
            try {
                take_in(s, push.body);
            } catch (const failure &reason) {
                if (reason.code == ZEL_ERR_STORAGE_FAILURE)
                    throw; // asked for again, once the store is there
                dlog_print(DLOG_ERROR, "SHARINGD", "push message: %s\n", reason.what());
                set_number(unreadable_pushes, number_at(unreadable_pushes) + 1);
            }
            set_number(last_push, number_of(push, "Push-Number"));
        } catch (const std::exception &reason) {
            for (int i = 0; i < 50 && !s.is_stopping; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
}

GVariant *list_received(service &, const zel_request &)
{
    const auto tokens_of = [](bool only_new) {
        char **tokens = nullptr;
        unsigned int count = 0;
        found(_common_storage_get_contents_token_list, nullptr, only_new, &tokens, &count);
        std::vector<std::string> list(tokens, tokens + count);
        for (unsigned int i = 0; i < count; ++i)
            g_free(tokens[i]);
        free(tokens); // the C library's
        return list;
    };
    const auto unread = tokens_of(true);
    const auto shown = [&](const std::string &token) {
        const std::string message = encode(*received_share(token));
        return g_variant_new(
            "(tbu@ay)", guint64{read<unsigned long long>(_common_storage_get_received_time_push_noti, token.c_str())},
            std::ranges::count(unread, token) > 0,
            read<int>(_common_storage_get_content_info_not_downloaded_count, token.c_str()),
            g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, message.data(), message.size(), 1));
    };
    GVariant *shares = array_of("a(tbuay)", tokens_of(false), shown);
    if (!unread.empty())
        write(_common_storage_update_read_push_noti, "files");
    return g_variant_new("(@a(tbuay)u)", shares, static_cast<guint32>(number_at(unreadable_pushes)));
}

GVariant *fetch(service &s, const zel_request &request)
{
    const share stored = received_share(text_of(request.contents_token));
    const std::string folder = text_of(request.local_path);
    const fs::path target = folder.empty() ? fs::absolute(s.chosen.received) : fs::path(folder);
    std::error_code error;
    require(fs::is_directory(target, error), ZEL_ERR_PERMISSION_DENIED, folder + ": is no folder.");
    const auto items = elements_of<share_item>(stored->content_info_list);
    for (const share_item *item : items) // a second request for what is on its way is the same request
        if (const transfer row = transfer_of_item(*item, ZEL_DOWNLOAD_FILE); row && !is_settled(s, row->req_id))
            return g_variant_new("(u)", row->req_id);
    const unsigned int req_id = next_request_id();
    for (share_item *item : items)
        add_download(*item, ZEL_DOWNLOAD_FILE, req_id, new_path(target, text_of(item->name)));
    take_up(s, req_id);
    return g_variant_new("(u)", req_id);
}

} // namespace sharing
