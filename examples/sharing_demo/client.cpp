#include "client.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <thread>
#include <utility>

#include "push.h"
#include "zel_platform_host.h"

namespace demo
{

namespace
{

constexpr char application[] = "quillo.demo.client";
constexpr char own_number[] = "+447700900001";

bool are_equal(const std::filesystem::path &one, const std::filesystem::path &other)
{
    std::ifstream first(one, std::ios::binary);
    std::ifstream second(other, std::ios::binary);
    using bytes = std::istreambuf_iterator<char>;
    return first && second && std::equal(bytes(first), bytes(), bytes(second), bytes());
}

/** Whether a file is what a thumbnail of another should be: its first bytes. */
bool is_thumbnail(const std::filesystem::path &thumbnail, const std::filesystem::path &whole)
{
    const auto first_bytes = [](const std::filesystem::path &path, size_t count) {
        std::string bytes(count, '\0');
        std::ifstream file(path, std::ios::binary);
        file.read(bytes.data(), static_cast<std::streamsize>(count));
        return bytes.substr(0, static_cast<size_t>(file.gcount()));
    };
    return first_bytes(thumbnail, server::thumbnail_size + 1) == first_bytes(whole, server::thumbnail_size);
}

std::string time_text(unsigned long long seconds)
{
    const auto when = static_cast<time_t>(seconds);
    tm parts = {};
    char result[32] = "";
    if (localtime_r(&when, &parts))
        strftime(result, sizeof result, "%Y-%m-%d %H:%M:%S", &parts);
    return result;
}

const char *word_for(quillo_upload_status_e status)
{
    constexpr const char *words[] = {"none",      "started", "progressing", "finished", "failed",
                                     "cancelled", "paused",  "handed over", "recalled"};
    return words[status];
}

std::string recipients_of(unsigned int req_id, size_t count)
{
    char **strings = nullptr;
    must(_common_storage_get_upload_receipients_details(req_id, static_cast<unsigned int>(count), &strings));
    std::string result;
    for (size_t i = 0; i < count; ++i) {
        result += (i > 0 ? ", " : "") + text_of(strings[i]);
        g_free(strings[i]);
    }
    g_free(strings);
    return result;
}

/** The tokens of the received shares, the newest first. */
std::vector<std::string> received_shares(bool except_read)
{
    char **tokens = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_contents_token_list(nullptr, except_read, &tokens, &count));
    std::vector<std::string> list;
    for (unsigned int i = 0; i < count; ++i) {
        list.emplace_back(tokens[i]);
        g_free(tokens[i]);
    }
    free(tokens);
    return list;
}

int how_many(zel_file_sync_status status, unsigned int req_id)
{
    int count = 0;
    found(_common_storage_get_sync_content_info_count_for_req_id(ZEL_UPLOAD_FILE, status, -1, &count, req_id));
    return count;
}

} // namespace

client::client(service &asked, server &remote, console &out) : service_(asked), server_(remote), out_(out) {}

/* Requests --------------------------------------------------------------------------------------------------- */

/** Fills nothing but the numbers and the token; waits for the answer. */
std::unique_ptr<connection> client::ask(zel_cmd command, unsigned int req_id, const std::string &token)
{
    auto answer = std::make_unique<connection>();
    queued_request request(g_new0(comm_param_s, 1));
    request->request.cmd = command;
    request->request.req_id = req_id;
    request->request.contents_token = token.empty() ? nullptr : g_strdup(token.c_str());
    request->handle = answer.get();
    service_.submit(std::move(request));
    answer->wait();
    return answer;
}

unsigned int client::upload(const std::vector<std::string> &files, const std::vector<std::string> &recipients)
{
    std::unique_ptr<zel_request, releaser<_common_free_zel_request>> mine(g_new0(zel_request, 1));
    mine->cmd = ZEL_CMD_UPLOAD;
    mine->req_id = next_request_id();
    mine->type = QUILLO_APP_TYPE;
    mine->description = g_strdup("Sent by the sharing demo");
    for (const std::string &file : files)
        mine->file_list = g_list_append(mine->file_list, g_strdup(file.c_str()));
    for (const std::string &recipient : recipients)
        mine->receiver_list = g_list_append(mine->receiver_list, g_strdup(recipient.c_str()));
    mine->file_count = static_cast<unsigned int>(files.size());
    mine->receiver_count = static_cast<unsigned int>(recipients.size());
    if (app_control_create(&mine->caller, application) != 0)
        throw failure(ZEL_ERR_MEMORY, "There is no memory for the caller's handle.");

    // The service gets a copy of its own: what becomes of the client's request is no concern of the service.
    connection answer;
    queued_request copy(g_new0(comm_param_s, 1));
    must(_common_copy_zel_request_members(mine.get(), &copy->request));
    copy->handle = &answer;
    service_.submit(std::move(copy));
    answer.wait();
    out_.say("\nRequest %u: %zu files to %zu recipients are in the store.", mine->req_id, files.size(),
             recipients.size());
    pause_and_resume(mine->req_id);
    return mine->req_id;
}

/** Pauses an upload once a quarter of it has gone out, and resumes it. */
void client::pause_and_resume(unsigned int req_id)
{
    const auto has_enough = [&](const std::vector<transfer> &rows) {
        size_t sum = 0;
        for (const transfer &row : rows)
            sum += row->percentage;
        return sum * 4 >= rows.size() * 100;
    };
    for (bool is_enough = false; !is_enough && !service_.transfers.is_settled(ZEL_UPLOAD_FILE, req_id);) {
        service_.transfers.wait_for_progress();
        const auto rows = transfers_of(ZEL_UPLOAD_FILE, req_id);
        out_.show(rows);
        is_enough = has_enough(rows);
    }
    try {
        ask(ZEL_CMD_UPLOAD_PAUSE, req_id);
        while (service_.transfers.is_busy())
            service_.transfers.wait_for_progress();
        out_.show(transfers_of(ZEL_UPLOAD_FILE, req_id));
        out_.end_show();
        out_.say("Paused: %d files on their way, %d not begun, %d sent, %d to be retried.",
                 how_many(ZEL_SYNC_PAUSED, req_id), how_many(ZEL_SYNC_PAUSED_TODO, req_id),
                 how_many(ZEL_SYNC_COMPLETE, req_id), how_many(ZEL_SYNC_FAILED, req_id));
        ask(ZEL_CMD_UPLOAD_RESUME, req_id);
        out_.say("Resumed.");
    } catch (const failure &reason) {
        if (reason.code != ZEL_ERR_NO_PAUSABLE_REQ_ID)
            throw;
        out_.end_show();
        out_.say("Nothing is left that could be paused.");
    }
}

/** Waits until the transfers of a kind of a request are settled, and shows them meanwhile. */
void client::follow(zel_file_sync_type kind, unsigned int req_id, bool shows)
{
    for (bool is_settled = false; !is_settled;) {
        is_settled = service_.transfers.is_settled(kind, req_id);
        if (shows)
            out_.show(transfers_of(kind, req_id));
        if (!is_settled) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // fast enough for an eye
            service_.transfers.wait_for_progress();
        }
    }
    out_.end_show();
}

/* The road there --------------------------------------------------------------------------------------------- */

bool client::see_through(unsigned int req_id)
{
    follow(ZEL_UPLOAD_FILE, req_id, true);
    const auto answer = ask(ZEL_CMD_GET_UPLOAD_INFO, req_id);
    show_report(*answer->report);
    if (answer->report->status == QUILLO_UPLOAD_STATUS_FAILED) {
        out_.say("Given up: %d files failed to the last retry.", how_many(ZEL_SYNC_FAILED, req_id));
        return false;
    }
    // An upload whose original has changed on the way must not be taken up for ever.
    const bool has_arrived = compare_upload(req_id) && bring_back(req_id, *answer->report);
    set_upload_status(req_id, has_arrived ? QUILLO_UPLOAD_STATUS_SHARE_FINISHED : QUILLO_UPLOAD_STATUS_FAILED);
    return has_arrived;
}

void client::show_report(const zel_trans_upload_info &report)
{
    out_.say("\nUpload report of request %u", report.request_id);
    out_.say("  status      %s", word_for(report.status));
    out_.say("  recipients  %s", recipients_of(report.request_id, report.msisdn_count).c_str());
    out_.say("  files       %u, %llu bytes", report.file_count, report.total_size);
    for (const char *path : elements_of<char>(report.file_path_list))
        out_.say("              %s", printable(path).c_str());
    out_.say("  sent        %s", time_text(report.sent_time).c_str());
    out_.say("  token       %s, until %s", report.contents_token, time_text(report.expired_time / 1000).c_str());
    unsigned long long bytes = 0;
    unsigned int files = 0;
    if (found(_common_storage_get_time_upload_total_file_static_hr(48, &bytes, &files)))
        out_.say("  all shares  %u files, %llu bytes that have not expired", files, bytes);
}

bool client::compare_upload(unsigned int req_id)
{
    bool is_equal = true;
    for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
        if (!are_equal(row->local_path, server_.path_of(text_of(row->mupload_key)))) {
            out_.say("%s: the server does not hold what is in the file now.", printable(row->local_path).c_str());
            is_equal = false;
        }
    const chunk_count count = server_.count_chunks(req_id);
    const bool is_exact = count.is_gapless && count.refused == 0;
    out_.say("\nThe server counts %u chunks, %s; it refused %u.", count.received,
             count.is_gapless ? "none twice and none missing" : "some of them twice or missing", count.refused);
    if (is_equal)
        out_.say("What it holds equals the originals, byte for byte.");
    return is_equal && is_exact;
}

void show_unfinished(unsigned int req_id, server &remote, console &out)
{
    out.say("Request %u is unfinished (%s):", req_id, word_for(upload_status_of(req_id)));
    for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id)) {
        if (row->status == ZEL_SYNC_COMPLETE)
            continue;
        const position there = row->mupload_key ? remote.arrived(row->mupload_key) : position();
        out.say("  %-26s %3u %%  stored: chunk %d, offset %u; server: chunk %d%s",
                printable(text_of(row->name), 26).c_str(), row->percentage, row->chunk_no, row->offset, there.chunk_no,
                there.offset > row->offset ? ", which is not sent again" : "");
    }
}

/* The road back ---------------------------------------------------------------------------------------------- */

bool client::bring_back(unsigned int req_id, const zel_trans_upload_info &report)
{
    const share sent = server_.share_of(report, own_number, recipients_of(req_id, report.msisdn_count));
    const std::vector<char> message = encode_share(*sent);
    const arrived_share arrived = service_.receive_push(message);
    out_.say("\nA push message of %zu bytes brings the share to this device.", message.size());

    follow(ZEL_DOWNLOAD_THUMBNAIL, arrived.thumbnails, false);
    out_.say("%zu thumbnails are here; now the files.",
             transfers_of(ZEL_DOWNLOAD_THUMBNAIL, arrived.thumbnails).size());
    ask(ZEL_CMD_DOWNLOAD, req_id, arrived.token);
    follow(ZEL_DOWNLOAD_FILE, arrived.files, true);
    if (!compare_downloads(arrived, req_id))
        return false;

    must(_common_storage_update_status_content_info(arrived.token.c_str(), QUILLO_PUSH_STATUS_SHARE_FINISHED));
    return true;
}

bool client::compare_downloads(const arrived_share &arrived, unsigned int upload_id)
{
    const auto uploads = transfers_of(ZEL_UPLOAD_FILE, upload_id);
    bool is_equal = true;
    const auto compare = [&](zel_file_sync_type kind, unsigned int req_id, auto is_right) {
        for (const transfer &row : transfers_of(kind, req_id)) {
            const auto sent = std::ranges::find_if(
                uploads, [&](const transfer &one) { return text_of(one->original) == text_of(row->original); });
            if (row->status == ZEL_SYNC_COMPLETE && sent != uploads.end() &&
                is_right(row->local_path, (*sent)->local_path))
                continue;
            out_.say("%s: does not equal what was sent.", printable(row->local_path).c_str());
            is_equal = false;
        }
    };
    compare(ZEL_DOWNLOAD_THUMBNAIL, arrived.thumbnails, is_thumbnail);
    compare(ZEL_DOWNLOAD_FILE, arrived.files, are_equal);
    if (is_equal)
        out_.say("The received files equal the originals, byte for byte.");
    for (const transfer &row : transfers_of(ZEL_DOWNLOAD_FILE, arrived.files))
        if (const std::string path = row->local_path; !path.ends_with("/" + text_of(row->name)))
            out_.say("  %s was taken, so it came as %s", printable(row->name).c_str(), printable(path).c_str());
    return is_equal;
}

void client::list_received_shares()
{
    const auto unread = received_shares(true);
    out_.say("\nReceived shares, the newest first");
    for (const std::string &token : received_shares(false)) {
        unsigned long long received = 0;
        int left = 0;
        zel_trans_share_content_info *record = nullptr;
        must(_common_storage_get_received_time_push_noti(token.c_str(), &received));
        must(_common_storage_get_content_info_not_downloaded_count(token.c_str(), &left));
        must(_common_storage_get_notification_data(token.c_str(), &record));
        const share stored(record);
        out_.say("  %s  %s  from %s, %u items, %d not downloaded, %s", time_text(received / 1000).c_str(),
                 token.c_str(), stored->from_msisdn, stored->content_info_list_length, left,
                 std::ranges::count(unread, token) > 0 ? "unread" : "read");
    }
}

void client::list_recent_groups()
{
    out_.say("\nRecent recipients, the latest group first");
    quillo_msisdn_s **members = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_recent_receiver_details(&members, &count));
    std::string line;
    for (unsigned int i = 0; i < count; ++i) {
        const std::unique_ptr<quillo_msisdn_s, releaser<g_free>> member(members[i]);
        const text ccc(member->ccc);
        const text number(member->phone_number);
        line += (line.empty() ? "" : ", ") + ("+" + text_of(ccc.get()) + " " + text_of(number.get()));
        if (i + 1 == count || members[i + 1]->group_id != member->group_id) {
            out_.say("  group %d: %s", member->group_id, line.c_str());
            line.clear();
        }
    }
    free(members);
}

void client::forget()
{
    must(_common_storage_clear());
    out_.say("\nForgotten. The store now holds");

    unsigned int *ids = nullptr;
    unsigned int uploads = 0;
    found(_common_storage_get_request_id_list(APP_TYPE_NONE, &ids, &uploads));
    g_free(ids);
    int recipients = 0;
    must(_common_storage_get_recent_receiver_count(&recipients));
    out_.say("  uploads %u, received shares %zu, recent recipients %d", uploads, received_shares(false).size(),
             recipients);

    for (const char *key : {"evt_access_token", "evt_refresh_token", "evt_push_token", last_request_key}) {
        char *value = nullptr;
        found(_common_storage_get_unique_data(key, &value, nullptr, nullptr, nullptr));
        const text owned(value);
        out_.say("  key %s: %s", key, owned ? owned.get() : "gone");
    }
    char *folder_token = nullptr;
    const bool has_folder = found(
        _common_storage_get_folder_info(service::family_folder, nullptr, nullptr, &folder_token, nullptr, nullptr));
    const text owned(folder_token);
    out_.say("  folder record %s: %s", service::family_folder, has_folder ? owned.get() : "gone");
    int version = 0;
    must(__common_storage_get_db_version(&version));
    out_.say("  schema version %d", version);
}

} // namespace demo
