#include "movers.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "zel_platform.h"

namespace sharing
{

namespace
{

constexpr size_t thread_count = 3;
constexpr unsigned int most_retries = 5;
constexpr char log_tag[] = "SHARINGD";

} // namespace

/* Start and stop --------------------------------------------------------------------------------------------- */

movers::movers(const settings &chosen, clients &door) : settings_(chosen), door_(door)
{
    recover();
    for (size_t i = 0; i < thread_count; ++i)
        servers_.push_back(std::make_unique<remote>(settings_.server, settings_.patience));
    for (const auto &server : servers_)
        threads_.push_back(std::make_unique<worker>([this, &server] { work(*server); }));
}

movers::~movers()
{
    is_stopping_ = true;
    for (const auto &thread : threads_)
        do {
            changed_.notify_all();
            for (const auto &server : servers_)
                server->cancel();
        } while (!thread->has_ended_within(std::chrono::milliseconds(20)));
}

void movers::take_up(unsigned int req_id)
{
    const std::lock_guard lock(schedule_);
    changed_.notify_all();
    door_.tell_state(req_id);
}

void movers::recover()
{
    for (const zel_file_sync_type kind : all_kinds)
        write(_common_storage_set_all_status_sync_content_info, kind, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO);

    // A request is stored behind its transfers: without it they are what a service that died was about to store.
    const std::vector<unsigned int> uploads = all_uploads();
    GList *list = nullptr;
    found(_common_storage_get_sync_content_info_list, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &list, -1);
    std::set<unsigned int> stored;
    for (const transfer &row : take_transfers(list))
        stored.insert(row->req_id);
    for (const unsigned int req_id : stored)
        if (std::ranges::count(uploads, req_id) == 0 && upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_NONE)
            write(_common_storage_delete_sync_content_info_by_req_id, req_id);

    const std::lock_guard lock(schedule_);
    for (const unsigned int req_id : uploads)
        conclude(req_id);
}

/* Requests --------------------------------------------------------------------------------------------------- */

void movers::pause(unsigned int req_id)
{
    const std::lock_guard lock(schedule_);
    const auto status = status_of(req_id);
    if ((status != QUILLO_UPLOAD_STATUS_STARTED && status != QUILLO_UPLOAD_STATUS_PROGRESSING) ||
        outcome_of(req_id) != QUILLO_UPLOAD_STATUS_NONE)
        throw failure(ZEL_ERR_NO_PAUSABLE_REQ_ID, "There is nothing of this request to be paused.");
    if (kind_of(req_id) == ZEL_UPLOAD_FILE)
        set_upload_status(req_id, QUILLO_UPLOAD_STATUS_PAUSED);
    move_status(req_id, ZEL_SYNC_ONGOING, ZEL_SYNC_PAUSED);
    move_status(req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED_TODO);
    call_off(req_id);
}

void movers::resume(unsigned int req_id)
{
    const std::lock_guard lock(schedule_);
    if (status_of(req_id) != QUILLO_UPLOAD_STATUS_PAUSED)
        throw failure(ZEL_ERR_NO_RESUMABLE_REQ_ID, "This request is not paused.");
    if (kind_of(req_id) == ZEL_UPLOAD_FILE)
        set_upload_status(req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    move_status(req_id, ZEL_SYNC_PAUSED, ZEL_SYNC_TODO);
    move_status(req_id, ZEL_SYNC_PAUSED_TODO, ZEL_SYNC_TODO);
    conclude(req_id); // the pause may have come behind the last chunk
    changed_.notify_all();
}

void movers::cancel(unsigned int req_id)
{
    const std::lock_guard lock(schedule_);
    const zel_file_sync_type kind = kind_of(req_id);
    if (kind == ZEL_UNKNOWN || is_settled(req_id))
        throw failure(ZEL_ERR_NO_CANCELLABLE_REQ_ID, "There is nothing of this request to be cancelled.");
    if (kind == ZEL_UPLOAD_FILE)
        set_upload_status(req_id, QUILLO_UPLOAD_STATUS_CANCELLED);
    call_off(req_id);
    for (const transfer &row : transfers_of(kind, req_id))
        if (row->status != ZEL_SYNC_COMPLETE) {
            write(_common_storage_delete_sync_content_info, row->sync_id);
            forget_trouble(key_of_transfer(row->sync_id));
            std::error_code there_is_none;
            if (kind != ZEL_UPLOAD_FILE)
                std::filesystem::remove(part_of(row->local_path), there_is_none);
        }
}

void movers::call_off(unsigned int req_id)
{
    for (const transfer &row : transfers_of(kind_of(req_id), req_id))
        if (claimed_.contains(row->sync_id))
            called_off_.insert(row->sync_id);
    door_.tell_state(req_id);
}

void movers::forget()
{
    const std::lock_guard lock(schedule_);
    if (!claimed_.empty())
        throw failure(ZEL_ERR_REQUEST_FAILED, "Files are on their way; wait for them, or cancel their requests.");
    for (const unsigned int req_id : all_uploads()) {
        forget_trouble(key_of_request(req_id));
        for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
            forget_trouble(key_of_transfer(row->sync_id));
    }
    write(_common_storage_clear);
    due_.clear();
    shares_.clear();
}

quillo_upload_status_e movers::status_of(unsigned int req_id)
{
    const zel_file_sync_type kind = kind_of(req_id);
    const auto stored = upload_status_of(req_id);
    if (kind == ZEL_UNKNOWN || kind == ZEL_UPLOAD_FILE || stored != QUILLO_UPLOAD_STATUS_NONE)
        return stored;
    // The store keeps a status for uploads only.
    if (const auto outcome = outcome_of(req_id); outcome != QUILLO_UPLOAD_STATUS_NONE)
        return outcome;
    for (const transfer &row : transfers_of(kind, req_id))
        if (row->status == ZEL_SYNC_PAUSED || row->status == ZEL_SYNC_PAUSED_TODO)
            return QUILLO_UPLOAD_STATUS_PAUSED;
    return QUILLO_UPLOAD_STATUS_PROGRESSING;
}

bool movers::is_settled(unsigned int req_id)
{
    const auto status = status_of(req_id);
    if (status == QUILLO_UPLOAD_STATUS_FINISHED) // an upload is shared then, if the server has shares
        return upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_NONE || server_ == origin::foreign;
    return status == QUILLO_UPLOAD_STATUS_FAILED || status == QUILLO_UPLOAD_STATUS_CANCELLED ||
           status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_RECALLED;
}

/* The threads ------------------------------------------------------------------------------------------------ */

void movers::work(remote &server)
{
    while (!is_stopping_) {
        std::unique_lock lock(schedule_);
        try {
            if (do_next(server, lock))
                continue;
            auto next = clock::now() + std::chrono::seconds(1);
            for (const auto *waiting : {&due_, &shares_})
                for (const auto &[id, time] : *waiting)
                    next = std::min(next, std::max(time, clock::now() + std::chrono::milliseconds(10)));
            if (!is_stopping_)
                changed_.wait_until(lock, next);
        } catch (const std::exception &reason) {
            // The store would not have it; what is in it still counts, and is looked at again.
            dlog_print(DLOG_ERROR, log_tag, "%s\n", reason.what());
            if (!lock.owns_lock())
                lock.lock();
            changed_.wait_for(lock, std::chrono::seconds(1));
        }
    }
}

/** Takes up the transfer or share that is next; false when there is none. Lets go of the lock meanwhile. */
bool movers::do_next(remote &server, std::unique_lock<std::mutex> &lock)
{
    const auto due = std::ranges::find_if(shares_, [](const auto &one) { return one.second <= clock::now(); });
    if (due != shares_.end()) {
        const unsigned int req_id = due->first;
        shares_.erase(due);
        lock.unlock();
        share_upload(req_id, server);
        return true;
    }
    for (const zel_file_sync_type kind : all_kinds)
        for (const zel_file_sync_status status : {ZEL_SYNC_TODO, ZEL_SYNC_FAILED})
            if (const transfer row = claim(kind, status)) {
                lock.unlock();
                move_file(*row, server);
                return true;
            }
    return false;
}

/** Claims a transfer that waits, or a failed one, the least often retried first; NULL when none may run. */
transfer movers::claim(zel_file_sync_type kind, zel_file_sync_status status)
{
    const bool is_retry = status == ZEL_SYNC_FAILED;
    GList *list = nullptr;
    if (const int places = _common_storage_get_batch_count(kind, ZEL_SYNC_ONGOING, is_retry);
        places == 0 || !found(_common_storage_get_sync_content_info_list, kind, status, &list, is_retry ? -1 : places))
        return nullptr;
    for (transfer &row : take_transfers(list)) {
        if (claimed_.contains(row->sync_id) || !may_run(*row))
            continue;
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
            write(_common_storage_update_status_sync_content_info_by_sync_id, signed_id(row->sync_id), ZEL_SYNC_ONGOING,
                  status);
        }
        claimed_.insert(row->sync_id);
        return std::move(row);
    }
    return nullptr;
}

/** Whether a transfer's request is stored as a whole and not paused, and its time has come. */
bool movers::may_run(const zel_content_sync_info &row)
{
    const auto due = due_.find(row.sync_id);
    if (due != due_.end() && due->second > clock::now())
        return false;
    const quillo_upload_status_e status = status_of(row.req_id);
    if (status == QUILLO_UPLOAD_STATUS_STARTED)
        set_upload_status(row.req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    return status == QUILLO_UPLOAD_STATUS_STARTED || status == QUILLO_UPLOAD_STATUS_PROGRESSING;
}

void movers::move_file(const zel_content_sync_info &row, remote &server)
{
    const int id = signed_id(row.sync_id);
    const std::unique_ptr<route> way = route_of(row, server, settings_.chunk_size);
    int chunk_no = row.chunk_no;
    unsigned int percentage = row.percentage;
    auto recorded = clock::now();
    const auto record = [&](bool is_end) {
        const auto now = static_cast<unsigned int>(is_end ? 100 : way->offset * 100 / way->size);
        if (now == percentage && !is_end && clock::now() - recorded < std::chrono::milliseconds(100))
            return;
        recorded = clock::now();
        write(_common_storage_update_upload_info, id, static_cast<unsigned int>(way->offset), chunk_no);
        if (std::exchange(percentage, now) != now)
            write(_common_storage_update_percentage_sync_content_info, id, now);
        if (const transfer stored = transfer_of(row.sync_id); stored && !is_end)
            door_.tell_progress(*stored);
    };
    std::optional<failure> reason;
    try {
        // The store may be a chunk behind, if the last service died before it recorded what had arrived: the receiving
        // end knows better.
        way->begin();
        while (way->offset < way->size) {
            if (const std::lock_guard lock(schedule_); is_stopping_ || called_off_.contains(row.sync_id))
                throw failure(ZEL_ERR_REQ_PAUSED, "");
            way->move_chunk();
            ++chunk_no;
            if (way->offset < way->size)
                record(false);
        }
        way->finish();
        record(true);
    } catch (const failure &caught) {
        reason.emplace(caught);
    } catch (const std::exception &caught) {
        reason.emplace(ZEL_ERR_INTERNAL_ERROR, caught.what());
    }
    while (!is_stopping_)
        try {
            return close(row, reason ? &*reason : nullptr);
        } catch (const std::exception &refusal) { // the row is in nobody else's hands
            dlog_print(DLOG_ERROR, log_tag, "%s\n", refusal.what());
        }
}

/** Records how a transfer ended, unless a pause came first, and what follows from it. */
void movers::close(const zel_content_sync_info &row, const failure *reason)
{
    const std::lock_guard lock(schedule_);
    const bool is_called_off = reason && reason->code == ZEL_ERR_REQ_PAUSED;
    if (!is_called_off) {
        const zel_file_sync_status end = reason ? ZEL_SYNC_FAILED : ZEL_SYNC_COMPLETE;
        dlog_print(reason ? DLOG_WARN : DLOG_INFO, log_tag, "transfer %u of %s: %s\n", row.sync_id, row.name,
                   reason ? reason->what() : "done");
        if (reason)
            note_trouble(key_of_transfer(row.sync_id), reason->code, reason->what());
        else if (row.fail_retry_count > 0)
            forget_trouble(key_of_transfer(row.sync_id));
        due_[row.sync_id] = due_after(row.fail_retry_count);
        write(_common_storage_update_status_sync_content_info_by_sync_id, signed_id(row.sync_id), end,
              ZEL_SYNC_ONGOING);
    }
    if (!reason || row.fail_retry_count > most_retries)
        due_.erase(row.sync_id);
    claimed_.erase(row.sync_id);
    called_off_.erase(row.sync_id);
    if (const transfer stored = transfer_of(row.sync_id))
        door_.tell_progress(*stored);
    if (!is_called_off)
        conclude(row.req_id);
    changed_.notify_all();
}

movers::clock::time_point movers::due_after(unsigned int failures) const
{
    return clock::now() +
           std::min(settings_.retry_delay * (1U << std::min(failures, 10U)), std::chrono::milliseconds(8000));
}

/* The end of a request --------------------------------------------------------------------------------------- */

/** What became of a request whose transfers are complete, or failed for good; QUILLO_UPLOAD_STATUS_NONE before. */
quillo_upload_status_e movers::outcome_of(unsigned int req_id)
{
    bool is_through = false;
    bool has_failed = false;
    GList *retried = nullptr;
    found(_common_storage_check_all_file_completed_by_req_id, signed_id(req_id), &is_through);
    found(_common_storage_check_all_file_failed_by_req_id, signed_id(req_id), &has_failed);
    found(_common_storage_get_sync_content_info_list_by_req_id, ZEL_UNKNOWN, ZEL_SYNC_FAILED, &retried,
          signed_id(req_id));
    if (!take_transfers(retried).empty() || !is_through)
        return QUILLO_UPLOAD_STATUS_NONE;
    return has_failed ? QUILLO_UPLOAD_STATUS_FAILED : QUILLO_UPLOAD_STATUS_FINISHED;
}

/** Ends an upload whose files are through. A file that was given up does not keep the others from being shared. */
void movers::conclude(unsigned int req_id)
{
    const quillo_upload_status_e status = upload_status_of(req_id);
    if (status == QUILLO_UPLOAD_STATUS_PROGRESSING)
        if (const auto outcome = outcome_of(req_id); outcome != QUILLO_UPLOAD_STATUS_NONE)
            set_upload_status(req_id, outcome);
    if (upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED && server_ != origin::foreign)
        shares_.try_emplace(req_id, clock::now());
    if (status == QUILLO_UPLOAD_STATUS_NONE || status != upload_status_of(req_id))
        door_.tell_state(req_id);
}

/** Has the server make a share of an upload's files, and tell their recipients. */
void movers::share_upload(unsigned int req_id, remote &server)
try {
    if (server_ == origin::unknown)
        server_ = server.is_ours() ? origin::ours : origin::foreign;
    if (server_ == origin::ours) {
        zel_trans_upload_info *report = nullptr;
        found(_common_storage_get_upload_data, req_id, &report);
        const upload_report upload(report);
        const share record(g_new0(zel_trans_share_content_info, 1));
        record->description = g_strdup("Sent with share");
        record->type = g_strdup("files");
        record->from_msisdn = g_strdup(settings_.number.c_str());
        std::string recipients;
        for (size_t i = 0; upload && i < upload->msisdn_count; ++i)
            if (const quillo_msisdn_s *one = upload->msisdn_list[i])
                recipients += (i > 0 ? ", +" : "+") + text_of(one->ccc) + text_of(one->phone_number);
        record->to_list = g_strdup(recipients.c_str());
        for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
            if (row->status == ZEL_SYNC_COMPLETE)
                add_item(*record, text_of(row->original), text_of(row->name));
        const remote::issued_share issued = server.issue(*record);
        write(_common_storage_update_contents_token_info, signed_id(req_id), issued.token.c_str(), issued.expires);
    }
    const std::lock_guard lock(schedule_);
    if (refusals_.erase(req_id) > 0)
        forget_trouble(key_of_request(req_id));
    if (server_ == origin::ours && upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED) // not cancelled meanwhile
        set_upload_status(req_id, QUILLO_UPLOAD_STATUS_SHARE_FINISHED);
    door_.tell_state(req_id);
} catch (const failure &reason) {
    if (is_stopping_)
        return;
    note_trouble(key_of_request(req_id), reason.code, reason.what());
    const std::lock_guard lock(schedule_);
    shares_[req_id] = due_after(refusals_[req_id]++);
    door_.tell_state(req_id);
}

} // namespace sharing
