#include "movers.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <utility>

#include "routes.h"

namespace demo
{

namespace
{

constexpr zel_file_sync_type all_kinds[] = {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE};
constexpr size_t thread_count = 3;
constexpr char log_tag[] = "SHARING_DEMO";

} // namespace

movers::movers(server &remote, size_t chunk_size, bool dies_midway)
    : remote_(remote), chunk_size_(chunk_size), dies_midway_(dies_midway)
{
    for (const zel_file_sync_type kind : all_kinds)
        must(_common_storage_set_all_status_sync_content_info(kind, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO));
    for (const zel_file_sync_status paused : {ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO})
        must(_common_storage_set_all_status_sync_content_info(ZEL_UPLOAD_FILE, paused, ZEL_SYNC_TODO));
    for (const unsigned int req_id : unfinished_uploads()) {
        const quillo_upload_status_e status = upload_status_of(req_id);
        if (status == QUILLO_UPLOAD_STATUS_PAUSED)
            set_upload_status(req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
        if (status == QUILLO_UPLOAD_STATUS_NONE) // it was never stored as a whole
            must(_common_storage_delete_upload_info(req_id));
        else
            conclude_upload(req_id);
    }
}

movers::~movers()
{
    is_stopping_ = true;
    wake();
    for (const auto &thread : threads_)
        thread->join(); // they wake one another
}

void movers::start()
{
    for (size_t i = 0; i < thread_count; ++i)
        threads_.push_back(std::make_unique<worker>([this](worker &self) { work(self); }));
    for (const auto &thread : threads_)
        thread->start();
}

void movers::wake()
{
    for (const auto &thread : threads_)
        thread->wake();
}

void movers::pause_or_resume(unsigned int req_id, bool is_pause)
{
    const std::lock_guard lock(schedule_);
    unsigned int *ids = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_req_id_by_sync_type_and_status(ZEL_UPLOAD_FILE, &ids, &count, is_pause));
    const array<unsigned int> owned(ids);
    if (std::find(ids, ids + count, req_id) == ids + count)
        throw failure(is_pause ? ZEL_ERR_NO_PAUSABLE_REQ_ID : ZEL_ERR_NO_RESUMABLE_REQ_ID, "It is too late for that.");
    set_upload_status(req_id, is_pause ? QUILLO_UPLOAD_STATUS_PAUSED : QUILLO_UPLOAD_STATUS_PROGRESSING);
    move_status(req_id, is_pause ? ZEL_SYNC_PAUSED : ZEL_SYNC_TODO, is_pause ? ZEL_SYNC_ONGOING : ZEL_SYNC_PAUSED);
    if (is_pause)
        move_status(req_id, ZEL_SYNC_PAUSED_TODO, ZEL_SYNC_TODO);
    else
        move_status(req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED_TODO);
    wake();
}

void movers::work(worker &self)
{
    try {
        while (!is_stopping_) {
            if (const transfer row = next_transfer())
                close(*row, move_file(*row));
            else
                self.sleep();
        }
    } catch (const std::exception &reason) {
        tell_progress(reason.what());
    }
}

transfer movers::next_transfer()
{
    const std::lock_guard lock(schedule_);
    for (const zel_file_sync_type kind : all_kinds)
        if (!claim(kind, ZEL_SYNC_TODO))
            claim(kind, ZEL_SYNC_FAILED);
    if (ready_.empty())
        return nullptr;
    transfer row = std::move(ready_.front());
    ready_.pop_front();
    if (!ready_.empty())
        wake();
    return row;
}

/** Tops the batch up with transfers that wait, or with failed ones, the least often retried first. */
bool movers::claim(zel_file_sync_type kind, zel_file_sync_status status)
{
    const bool is_retry = status == ZEL_SYNC_FAILED;
    const int places = _common_storage_get_batch_count(kind, ZEL_SYNC_ONGOING, is_retry);
    GList *list = nullptr;
    if (!found(_common_storage_get_sync_content_info_list(kind, status, &list, places)))
        return false;
    bool has_claimed = false;
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
            must(_common_storage_update_sync_content_info(row.get()));
        } else {
            must(_common_storage_update_status_sync_content_info_by_sync_id(signed_id(row->sync_id), ZEL_SYNC_ONGOING,
                                                                            status));
        }
        claimed_.insert(row->sync_id);
        ready_.push_back(std::move(row));
        has_claimed = true;
    }
    return has_claimed;
}

/** A download may always run; an upload when it is stored as a whole and not paused. */
bool movers::may_run(const zel_content_sync_info &row)
{
    if (row.type != ZEL_UPLOAD_FILE)
        return true;
    const quillo_upload_status_e status = upload_status_of(row.req_id);
    if (status == QUILLO_UPLOAD_STATUS_STARTED)
        set_upload_status(row.req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    return status == QUILLO_UPLOAD_STATUS_STARTED || status == QUILLO_UPLOAD_STATUS_PROGRESSING;
}

zel_err_e movers::move_file(const zel_content_sync_info &row)
{
    const int id = signed_id(row.sync_id);
    const std::unique_ptr<route> way = route_of(row, remote_, chunk_size_);
    unsigned long long stored = row.percentage;
    const auto record = [&](const position &at) {
        must(_common_storage_update_upload_info(id, static_cast<unsigned int>(at.offset), at.chunk_no));
        const unsigned long long percentage = way->size() > 0 ? at.offset * 100 / way->size() : 100;
        if (std::exchange(stored, percentage) != percentage)
            must(_common_storage_update_percentage_sync_content_info(id, static_cast<unsigned int>(percentage)));
        tell_progress();
    };

    // The store may be a chunk behind, if the last service died before it recorded what had arrived: the receiving end
    // knows better.
    position at;
    zel_err_e result = way->begin(at);
    if (result != ZEL_ERR_NONE)
        return result;
    if (at != position{row.offset, row.chunk_no} || way->size() == 0)
        record(at);
    while (at.offset < way->size()) {
        zel_content_sync_info *now = nullptr;
        must(_common_storage_get_sync_content_info_by_sync_id(id, &now));
        if (is_stopping_ || transfer(now)->status != ZEL_SYNC_ONGOING)
            return ZEL_ERR_REQ_PAUSED;
        result = way->move_chunk(at);
        if (result != ZEL_ERR_NONE)
            return result;
        if (dies_midway_ && row.type == ZEL_UPLOAD_FILE && at.chunk_no > 2 && at.offset >= way->size() / 2 &&
            at.offset < way->size())
            raise(SIGKILL);
        record(at);
    }
    way->finish();
    return ZEL_ERR_NONE;
}

/** Records how a transfer ended, unless a pause came first, and what follows from it. */
void movers::close(const zel_content_sync_info &row, zel_err_e result)
{
    const std::lock_guard lock(schedule_);
    if (result != ZEL_ERR_REQ_PAUSED) {
        const zel_file_sync_status end = result == ZEL_ERR_NONE ? ZEL_SYNC_COMPLETE : ZEL_SYNC_FAILED;
        dlog_print(end == ZEL_SYNC_COMPLETE ? DLOG_INFO : DLOG_WARN, log_tag, "transfer %u of %s: result %d\n",
                   row.sync_id, row.name, result);
        must(_common_storage_update_status_sync_content_info_by_sync_id(signed_id(row.sync_id), end, ZEL_SYNC_ONGOING));
    }
    claimed_.erase(row.sync_id);
    if (row.type == ZEL_UPLOAD_FILE)
        conclude_upload(row.req_id);
    int left = 0;
    if (row.type == ZEL_DOWNLOAD_FILE &&
        found(_common_storage_get_content_info_not_downloaded_count(row.contents_token, &left)) && left == 0)
        must(_common_storage_update_read_push_noti(server::share_type));
    tell_progress();
}

/** Ends an upload whose files are through: with the server's token, or as failed. */
void movers::conclude_upload(unsigned int req_id)
{
    if (upload_status_of(req_id) != QUILLO_UPLOAD_STATUS_PROGRESSING || !is_done(ZEL_UPLOAD_FILE, req_id))
        return;
    int failed = 0;
    if (found(_common_storage_get_sync_content_info_count_for_req_id(ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, -1, &failed,
                                                                     req_id))) {
        set_upload_status(req_id, QUILLO_UPLOAD_STATUS_FAILED);
        return;
    }
    unsigned long long expired_time = 0;
    const std::string token = remote_.finish(req_id, expired_time);
    must(_common_storage_update_contents_token_info(signed_id(req_id), token.c_str(), expired_time));
    set_upload_status(req_id, QUILLO_UPLOAD_STATUS_FINISHED);
}

bool movers::is_done(zel_file_sync_type kind, unsigned int req_id)
{
    bool is_done = false;
    must(_common_storage_check_all_file_completed_by_req_id(signed_id(req_id), &is_done));
    GList *list = nullptr;
    const bool is_retried =
        found(_common_storage_get_sync_content_info_list_by_req_id(kind, ZEL_SYNC_FAILED, &list, signed_id(req_id)));
    take_transfers(list);
    return is_done && !is_retried;
}

bool movers::is_settled(zel_file_sync_type kind, unsigned int req_id)
{
    const std::lock_guard lock(schedule_);
    if (kind != ZEL_UPLOAD_FILE)
        return is_done(kind, req_id);
    const quillo_upload_status_e status = upload_status_of(req_id);
    return status == QUILLO_UPLOAD_STATUS_FINISHED || status == QUILLO_UPLOAD_STATUS_FAILED;
}

bool movers::is_busy()
{
    const std::lock_guard lock(schedule_);
    return !claimed_.empty();
}

void movers::wait_for_progress()
{
    std::unique_lock lock(progress_mutex_);
    progress_.wait_for(lock, std::chrono::milliseconds(100), [this] { return has_progressed_; });
    has_progressed_ = false;
    if (!breakdown_.empty())
        throw failure(ZEL_ERR_INTERNAL_ERROR, breakdown_);
}

void movers::tell_progress(const std::string &breakdown)
{
    const std::lock_guard lock(progress_mutex_);
    has_progressed_ = true;
    if (!breakdown.empty())
        breakdown_ = breakdown;
    progress_.notify_all();
}

} // namespace demo
