#include "movers.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>

#include "place.h"
#include "zel_platform.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace sharing
{

constexpr size_t thread_count = 3;
constexpr zel_file_sync_type all_kinds[] = {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE};

static bool is_running(quillo_upload_status_e status)
{
    return status == QUILLO_UPLOAD_STATUS_STARTED || status == QUILLO_UPLOAD_STATUS_PROGRESSING;
}

static bool can_go_on(const zel_content_sync_info &row)
{
    return row.status == ZEL_SYNC_TODO || row.status == ZEL_SYNC_ONGOING ||
           (row.status == ZEL_SYNC_FAILED && !is_given_up(row));
}

static size_t count_of(const std::vector<transfer> &rows, bool (*is_counted)(const zel_content_sync_info &))
{
    return static_cast<size_t>(std::ranges::count_if(rows, [&](const transfer &row) { return is_counted(*row); }));
}

static bool is_paused(const zel_content_sync_info &row)
{
    return row.status == ZEL_SYNC_PAUSED || row.status == ZEL_SYNC_PAUSED_TODO;
}

static bool is_complete(const zel_content_sync_info &row)
{
    return row.status == ZEL_SYNC_COMPLETE;
}

/* What has become of a request ------------------------------------------------------------------------------------ */

quillo_upload_status_e movers::status_of(unsigned int req_id) const
{
    const zel_file_sync_type kind = kind_of(req_id); // none when it was cancelled before anything of it was complete
    const auto fetched = kind == ZEL_UPLOAD_FILE ? std::nullopt : fetch_of(req_id);
    if (fetched && fetched->is_cancelled)
        return QUILLO_UPLOAD_STATUS_CANCELLED;
    if (!fetched && kind != ZEL_DOWNLOAD_THUMBNAIL)
        return upload_status_of(req_id);
    const auto rows = transfers_of(kind, req_id);
    if (count_of(rows, is_paused) > 0)
        return QUILLO_UPLOAD_STATUS_PAUSED;
    if (count_of(rows, can_go_on) > 0)
        return QUILLO_UPLOAD_STATUS_PROGRESSING;
    const bool is_whole = count_of(rows, is_complete) == rows.size() && (!fetched || rows.size() >= fetched->items);
    return is_whole ? QUILLO_UPLOAD_STATUS_FINISHED : QUILLO_UPLOAD_STATUS_FAILED;
}

bool movers::is_settled(unsigned int req_id) const
{
    switch (status_of(req_id)) {
    case QUILLO_UPLOAD_STATUS_FINISHED: // an upload is shared then, if the server has shares
        return kind_of(req_id) != ZEL_UPLOAD_FILE || knows_tus_only_;
    case QUILLO_UPLOAD_STATUS_FAILED:
    case QUILLO_UPLOAD_STATUS_CANCELLED:
    case QUILLO_UPLOAD_STATUS_SHARE_FINISHED:
    case QUILLO_UPLOAD_STATUS_SHARE_RECALLED:
        return true;
    default:
        return false;
    }
}

/** Whether a transfer's request wants it moved. */
bool movers::goes_on(const zel_content_sync_info &row) const
{
    if (row.type == ZEL_UPLOAD_FILE)
        return can_go_on(row) && is_running(upload_status_of(row.req_id));
    const auto fetched = row.type == ZEL_DOWNLOAD_FILE ? fetch_of(row.req_id) : fetch();
    return can_go_on(row) && fetched && !fetched->is_cancelled; // thumbnails count one by one
}

/* Waiting --------------------------------------------------------------------------------------------------------- */

static waiting waiting_for(const std::exception &reason, unsigned long long since)
{
    const failure known = as_failure(reason);
    return {since > 0 ? since : _common_util_get_current_unix_time(),
            {_common_util_convert_service_error_to_client_error(known.code), known.what()}};
}

/** Notes whether the server could be reached by what has just ended, for a reason if it failed. */
void movers::note_outage(const std::exception *reason, bool has_answered)
{
    const std::lock_guard lock(waits_mutex_);
    outage_.is_looked_at = false;
    if (reason && as_failure(*reason).code == ZEL_ERR_NETWORK_FAILURE) {
        if (outage_.due > clock::now()) // others have found out at the same moment
            return;
        outage_.pause = std::clamp(outage_.pause * 2, chosen_.first_pause, chosen_.longest_pause);
        outage_.due = clock::now() + outage_.pause;
        outage_.why = waiting_for(*reason, outage_.why ? outage_.why->since : 0);
        dlog_print(DLOG_WARN, log_tag, "%s Next try in %lld ms.\n", reason->what(),
                   static_cast<long long>(outage_.pause.count()));
    } else if (has_answered) {
        outage_ = {};
    }
}

/** Has something tried again after a pause, which grows with each further one. */
void movers::delay(turn &one, waits &kind, unsigned int id, const std::exception &reason)
{
    if (as_failure(reason).code == ZEL_ERR_NETWORK_FAILURE)
        return; // the outage holds up all
    one.pause = std::clamp(one.pause * 2, chosen_.first_pause, chosen_.longest_pause);
    one.due = clock::now() + one.pause;
    if (!is_passing(reason))
        return;
    const std::lock_guard lock(waits_mutex_);
    waiting &noted = kind[id];
    noted = waiting_for(reason, noted.since);
}

void movers::end_wait(waits &kind, unsigned int id)
{
    const std::lock_guard lock(waits_mutex_);
    kind.erase(id);
}

static std::optional<waiting> wait_in(const std::map<unsigned int, waiting> &kind, unsigned int id)
{
    const auto found = kind.find(id);
    return found == kind.end() ? std::nullopt : std::optional(found->second);
}

std::optional<waiting> movers::wait_of_transfer(unsigned int sync_id) const
{
    const std::lock_guard lock(waits_mutex_);
    return outage_.why ? outage_.why : wait_in(transfer_waits_, sync_id);
}

std::optional<waiting> movers::wait_of_share(unsigned int req_id) const
{
    const std::lock_guard lock(waits_mutex_);
    return outage_.why ? outage_.why : wait_in(share_waits_, req_id);
}

/* Requests -------------------------------------------------------------------------------------------------------- */

/** Gives a turn to each transfer of a request that can go on. */
void movers::load(unsigned int req_id)
{
    if (!is_running(status_of(req_id)))
        return;
    for (const transfer &row : transfers_of(kind_of(req_id), req_id))
        if (can_go_on(*row))
            turns_[req_id].try_emplace(row->sync_id);
    changed_.notify_all();
}

/** Takes the turns of a request away; what is being moved ends as soon as it notices. */
void movers::call_off(unsigned int req_id)
{
    auto &transfers = turns_[req_id];
    for (auto &[sync_id, one] : transfers) {
        one.is_called_off = true;
        end_wait(transfer_waits_, sync_id);
    }
    std::erase_if(transfers, [](const auto &one) { return !one.second.is_taken; });
    if (transfers.empty())
        turns_.erase(req_id);
}

/** Ends an upload whose files are through. A file that was given up does not keep the others from being shared. */
void movers::conclude(unsigned int req_id)
{
    const auto stored = upload_status_of(req_id);
    if (is_running(stored) && !turns_.contains(req_id)) {
        const auto rows = transfers_of(ZEL_UPLOAD_FILE, req_id);
        if (count_of(rows, can_go_on) == 0)
            store(_common_storage_update_upload_status, req_id,
                  count_of(rows, is_complete) > 0 ? QUILLO_UPLOAD_STATUS_FINISHED : QUILLO_UPLOAD_STATUS_FAILED);
    }
    if (upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED && !knows_tus_only_) {
        shares_.try_emplace(req_id);
        changed_.notify_all();
    }
    if (stored != upload_status_of(req_id))
        news_.state(req_id);
}

void movers::take_up(unsigned int req_id)
{
    const std::lock_guard lock(steps_);
    load(req_id);
    news_.state(req_id);
}

void movers::pause_request(unsigned int req_id)
{
    const std::lock_guard lock(steps_);
    const auto rows = transfers_of(kind_of(req_id), req_id);
    require(is_running(status_of(req_id)) && count_of(rows, can_go_on) > 0, ZEL_ERR_NO_PAUSABLE_REQ_ID,
            "There is nothing of this request to be paused.");
    call_off(req_id);
    store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PAUSED);
    store(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_PAUSED, ZEL_SYNC_ONGOING);
    store(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_PAUSED_TODO, ZEL_SYNC_TODO);
    for (const transfer &row : rows)
        if (row->status == ZEL_SYNC_FAILED && can_go_on(*row))
            store(_common_storage_update_status_sync_content_info_by_sync_id, row->sync_id, ZEL_SYNC_PAUSED_TODO,
                  ZEL_SYNC_FAILED);
    news_.state(req_id);
}

/** What a share has been, or is being, made of; see post_share. */
static std::string share_key(unsigned int req_id)
{
    return "sharingd.share." + std::to_string(req_id);
}

size_t movers::retry_given_up(unsigned int req_id)
{
    const zel_file_sync_type kind = kind_of(req_id);
    const auto rows = transfers_of(kind, req_id);
    const size_t count = count_of(rows, is_given_up);
    if (count > 0 && kind == ZEL_UPLOAD_FILE) {
        if (auto shared = entry_at(share_key(req_id))) { // what comes now makes another share
            if (upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_SHARE_FINISHED)
                shared->extra[1] += shared->extra[0];
            set_entry(share_key(req_id), {"", {"", shared->extra[1]}});
        }
        store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    }
    for (const transfer &row : rows)
        if (is_given_up(*row)) {
            set_retries(*row, ZEL_SYNC_TODO, 0);
            clear_trouble("transfer", row->sync_id);
        }
    return count;
}

void movers::retry(unsigned int req_id)
{
    const std::lock_guard lock(steps_);
    retry_given_up(req_id);
    load(req_id);
    news_.state(req_id);
}

void movers::resume_request(unsigned int req_id)
{
    const std::lock_guard lock(steps_);
    const auto status = status_of(req_id);
    require(status != QUILLO_UPLOAD_STATUS_CANCELLED && status != QUILLO_UPLOAD_STATUS_NONE,
            ZEL_ERR_NO_RESUMABLE_REQ_ID, "There is nothing of this request to be resumed.");
    const size_t retried = retry_given_up(req_id);
    const bool was_refused = status == QUILLO_UPLOAD_STATUS_FAILED && !trouble_of("request", req_id).sentence.empty();
    require(retried > 0 || was_refused || status == QUILLO_UPLOAD_STATUS_PAUSED, ZEL_ERR_NO_RESUMABLE_REQ_ID,
            "It is not paused, and nothing of it was given up.");
    store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    store(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED);
    store(_common_storage_update_status_sync_content_info_by_req_id, req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED_TODO);
    clear_trouble("request", req_id);
    load(req_id);
    conclude(req_id); // the pause may have come after the last chunk
    news_.state(req_id);
}

void movers::cancel_request(unsigned int req_id)
{
    const std::lock_guard lock(steps_);
    const zel_file_sync_type kind = kind_of(req_id);
    require(kind != ZEL_UNKNOWN && !is_settled(req_id), ZEL_ERR_NO_CANCELLABLE_REQ_ID,
            "There is nothing of this request to be cancelled.");
    // That it is cancelled comes first; a start goes on with what follows.
    if (auto fetched = fetch_of(req_id)) {
        fetched->is_cancelled = true;
        set_fetch(req_id, *fetched);
    }
    store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_CANCELLED);
    call_off(req_id);
    if (const auto due = shares_.find(req_id); due != shares_.end() && !due->second.is_taken)
        shares_.erase(due);
    const auto moving = turns_.find(req_id);
    for (const transfer &row : transfers_of(kind, req_id))
        if (!is_complete(*row) && (moving == turns_.end() || !moving->second.contains(row->sync_id)))
            remove_unfinished(*row); // record_end() does it for what is being moved
    news_.state(req_id);
}

void movers::wipe(const std::function<void()> &everything)
{
    const std::lock_guard lock(steps_);
    const auto is_taken = [](const auto &one) { return one.second.is_taken; };
    require(std::ranges::none_of(shares_, is_taken) &&
                std::ranges::none_of(turns_, [&](const auto &of) { return std::ranges::any_of(of.second, is_taken); }),
            ZEL_ERR_REQUEST_FAILED, "Files are on their way; wait, or cancel their requests.");
    turns_.clear();
    shares_.clear();
    everything();
    const std::lock_guard also(waits_mutex_);
    transfer_waits_.clear();
    share_waits_.clear();
}

/* Transfers ------------------------------------------------------------------------------------------------------- */

/** Takes up the transfer that is next; NULL when none may go on now. */
transfer movers::next_transfer()
{
    const auto now = clock::now();
    std::vector<unsigned int> requests; // those after the last one that was served come first
    for (const auto &[req_id, transfers] : turns_)
        requests.push_back(req_id);
    std::rotate(requests.begin(), std::ranges::upper_bound(requests, last_served_), requests.end());
    for (const unsigned int req_id : requests)
        for (auto one = turns_[req_id].begin(); one != turns_[req_id].end();) {
            auto &[sync_id, turn] = *one;
            if (turn.is_taken || turn.due > now) {
                ++one;
                continue;
            }
            transfer row = transfer_of(sync_id);
            if (!row || !goes_on(*row)) {
                one = turns_[req_id].erase(one);
                continue;
            }
            if (row->type == ZEL_UPLOAD_FILE && upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_STARTED)
                store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
            // The record keeps the status it had: record_end() counts a retry that fails.
            store(_common_storage_update_status_sync_content_info, sync_id, ZEL_SYNC_ONGOING);
            turn.is_taken = true;
            last_served_ = req_id;
            return row;
        }
    std::erase_if(turns_, [](const auto &of) { return of.second.empty(); });
    return nullptr;
}

void movers::run_transfer(zel_content_sync_info row, http_client &server)
{
    const bool was_failed = row.status == ZEL_SYNC_FAILED;
    const turn *mine = nullptr;
    {
        const std::lock_guard lock(steps_);
        mine = &turns_.at(row.req_id).at(row.sync_id);
    }
    const unsigned int start = row.offset;
    auto told = clock::now();
    const auto tell = [&](unsigned long long offset, unsigned long long size) {
        require(!mine->is_called_off && !is_stopping, ZEL_ERR_REQ_PAUSED, "It was called off.");
        const auto percentage = static_cast<unsigned int>(size > 0 ? offset * 100 / size : 100);
        if (percentage == row.percentage && clock::now() - told < milliseconds(100))
            return;
        told = clock::now();
        row.chunk_no += offset > row.offset ? 1 : 0;
        row.offset = static_cast<unsigned int>(offset);
        row.percentage = percentage;
        row.status = ZEL_SYNC_ONGOING;
        // One try each: the receiving end knows better, this is to be seen.
        _common_storage_update_upload_info(static_cast<int>(row.sync_id), row.offset, row.chunk_no);
        _common_storage_update_percentage_sync_content_info(static_cast<int>(row.sync_id), percentage);
        news_.progress(row);
    };
    const auto answers = server.answers();
    std::unique_ptr<failure> reason;
    try {
        tell(row.offset, 0);
        move_file(chosen_, row, server, tell);
    } catch (const std::exception &caught) {
        reason = std::make_unique<failure>(as_failure(caught));
    }
    note_outage(reason.get(), server.answers() > answers);
    row.status = was_failed ? ZEL_SYNC_FAILED : ZEL_SYNC_TODO;
    for (bool is_closed = false; !is_closed && !is_stopping;)
        try {
            record_end(row, reason.get(), row.offset > start);
            is_closed = true;
        } catch (const std::exception &refusal) { // the row is in nobody else's hands
            dlog_print(DLOG_ERROR, log_tag, "transfer %u: %s\n", row.sync_id, refusal.what());
            std::this_thread::sleep_for(milliseconds(500));
        }
}

/** Records how a transfer ended, and what follows from it. */
void movers::record_end(const zel_content_sync_info &row, const std::exception *reason, bool has_moved)
{
    const std::lock_guard lock(steps_);
    turn &mine = turns_.at(row.req_id).at(row.sync_id);
    const zel_err_e code = reason ? as_failure(*reason).code : ZEL_ERR_NONE;
    dlog_print(reason ? DLOG_WARN : DLOG_INFO, log_tag, "transfer %u: %s\n", row.sync_id,
               reason ? reason->what() : "done");
    if (!reason || has_moved) {
        mine.pause = {};
        end_wait(transfer_waits_, row.sync_id);
    }
    transfer stored = transfer_of(row.sync_id);
    const auto fetched = row.type == ZEL_DOWNLOAD_FILE ? fetch_of(row.req_id) : std::nullopt;
    const bool is_cancelled = row.type == ZEL_UPLOAD_FILE
                                  ? upload_status_of(row.req_id) == QUILLO_UPLOAD_STATUS_CANCELLED
                                  : fetched && fetched->is_cancelled;
    if (stored && !reason) {
        store(_common_storage_update_upload_info, row.sync_id, row.offset, row.chunk_no);
        store(_common_storage_update_percentage_sync_content_info, row.sync_id, 100);
        clear_trouble("transfer", row.sync_id);
        store(_common_storage_update_status_sync_content_info, row.sync_id, ZEL_SYNC_COMPLETE);
    } else if (stored && is_cancelled) {
        remove_unfinished(*stored);
    } else if (stored && (code == ZEL_ERR_REQ_PAUSED || is_passing(*reason))) {
        store(_common_storage_update_status_sync_content_info_by_sync_id, row.sync_id, row.status, ZEL_SYNC_ONGOING);
        if (code != ZEL_ERR_REQ_PAUSED)
            delay(mine, transfer_waits_, row.sync_id, *reason);
    } else if (stored) {
        const unsigned int retries = stored->fail_retry_count + (row.status == ZEL_SYNC_FAILED ? 1 : 0);
        set_trouble("transfer", row.sync_id, as_failure(*reason));
        set_retries(*stored, ZEL_SYNC_FAILED, code == ZEL_ERR_INVALID_FILE ? max_retries + 1 : retries);
        delay(mine, transfer_waits_, row.sync_id, *reason);
        if (row.type == ZEL_DOWNLOAD_FILE && is_given_up(*stored))
            free_name(*stored);
    }
    stored = transfer_of(row.sync_id);
    const bool is_next = stored && goes_on(*stored);
    if (is_next && !mine.is_called_off) {
        mine.is_taken = false;
    } else {
        turns_[row.req_id].erase(row.sync_id);
        if (is_next) // taken up again meanwhile
            turns_[row.req_id].try_emplace(row.sync_id);
        if (turns_[row.req_id].empty())
            turns_.erase(row.req_id);
    }
    if (stored)
        news_.progress(*stored);
    if (row.type == ZEL_UPLOAD_FILE)
        conclude(row.req_id);
    else if (!turns_.contains(row.req_id))
        news_.state(row.req_id);
    changed_.notify_all();
}

/* Shares ---------------------------------------------------------------------------------------------------------- */

/** The ids in a list of the form "1 2 3 ". */
static std::set<unsigned int> ids_in(const std::string &list)
{
    std::set<unsigned int> ids;
    for (const char *at = list.c_str(); *at;) {
        char *end = nullptr;
        ids.insert(static_cast<unsigned int>(std::strtoul(at, &end, 10)));
        at = *end ? end + 1 : end;
    }
    return ids;
}

/** The share that some of an upload's files make. */
static std::string share_of(unsigned int req_id, const std::set<unsigned int> &files, const std::string &number)
{
    const upload_report upload(value_of<zel_trans_upload_info *>(_common_storage_get_upload_data, req_id));
    require(upload != nullptr, ZEL_ERR_INVALID_REQ_ID, "The upload is not there any more.");
    std::string recipients;
    for (size_t i = 0; i < upload->msisdn_count; ++i)
        if (const quillo_msisdn_s *one = upload->msisdn_list[i])
            recipients += (recipients.empty() ? "+" : ", +") + text_of(one->ccc) + text_of(one->phone_number);
    char *description = nullptr;
    unsigned int type = 0;
    found(_common_storage_get_upload_app_info, req_id, &type, &description);
    const share record(g_new0(zel_trans_share_content_info, 1));
    record->description = description;
    record->type = g_strdup("files");
    record->from_msisdn = g_strdup(number.c_str());
    record->to_list = g_strdup(recipients.c_str());
    for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
        if (files.contains(row->sync_id)) {
            auto *item = g_new0(share_item, 1);
            item->original = g_strdup(row->original);
            item->name = g_strdup(row->name);
            record->content_info_list = g_list_prepend(record->content_info_list, item);
        }
    record->content_info_list = g_list_reverse(record->content_info_list);
    return encode(*record);
}

/** Sends again what the server has forgotten of an upload's files; whether there is any. */
bool movers::send_forgotten_again(unsigned int req_id, http_client &server)
{
    std::vector<transfer> forgotten = transfers_of(ZEL_UPLOAD_FILE, req_id);
    std::erase_if(forgotten, [&](const transfer &row) { return !is_complete(*row) || is_on_server(*row, server); });
    if (forgotten.empty())
        return false;
    const std::lock_guard lock(steps_);
    if (upload_status_of(req_id) != QUILLO_UPLOAD_STATUS_FINISHED) // cancelled meanwhile
        return true;
    const auto planned = entry_at(share_key(req_id));
    set_entry(share_key(req_id), {"", {"", planned ? planned->extra[1] : ""}});
    store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_PROGRESSING);
    for (const transfer &row : forgotten) {
        const unsigned int retries = row->fail_retry_count + 1; // a server that always forgets comes to an end
        store(_common_storage_update_mupload_key_sync_content_info, row->sync_id, nullptr);
        set_trouble("transfer", row->sync_id,
                    failure(ZEL_ERR_RESOURCE_DOESNT_EXIST, "The server has forgotten the file."));
        set_retries(*row, retries > max_retries ? ZEL_SYNC_FAILED : ZEL_SYNC_TODO, retries);
    }
    shares_.erase(req_id);
    load(req_id);
    conclude(req_id);
    return true;
}

/** Ends an upload whose share the server does not take. */
void movers::fail_share(unsigned int req_id, const failure &reason)
{
    const std::lock_guard lock(steps_);
    set_trouble("request", req_id, reason);
    if (upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED)
        store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_FAILED);
    shares_.erase(req_id);
    news_.state(req_id);
}

/**
 * Has the server make a share of an upload's files. Its contents are stored under share_key before the
 * first try. So each further try is the same, and the server knows a repeat by its key:
 *
 *   value  the random key;
 *   1st    the transfers in it, "1 2 3 ";
 *   2nd    the transfers in earlier shares of the request.
 */
void movers::post_share(unsigned int req_id, http_client &server)
{
    const http_answer options = server.ask({.method = "OPTIONS", .url = chosen_.server});
    if (options.status >= 500 || options.status == 429)
        refuse(options, "OPTIONS");
    knows_tus_only_ = options.header("sharing-extension").empty();
    if (knows_tus_only_) {
        const std::lock_guard lock(steps_);
        shares_.erase(req_id);
        news_.state(req_id);
        return;
    }
    entry plan = entry_at(share_key(req_id)).value_or(entry());
    if (plan.value.empty()) {
        const auto shared = ids_in(plan.extra[1]);
        for (const transfer &row : transfers_of(ZEL_UPLOAD_FILE, req_id))
            if (is_complete(*row) && !shared.contains(row->sync_id))
                plan.extra[0] += std::to_string(row->sync_id) + " ";
        const text unique(g_uuid_string_random());
        plan.value = unique.get();
        std::erase(plan.value, '-');
        set_entry(share_key(req_id), plan);
    }
    const http_answer answer =
        server.ask({.method = "POST",
                    .url = "/shares",
                    .headers = {{"Content-Type", "application/octet-stream"}, {"Share-Key", plan.value}},
                    .body = share_of(req_id, ids_in(plan.extra[0]), chosen_.number)});
    if (answer.status / 100 != 2) {
        try {
            refuse(answer, "POST");
        } catch (const failure &reason) {
            if (is_passing(reason) || answer.status / 100 == 5)
                throw;
            if (!send_forgotten_again(req_id, server))
                fail_share(req_id, reason);
            return;
        }
    }
    const std::string token = answer.header("contents-token");
    require(!token.empty() && token.size() <= 200, ZEL_ERR_BAD_JSON_FORMAT, "The server issued no token.");
    store(_common_storage_update_contents_token_info, req_id, token.c_str(), answer.number("expires-milliseconds"));
    const std::lock_guard lock(steps_);
    if (upload_status_of(req_id) == QUILLO_UPLOAD_STATUS_FINISHED) // not cancelled meanwhile
        store(_common_storage_update_upload_status, req_id, QUILLO_UPLOAD_STATUS_SHARE_FINISHED);
    clear_trouble("request", req_id);
    shares_.erase(req_id);
    news_.state(req_id);
}

void movers::share_files(unsigned int req_id, http_client &server)
{
    const auto answers = server.answers();
    std::unique_ptr<failure> reason;
    try {
        post_share(req_id, server);
        end_wait(share_waits_, req_id);
    } catch (const std::exception &caught) {
        reason = std::make_unique<failure>(as_failure(caught));
    }
    note_outage(reason.get(), server.answers() > answers);
    if (!reason || is_stopping)
        return;
    dlog_print(DLOG_WARN, log_tag, "share of request %u: %s\n", req_id, reason->what());
    bool is_given_up = false;
    {
        const std::lock_guard lock(steps_);
        if (const auto mine = shares_.find(req_id); mine != shares_.end()) {
            mine->second.is_taken = false;
            delay(mine->second, share_waits_, req_id, *reason);
            is_given_up = !is_passing(*reason) && ++mine->second.failures > max_retries;
            news_.state(req_id);
        }
    }
    if (is_given_up)
        fail_share(req_id, *reason);
}

/* The threads ----------------------------------------------------------------------------------------------------- */

/** Takes up the share or the transfer that is next; nothing when there is none. */
std::function<void(http_client &)> movers::next_job()
{
    const auto look_at_outage = [&](bool takes_up) {
        const std::lock_guard lock(waits_mutex_);
        const bool is_held_up = outage_.why && (outage_.is_looked_at || outage_.due > clock::now());
        outage_.is_looked_at |= takes_up && outage_.why;
        return is_held_up;
    };
    if (look_at_outage(false))
        return nullptr;
    std::function<void(http_client &)> job;
    for (auto &[req_id, turn] : shares_)
        if (!turn.is_taken && turn.due <= clock::now()) {
            turn.is_taken = true;
            job = [this, id = req_id](http_client &server) { share_files(id, server); };
            break;
        }
    if (!job)
        if (std::shared_ptr<zel_content_sync_info> row = next_transfer())
            job = [this, row](http_client &server) { run_transfer(*row, server); };
    if (job)
        look_at_outage(true);
    return job;
}

/** When there may be something to be done, unless it changes before. */
movers::clock::time_point movers::next_moment() const
{
    auto next = clock::now() + std::chrono::minutes(1);
    const auto look_at = [&](const auto &turns) {
        for (const auto &[id, one] : turns)
            if (!one.is_taken)
                next = std::min(next, one.due);
    };
    look_at(shares_);
    for (const auto &[req_id, transfers] : turns_)
        look_at(transfers);
    const std::lock_guard lock(waits_mutex_);
    return outage_.why ? outage_.due : next;
}

void movers::work()
{
    http_client server(chosen_);
    while (!is_stopping)
        try {
            std::unique_lock lock(steps_);
            if (const auto job = next_job()) {
                lock.unlock();
                job(server);
                changed_.notify_all();
                continue;
            }
            changed_.wait_until(lock, std::max(next_moment(), clock::now() + milliseconds(10)));
        } catch (const std::exception &reason) {
            // The store would not have it; what is in it still counts, and is looked at again.
            dlog_print(DLOG_ERROR, log_tag, "%s\n", reason.what());
            std::this_thread::sleep_for(milliseconds(500));
        }
}

/** What a service that died was about to store, or to remove: what counts is stored last, what does not any more first.
 */
void movers::remove_what_never_counted()
{
    const auto list = all_uploads();
    const std::set<unsigned int> uploads(list.begin(), list.end());
    std::map<unsigned int, std::optional<fetch>> fetches;
    const auto counts = [&](const zel_content_sync_info &row) {
        if (row.type == ZEL_UPLOAD_FILE)
            return uploads.contains(row.req_id) && upload_status_of(row.req_id) != QUILLO_UPLOAD_STATUS_CANCELLED;
        if (row.type == ZEL_DOWNLOAD_THUMBNAIL)
            return true;
        if (!fetches.contains(row.req_id))
            fetches[row.req_id] = fetch_of(row.req_id);
        return fetches[row.req_id] && !fetches[row.req_id]->is_cancelled;
    };
    std::set<unsigned int> requests;
    for (const auto status : {ZEL_SYNC_TODO, ZEL_SYNC_FAILED, ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO})
        for (const transfer &row :
             transfers_from(_common_storage_get_sync_content_info_list, -1, ZEL_UNKNOWN, status)) {
            if (counts(*row)) {
                requests.insert(row->req_id);
            } else {
                if (row->type == ZEL_DOWNLOAD_FILE && !fetches[row->req_id])
                    remove_folder_key(text_of(row->contents_token), fs::path(row->local_path).parent_path(),
                                      row->req_id);
                remove_unfinished(*row);
            }
        }
    for (const auto &file : fs::directory_iterator(incoming_folder)) {
        const std::string name = file.path().filename();
        const bool is_left = name.ends_with(".left"); // see open_incoming
        const transfer row =
            is_left ? nullptr : transfer_of(static_cast<unsigned int>(std::strtoul(name.c_str(), nullptr, 10)));
        if (is_left)
            dlog_print(DLOG_WARN, log_tag, "left, since it may be somebody else's: %s\n", file.path().c_str());
        else if (!row || is_complete(*row))
            fs::remove(file.path());
    }
    for (const unsigned int req_id : requests)
        load(req_id);
    for (const unsigned int req_id : list)
        conclude(req_id);
}

void movers::start()
{
    for (const zel_file_sync_type kind : all_kinds)
        store(_common_storage_set_all_status_sync_content_info, kind, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO);
    {
        const std::lock_guard lock(steps_);
        remove_what_never_counted();
    }
    for (size_t i = 0; i < thread_count; ++i)
        threads_.push_back(std::async(std::launch::async, [this] { work(); }));
}

void movers::stop()
{
    for (const std::future<void> &thread : threads_)
        while (thread.wait_for(milliseconds(20)) != std::future_status::ready)
            changed_.notify_all();
}

} // namespace sharing
