#include "inbox.h"

#include <algorithm>
#include <filesystem>
#include <unistd.h>

#include "zel_platform.h"

namespace fs = std::filesystem;

namespace sharing
{

namespace
{

constexpr char last_push[] = "sharingd.push";
constexpr char unreadable_pushes[] = "sharingd.push.unreadable";
constexpr std::chrono::seconds long_poll(30); // longer than the server's

/** The sender chose the name: it must not lead elsewhere, nor be longer than a file system takes. */
std::string harmless(const std::string &name)
{
    std::string last = name.substr(name.rfind('/') + 1);
    std::ranges::replace_if(
        last, [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; }, '_');
    if (last.size() > 200)
        last.erase(0, last.size() - 200); // the extension stays
    return last.empty() || last == "." || last == ".." ? "file" : last;
}

/** A path for a received file, numbered when the name is taken, by a file or by one that is on its way. */
std::string free_path(const std::string &folder, const std::string &name)
{
    const auto is_taken = [](const std::string &path) {
        return _common_util_file_exist(path.c_str()) || _common_util_file_exist(part_of(path).c_str());
    };
    const std::string wanted = folder + "/" + harmless(name);
    std::string path = wanted;
    if (is_taken(wanted)) {
        char numbered[ZEL_NEW_PATH_SIZE];
        _common_util_get_file_valid_path(wanted.c_str(), numbered);
        path = numbered;
    }
    // A name without an extension comes back as it was, and one on its way is not seen.
    for (int number = 1; is_taken(path); ++number)
        path = wanted + "_" + std::to_string(number);
    return path;
}

/** A number of the key-value table; 0 when there is none. */
unsigned long long number_at(const char *key)
{
    return std::strtoull(value_of(key).c_str(), nullptr, 10);
}

share stored_share(const std::string &token)
{
    // A notification in the store tells that all items are there too.
    if (_common_storage_exist_push_noti(token.c_str()))
        if (share record = share_of(token))
            return record;
    throw failure(ZEL_ERR_RESOURCE_DOESNT_EXIST, "There is no received share with this token.");
}

transfer transfer_of_item(const share_item &item, zel_file_sync_type kind)
{
    zel_content_sync_info *row = nullptr;
    found(_common_storage_get_sync_content_info, signed_id(item.content_id), kind, &row);
    return transfer(row);
}

void add_download(share_item &item, zel_file_sync_type kind, unsigned int req_id, std::string path)
{
    std::string nameless = "file";
    zel_content_sync_info row = {};
    row.type = kind;
    row.status = ZEL_SYNC_TODO;
    row.content_id = item.content_id;
    row.req_id = req_id;
    row.contents_token = item.contents_token;
    row.original = item.original;
    row.thumbnail = item.thumbnail;
    row.name = item.name ? item.name : nameless.data();
    row.local_path = path.data();
    write(_common_storage_add_sync_content_info, &row);
}

} // namespace

inbox::inbox(const settings &chosen, movers &carriers)
    : settings_(chosen), movers_(carriers), server_(settings_.server, long_poll),
      listener_(std::make_unique<worker>([this] { listen(); }))
{
}

inbox::~inbox()
{
    stop_.set_value();
    do
        server_.cancel();
    while (!listener_->has_ended_within(std::chrono::milliseconds(20)));
}

void inbox::listen()
{
    bool is_ours = false;
    for (std::chrono::seconds pause(0); stopping_.wait_for(pause) != std::future_status::ready;) {
        pause = std::chrono::seconds(0);
        try {
            if (!is_ours && !(is_ours = server_.is_ours()))
                return; // a server that knows tus only has nothing to tell
            const auto number = settings_.number.substr(settings_.number.find_first_not_of('+'));
            if (const auto push = server_.next_push(number, number_at(last_push))) {
                try {
                    take_in(push->message);
                } catch (const failure &reason) {
                    if (reason.code == ZEL_ERR_STORAGE_FAILURE)
                        throw; // asked for again, once the store is there
                    dlog_print(DLOG_ERROR, "SHARINGD", "push message %llu: %s\n", push->number, reason.what());
                    set_value(unreadable_pushes, std::to_string(number_at(unreadable_pushes) + 1));
                }
                set_value(last_push, std::to_string(push->number));
            }
        } catch (const std::exception &reason) {
            pause = std::chrono::seconds(1);
        }
    }
}

/** Stores a share, and has its thumbnails fetched. A message that comes again changes nothing. */
void inbox::take_in(const std::string &message)
{
    const share record = decode(message);
    const std::string token = text_of(record->contents_token);
    const auto items = elements_of<share_item>(record->content_info_list);
    if (token.empty() || items.empty())
        throw failure(ZEL_ERR_BAD_JSON_FORMAT, "The share has no token, or nothing in it.");
    for (const share_item *item : items)
        if (!text_of(item->original).starts_with("/files/"))
            throw failure(ZEL_ERR_BAD_JSON_FORMAT, "An item of the share is not on our server.");
    if (!_common_storage_exist_push_noti(token.c_str())) {
        // The items first, the notification last.
        const zel_err_e result = _common_storage_add_notification(record.get());
        if (result != ZEL_ERR_INVALID_ARG) // it refuses items that are there already
            must(result);
        write(_common_storage_add_push_noti_info, token.c_str(), record->type, record->expired_time,
              _common_util_get_current_unix_time());
    }
    const share stored = stored_share(token);
    if (stored->content_info_list_length != record->content_info_list_length)
        throw failure(ZEL_ERR_INTERNAL_ERROR, "The store holds only a part of the share.");
    fs::create_directories(settings_.received + "/thumbnails");
    const unsigned int req_id = next_request_id();
    for (auto *item : elements_of<share_item>(stored->content_info_list))
        if (item->thumbnail && !transfer_of_item(*item, ZEL_DOWNLOAD_THUMBNAIL))
            add_download(*item, ZEL_DOWNLOAD_THUMBNAIL, req_id,
                         settings_.received + "/thumbnails/" + std::to_string(item->content_id));
    movers_.take_up(req_id);
}

GVariant *inbox::list()
{
    GVariantBuilder shares;
    g_variant_builder_init(&shares, G_VARIANT_TYPE("a(tbuay)"));
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
    for (const std::string &token : tokens_of(false)) {
        unsigned long long received = 0;
        int left = 0;
        found(_common_storage_get_received_time_push_noti, token.c_str(), &received);
        found(_common_storage_get_content_info_not_downloaded_count, token.c_str(), &left);
        const share record = stored_share(token);
        const std::string message = encode(*record);
        g_variant_builder_add(&shares, "(tbu@ay)", static_cast<guint64>(received),
                              std::ranges::count(unread, token) > 0, static_cast<guint32>(left),
                              g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, message.data(), message.size(), 1));
    }
    if (!unread.empty())
        write(_common_storage_update_read_push_noti, "files");
    return g_variant_new("(a(tbuay)u)", &shares, static_cast<guint32>(number_at(unreadable_pushes)));
}

unsigned int inbox::fetch(const std::string &token, const std::string &folder)
{
    const share stored = stored_share(token);
    const std::string target = folder.empty() ? fs::absolute(settings_.received).string() : folder;
    std::error_code error;
    if (!fs::is_directory(target, error) || access(target.c_str(), W_OK) != 0)
        throw failure(ZEL_ERR_PERMISSION_DENIED, target + ": is no folder, or you may not write there.");
    const auto items = elements_of<share_item>(stored->content_info_list);
    for (const share_item *item : items) // a second request for what is on its way is the same request
        if (const transfer row = transfer_of_item(*item, ZEL_DOWNLOAD_FILE); row && !movers_.is_settled(row->req_id))
            return row->req_id;
    const unsigned int req_id = next_request_id();
    std::set<std::string> taken;
    for (share_item *item : items) {
        std::string path = free_path(target, text_of(item->name));
        for (int number = 1; !taken.insert(path).second; ++number)
            path = free_path(target, std::to_string(number) + "_" + harmless(text_of(item->name)));
        add_download(*item, ZEL_DOWNLOAD_FILE, req_id, path);
    }
    movers_.take_up(req_id);
    return req_id;
}

} // namespace sharing
