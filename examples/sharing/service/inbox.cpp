#include "inbox.h"

#include <algorithm>
#include <thread>

#include "zel_platform.h"

namespace sharing
{

constexpr char last_push[] = "sharingd.push";
constexpr size_t max_push = size_t{8} * 1024 * 1024;
constexpr std::chrono::seconds long_poll(30); // longer than the server's
constexpr unsigned int max_attempts = 100;    // to store a share

/** Whether a share's notification is stored, and with it all its items. */
static bool is_stored(const std::string &token)
{
    return surely([&] { return _common_storage_exist_push_noti(token.c_str()); });
}

/** Where the token is kept under which a share could be stored, when it is not its own. */
static std::string token_key(const std::string &token)
{
    return "sharingd.token." + token;
}

share received_share(const std::string &given)
{
    const auto other = entry_at(token_key(given));
    const std::string token = other ? other->value : given;
    share record;
    if (is_stored(token))
        record.reset(value_of<zel_trans_share_content_info *>(_common_storage_get_notification_data, token.c_str()));
    require(record != nullptr, ZEL_ERR_RESOURCE_DOESNT_EXIST, "There is no received share with this token.");
    return record;
}

void forget_token(const std::string &stored)
{
    remove_entry(token_key(stored.substr(0, stored.find('~'))));
}

/** Throws unless a message is a share that can be stored. */
static share checked(const std::string &message)
{
    share record = decode(message);
    const std::string token = text_of(record->contents_token);
    const auto items = elements_of<share_item>(record->content_info_list);
    require(!token.empty() && token.size() <= 200 &&
                std::ranges::all_of(token, [](char one) { return g_ascii_isalnum(one) || strchr("-._", one); }),
            ZEL_ERR_BAD_JSON_FORMAT, "The share has no usable token.");
    require(!items.empty(), ZEL_ERR_BAD_JSON_FORMAT, "There is nothing in the share.");
    for (const share_item *item : items)
        require(item->original, ZEL_ERR_BAD_JSON_FORMAT, "An item of the share is nowhere.");
    return record;
}

/**
 * Stores a share's items, and the notification last: it makes them count. A kill can leave a
 * part of the items, which can be neither completed nor removed. The next attempt adds a number to the token.
 */
static std::string store_share(zel_trans_share_content_info &record)
{
    const std::string given = text_of(record.contents_token);
    const auto count_of = [](const std::string &token) {
        const share items(
            value_of<zel_trans_share_content_info *>(_common_storage_get_notification_data, token.c_str()));
        return items ? g_list_length(items->content_info_list) : 0;
    };
    std::string token = given;
    for (unsigned int attempt = 1; !is_stored(token); ++attempt) {
        const unsigned int wanted = g_list_length(record.content_info_list);
        const bool is_new = count_of(token) == 0;
        if (is_new) {
            g_free(record.contents_token);
            record.contents_token = g_strdup(token.c_str());
            for (auto *item : elements_of<share_item>(record.content_info_list))
                item->content_id = 0;
            if (attempt > 1)
                set_entry(token_key(given), {token, {}});
            _common_storage_add_notification(&record);
        }
        if (count_of(token) == wanted) {
            store(_common_storage_add_push_noti_info, token.c_str(), share_type, record.expired_time,
                  _common_util_get_current_unix_time());
        } else {
            require(attempt < max_attempts, ZEL_ERR_INTERNAL_ERROR, "The store has never taken the whole share.");
            require(!is_new, ZEL_ERR_STORAGE_FAILURE, "The store has not taken the whole share.");
            token = given + "~" + std::to_string(attempt + 1);
        }
    }
    return token;
}

/** Stores a share, and has its thumbnails fetched. A message that comes again changes nothing. */
void inbox::take_in(const std::string &message)
{
    const share record = checked(message);
    const share stored = received_share(store_share(*record));
    unsigned int req_id = 0;
    for (auto *item : elements_of<share_item>(stored->content_info_list)) {
        const transfer known(value_of<zel_content_sync_info *>(_common_storage_get_sync_content_info, item->content_id,
                                                               ZEL_DOWNLOAD_THUMBNAIL));
        if (!item->thumbnail || known)
            continue;
        req_id = req_id > 0 ? req_id : next_request_id();
        zel_content_sync_info row = {};
        row.type = ZEL_DOWNLOAD_THUMBNAIL;
        row.req_id = req_id;
        row.content_id = item->content_id;
        row.contents_token = item->contents_token;
        row.thumbnail = item->thumbnail;
        add_transfer(row, text_of(item->name), std::string(thumbnail_folder) + "/" + std::to_string(item->content_id));
    }
    if (req_id > 0)
        movers_.take_up(req_id);
}

void inbox::await_shares()
{
    http_client server(chosen_);
    const std::string number = chosen_.number.substr(chosen_.number.starts_with("+") ? 1 : 0);
    bool is_ours = false;
    std::chrono::milliseconds pause{0};
    while (!is_stopping) {
        for (const auto end = std::chrono::steady_clock::now() + pause;
             !is_stopping && std::chrono::steady_clock::now() < end;)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        try {
            const auto start = std::chrono::steady_clock::now();
            if (!is_ours) {
                const http_answer options = server.ask_for_success({.method = "OPTIONS", .url = chosen_.server});
                if (options.header("sharing-extension").empty())
                    return; // a server that knows tus only sends no push messages
                is_ours = true;
            }
            const unsigned long long last = number_at(last_push);
            const http_answer push =
                server.ask_for_success({.url = "/push/" + number + "?after=" + std::to_string(last),
                                        .largest_body = max_push,
                                        .thinking = long_poll});
            if (push.status == 200) {
                const unsigned long long now = push.number("push-number");
                require(now > last, ZEL_ERR_BAD_JSON_FORMAT, "The server tells of an old push message.");
                try {
                    take_in(push.body);
                } catch (const std::exception &reason) {
                    if (is_passing(reason) || is_stopping)
                        throw; // asked for again, once the store is there
                    dlog_print(DLOG_ERROR, log_tag, "push message %llu: %s\n", now, reason.what());
                    set_entry(unreadable_pushes, {std::to_string(number_at(unreadable_pushes) + 1), {}});
                }
                set_entry(last_push, {std::to_string(now), {}});
                pause = {};
                continue;
            }
            const bool was_fast = std::chrono::steady_clock::now() - start < std::chrono::seconds(1);
            pause = was_fast ? chosen_.first_pause : std::chrono::milliseconds(0);
        } catch (const std::exception &reason) {
            pause = std::clamp(pause * 2, chosen_.first_pause, chosen_.longest_pause);
        }
    }
}

void inbox::start()
{
    thread_ = std::async(std::launch::async, [this] { await_shares(); });
}

void inbox::stop()
{
    if (thread_.valid())
        thread_.wait();
}

} // namespace sharing
