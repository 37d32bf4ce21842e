#include <algorithm>
#include <filesystem>
#include <utility>

#include "service.h"
#include "zel_platform.h"

namespace sharing
{

using clock = std::chrono::steady_clock;
constexpr size_t thread_count = 3;
constexpr unsigned int most_retries = 5;
constexpr std::chrono::milliseconds long_poll(30'000); // longer than the server's
constexpr char log_tag[] = "SHARINGD";

static bool is_running(quillo_upload_status_e status)
{
    return status == QUILLO_UPLOAD_STATUS_STARTED || status == QUILLO_UPLOAD_STATUS_PROGRESSING;
}

/** What became of a request whose transfers are complete, or failed for good; QUILLO_UPLOAD_STATUS_NONE before. */
static quillo_upload_status_e outcome_of(unsigned int req_id)
{
    const auto retried =
        read_transfers(_common_storage_get_sync_content_info_list_by_req_id, req_id, ZEL_UNKNOWN, ZEL_SYNC_FAILED);
    if (!retried.empty() || !read<bool>(_common_storage_check_all_file_completed_by_req_id, req_id))
        return QUILLO_UPLOAD_STATUS_NONE;
    const bool has_failed = read<bool>(_common_storage_check_all_file_failed_by_req_id, req_id);
    return has_failed ? QUILLO_UPLOAD_STATUS_FAILED : QUILLO_UPLOAD_STATUS_FINISHED;
}

quillo_upload_status_e status_of(unsigned int req_id)
{
    const zel_file_sync_type kind = kind_of(req_id);
    const auto stored = upload_status_of(req_id);
    if (kind == ZEL_UNKNOWN || kind == ZEL_UPLOAD_FILE || stored != QUILLO_UPLOAD_STATUS_NONE)
        return stored;
    for (const transfer &row : transfers_of(kind, req_id)) // the store keeps a status for uploads only
        if (row->status == ZEL_SYNC_PAUSED || row->status == ZEL_SYNC_PAUSED_TODO)
            return QUILLO_UPLOAD_STATUS_PAUSED;
    const auto outcome = outcome_of(req_id);
    return outcome == QUILLO_UPLOAD_STATUS_NONE ? QUILLO_UPLOAD_STATUS_PROGRESSING : outcome;
}

bool is_settled(const service &s, unsigned int req_id)
{
    const auto status = status_of(req_id);
    if (status == QUILLO_UPLOAD_STATUS_FINISHED) // an upload is shared then, if the server has shares
        return upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_NONE || s.knows_tus_only;
    return status == QUILLO_UPLOAD_STATUS_FAILED || status == QUILLO_UPLOAD_STATUS_CANCELLED ||
           status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_RECALLED;
}

/* Requests ------------------------------------------------------------------------------------------------------ */

void take_up(service &s, unsigned int req_id)
{
    const std::lock_guard lock(s.schedule);
    s.changed.notify_all();
    tell_state(s, req_id);
}

/** Ends an upload whose files are through. A file that was given up does not keep the others from being shared. */
static void conclude(service &s, unsigned int req_id)
{
    const quillo_upload_status_e status = upload_status_of(req_id);
    if (const auto outcome = outcome_of(req_id);
        status == QUILLO_UPLOAD_STATUS_PROGRESSING && outcome != QUILLO_UPLOAD_STATUS_NONE)
        write(_common_storage_update_upload_status, req_id, outcome);
    if (upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED && !s.knows_tus_only)
        s.shares.try_emplace(req_id);
    if (status == QUILLO_UPLOAD_STATUS_NONE || status != upload_status_of(req_id))
        tell_state(s, req_id);
}

GVariant *pause(service &s, const zel_request &request)
{
    const unsigned int req_id = request.req_id;
    const std::lock_guard lock(s.schedule);
    require(is_running(status_of(req_id)) && outcome_of(req_id) == QUILLO_UPLOAD_STATUS_NONE,
            ZEL_ERR_NO_PAUSABLE_REQ_ID, "There is nothing of this request to be paused.");
    write(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PAUSED);
    write(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_PAUSED, ZEL_SYNC_ONGOING);
    write(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_PAUSED_TODO, ZEL_SYNC_TODO);
    tell_state(s, req_id);
    return nullptr;
}

GVariant *resume(service &s, const zel_request &request)
{
    const unsigned int req_id = request.req_id;
    const std::lock_guard lock(s.schedule);
    require(status_of(req_id) == QUILLO_UPLOAD_STATUS_PAUSED, ZEL_ERR_NO_RESUMABLE_REQ_ID, "It is not paused.");
    write(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    write(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED);
    write(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED_TODO);
    conclude(s, req_id); // the pause may have come behind the last chunk
    s.changed.notify_all();
    return nullptr;
}

GVariant *cancel(service &s, const zel_request &request)
{
    const unsigned int req_id = request.req_id;
    const std::lock_guard lock(s.schedule);
    const zel_file_sync_type kind = kind_of(req_id);
    require(kind != ZEL_UNKNOWN && !is_settled(s, req_id), ZEL_ERR_NO_CANCELLABLE_REQ_ID,
            "There is nothing of this request to be cancelled.");
    write(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_CANCELLED);
    for (const transfer &row : transfers_of(kind, req_id))
        if (row->status != ZEL_SYNC_COMPLETE) {
            write(_common_storage_delete_sync_content_info, row->sync_id);
            note_trouble("transfer", row->sync_id, nullptr);
            std::error_code there_is_none;
            if (kind != ZEL_UPLOAD_FILE)
                std::filesystem::remove(part_of(row->local_path), there_is_none);
        }
    tell_state(s, req_id);
    return nullptr;
}

GVariant *forget(service &s, const zel_request &)
{
    const std::lock_guard lock(s.schedule);
    require(s.claimed.empty(), ZEL_ERR_REQUEST_FAILED, "Files are on their way; wait, or cancel their requests.");
    for (const unsigned int req_id : all_uploads()) {
        note_trouble("request", req_id, nullptr);
        for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
            note_trouble("transfer", row->sync_id, nullptr);
    }
    write(_common_storage_clear);
    s.retries.clear();
    s.shares.clear();
    return nullptr;
}

/* The threads ---------------------------------------------------------------------------------------------------- */

/** Claims a transfer that waits, or a failed one, the least often retried first; NULL when none may run. */
static transfer claim(service &s, zel_file_sync_type kind, zel_file_sync_status status)
{
    const bool is_retry = status == ZEL_SYNC_FAILED;
    const int places = _common_storage_get_batch_count(kind, ZEL_SYNC_ONGOING, is_retry);
    if (places == 0)
        return nullptr;
    for (transfer &row :
         read_transfers(_common_storage_get_sync_content_info_list, is_retry ? -1 : places, kind, status)) {
        const auto request = status_of(row->req_id); // none: it is not stored as a whole
        const auto retry = s.retries.find(row->sync_id);
        if (s.claimed.contains(row->sync_id) || !is_running(request) ||
            (retry != s.retries.end() && retry->second.due > clock::now()))
            continue;
        if (request == QUILLO_UPLOAD_STATUS_STARTED)
            write(_common_storage_update_upload_status, row->req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
        if (is_retry) {
            // A retry is counted by rewriting the row, which starts its time anew and would store an absent text as
            // NULL, where the table wants a text.
            for (char **wanted : {&row->contents_token, &row->original, &row->thumbnail, &row->name})
                if (!*wanted)
                    *wanted = g_strdup("");
            ++row->fail_retry_count;
            row->status = ZEL_SYNC_ONGOING;
            write(_common_storage_update_sync_content_info, row.get());
        } else {
            write(_common_storage_update_status_sync_content_info_by_sync_id, row->sync_id, ZEL_SYNC_ONGOING, status);
        }
        s.claimed.insert(row->sync_id);
        return std::move(row);
    }
    return nullptr;
}

/** The next attempt behind one that failed. */
static service::attempt after(const service &s, unsigned int failures)
{
    const auto pause =
        std::min(s.chosen.retry_delay * (1U << std::min(failures, 10U)), std::chrono::milliseconds(8000));
    return {clock::now() + pause, failures + 1};
}

/** Records how a transfer ended, unless a pause came first, and what follows from it. */
static void close(service &s, const zel_content_sync_info &row, const failure *reason)
{
    const std::lock_guard lock(s.schedule);
    const bool is_called_off = reason && reason->code == ZEL_ERR_REQ_PAUSED;
    if (!is_called_off) {
        dlog_print(reason ? DLOG_WARN : DLOG_INFO, log_tag, "transfer %u of %s: %s\n", row.sync_id, row.name,
                   reason ? reason->what() : "done");
        note_trouble("transfer", row.sync_id, reason);
        s.retries[row.sync_id] = after(s, row.fail_retry_count);
    }
    const auto end = is_called_off ? ZEL_SYNC_TODO : reason ? ZEL_SYNC_FAILED : ZEL_SYNC_COMPLETE;
    write(_common_storage_update_status_sync_content_info_by_sync_id, row.sync_id, end, ZEL_SYNC_ONGOING);
    if (!reason || row.fail_retry_count > most_retries)
        s.retries.erase(row.sync_id);
    s.claimed.erase(row.sync_id);
    if (const transfer stored = transfer_of(row.sync_id))
        tell_progress(s, *stored);
    conclude(s, row.req_id);
    s.changed.notify_all();
}

static void move_file(service &s, const zel_content_sync_info &row, http &server)
{
    unsigned long long moved = row.offset;
    int chunk_no = row.chunk_no;
    unsigned int percentage = row.percentage;
    auto recorded = clock::now();
    const auto record = [&](unsigned long long offset, unsigned int now) {
        chunk_no += offset > std::exchange(moved, offset) ? 1 : 0;
        write(_common_storage_update_upload_info, row.sync_id, offset, chunk_no);
        if (std::exchange(percentage, now) != now)
            write(_common_storage_update_percentage_sync_content_info, row.sync_id, now);
        recorded = clock::now();
    };
    const auto pass = [&](unsigned long long offset, unsigned long long size) {
        const auto now = static_cast<unsigned int>(offset * 100 / size);
        const bool is_notable = now != percentage || clock::now() - recorded >= std::chrono::milliseconds(100);
        if (is_notable)
            record(offset, now);
        const transfer stored = transfer_of(row.sync_id);
        if (is_notable && stored)
            tell_progress(s, *stored);
        require(stored && stored->status == ZEL_SYNC_ONGOING && !s.is_stopping, ZEL_ERR_REQ_PAUSED, "");
    };
    std::unique_ptr<failure> reason;
    try {
        const auto size = (row.type == ZEL_UPLOAD_FILE ? upload : download)(s, row, server, pass);
        record(size, 100);
    } catch (const std::exception &caught) {
        reason = std::make_unique<failure>(as_failure(caught));
    }
    while (!s.is_stopping)
        try {
            return close(s, row, reason.get());
        } catch (const std::exception &refusal) { // the row is in nobody else's hands
            dlog_print(DLOG_ERROR, log_tag, "%s\n", refusal.what());
        }
}

/** The share that an upload's files make. */
static share share_from(unsigned int req_id, const std::string &number)
{
    const upload_report upload(read<zel_trans_upload_info *>(_common_storage_get_upload_data, req_id));
    require(upload != nullptr, ZEL_ERR_INVALID_REQ_ID, "The upload is not there any more.");
    std::string recipients;
    for (size_t i = 0; i < upload->msisdn_count; ++i)
        if (const quillo_msisdn_s *one = upload->msisdn_list[i])
            recipients += (i > 0 ? ", +" : "+") + text_of(one->ccc) + text_of(one->phone_number);
    share record(g_new0(zel_trans_share_content_info, 1));
    record->description = g_strdup("Sent with share");
    record->type = g_strdup("files");
    record->from_msisdn = g_strdup(number.c_str());
    record->to_list = g_strdup(recipients.c_str());
    for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
        if (row->status == ZEL_SYNC_COMPLETE) {
            auto *item = g_new0(share_item, 1);
            item->original = g_strdup(row->original);
            item->name = g_strdup(row->name);
            record->content_info_list = g_list_append(record->content_info_list, item);
        }
    return record;
}

/** Has the server make a share of an upload's files, and tell their recipients. */
static void share_upload(service &s, unsigned int req_id, unsigned int failures, http &server)
try {
    s.knows_tus_only = !has_shares(s, server);
    if (!s.knows_tus_only) {
        const auto answer = send(s, server, "POST", "/shares", {{"Content-Type", "application/octet-stream"}},
                                 encode(*share_from(req_id, s.chosen.number)));
        const std::string token = answer.get_header_value("Contents-Token");
        require(!token.empty(), ZEL_ERR_BAD_JSON_FORMAT, "The server issued no token.");
        write(_common_storage_update_contents_token_info, req_id, token.c_str(),
              number_of(answer, "Expires-Milliseconds"));
    }
    const std::lock_guard lock(s.schedule);
    note_trouble("request", req_id, nullptr);
    if (!s.knows_tus_only && upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED) // not cancelled meanwhile
        write(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_SHARE_FINISHED);
    tell_state(s, req_id);
} catch (const failure &reason) {
    if (s.is_stopping)
        return;
    const std::lock_guard lock(s.schedule);
    s.shares[req_id] = after(s, failures);
    note_trouble("request", req_id, &reason);
    tell_state(s, req_id);
}

/** Takes up the transfer or share that is next; nothing when there is none. */
static std::function<void(http &)> next_job(service &s)
{
    const auto due = std::ranges::find_if(s.shares, [](const auto &one) { return one.second.due <= clock::now(); });
    if (due != s.shares.end()) {
        const auto [req_id, now] = *due;
        s.shares.erase(due);
        return std::bind_front(share_upload, std::ref(s), req_id, now.failures);
    }
    for (const zel_file_sync_type kind : all_kinds)
        for (const zel_file_sync_status status : {ZEL_SYNC_TODO, ZEL_SYNC_FAILED})
            if (std::shared_ptr<zel_content_sync_info> row = claim(s, kind, status))
                return [&s, row](http &server) { move_file(s, *row, server); };
    return nullptr;
}

static void work(service &s, http &server)
{
    while (!s.is_stopping)
        try {
            std::unique_lock lock(s.schedule);
            if (const auto job = next_job(s)) {
                lock.unlock();
                job(server);
                continue;
            }
            auto next = clock::now() + std::chrono::seconds(1);
            for (const auto *waiting : {&s.retries, &s.shares})
                for (const auto &[id, attempt] : *waiting)
                    next = std::min(next, std::max(attempt.due, clock::now() + std::chrono::milliseconds(10)));
            s.changed.wait_until(lock, next);
        } catch (const std::exception &reason) {
            // The store would not have it; what is in it still counts, and is looked at again.
            dlog_print(DLOG_ERROR, log_tag, "%s\n", reason.what());
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
}

void start_movers(service &s)
{
    for (const zel_file_sync_type kind : all_kinds)
        write(_common_storage_set_all_status_sync_content_info, kind, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO);

    // A request is stored behind its transfers: without it they are what a service that died was about to store.
    const std::vector<unsigned int> uploads = all_uploads();
    for (const transfer &row :
         read_transfers(_common_storage_get_sync_content_info_list, -1, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO))
        if (std::ranges::count(uploads, row->req_id) == 0 && upload_status_of(row->req_id) == QUILLO_UPLOAD_STATUS_NONE)
            write(_common_storage_delete_sync_content_info, row->sync_id);
    for (const unsigned int req_id : uploads)
        conclude(s, req_id);

    for (size_t i = 0; i <= thread_count; ++i) { // the last one waits for push messages
        http &server = s.servers.emplace_back(origin_of(s.chosen.server));
        server.set_keep_alive(true);
        server.set_tcp_nodelay(true); // header and body are two writes
        server.set_connection_timeout(s.chosen.patience);
        server.set_read_timeout(i < thread_count ? s.chosen.patience : long_poll);
        server.set_write_timeout(s.chosen.patience);
        s.threads.push_back(
            std::async(std::launch::async, i < thread_count ? work : listen, std::ref(s), std::ref(server)));
    }
}

void stop_movers(service &s)
{
    s.is_stopping = true;
    for (const std::future<void> &thread : s.threads)
        do {
            for (http &server : s.servers)
                server.stop(); // again and again: a connection may have been on its way
            s.changed.notify_all();
        } while (thread.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready);
}

} // namespace sharing
