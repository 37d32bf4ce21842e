#include "service.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <utility>

#include "push.h"

namespace fs = std::filesystem;

namespace demo
{

namespace
{

/** The size of a file that can be sent; throws when it cannot. */
unsigned int size_of_sendable(const std::string &path)
{
    std::error_code error;
    if (!fs::exists(path, error))
        throw failure(ZEL_ERR_FILE_DOESNT_EXIST, path + ": there is no such file, or you may not look.");
    if (!fs::is_regular_file(path, error))
        throw failure(ZEL_ERR_NOT_A_FILE, path + ": is not a file.");
    if (access(path.c_str(), R_OK) != 0)
        throw failure(ZEL_ERR_PERMISSION_DENIED, path + ": you may not read it.");
    unsigned int size = 0;
    if (_common_util_file_size(path.c_str(), &size) != ZEL_ERR_NONE)
        throw failure(ZEL_ERR_MAX_FILE_SIZE_EXCEEDED, path + ": has 2 GiB or more, which is too much.");
    return size;
}

/** A path for a received file, numbered when the name is taken. The file is there afterwards, so the name is kept. */
std::string reserve_path(const std::string &folder, const std::string &name)
{
    const std::string last = fs::path(name).filename(); // the sender chose the name: it must not lead elsewhere
    const std::string wanted = folder + "/" + (last.empty() || last == "." || last == ".." ? "file" : last);
    std::string path = wanted;
    if (_common_util_file_exist(wanted.c_str())) {
        char numbered[ZEL_NEW_PATH_SIZE];
        _common_util_get_file_valid_path(wanted.c_str(), numbered);
        path = numbered;
        // A name without an extension comes back as it was.
        for (int number = 1; path == wanted || _common_util_file_exist(path.c_str()); ++number)
            path = wanted + "_" + std::to_string(number);
    }
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0)
        throw failure(ZEL_ERR_PERMISSION_DENIED, path + ": cannot be created (" + strerror(errno) + ").");
    ::close(file);
    return path;
}

} // namespace

void connection::wait()
{
    std::unique_lock lock(mutex_);
    answered_.wait(lock, [this] { return is_answered_; });
    if (result_ != ZEL_ERR_NONE)
        throw failure(result_, sentence_ + " (client error " +
                                   std::to_string(_common_util_convert_service_error_to_client_error(result_)) + ")");
}

void connection::answer(zel_err_e result, const std::string &sentence)
{
    const std::lock_guard lock(mutex_);
    result_ = result;
    sentence_ = sentence;
    is_answered_ = true;
    answered_.notify_all();
}

/* Start and stop --------------------------------------------------------------------------------------------- */

service::service(server &remote, std::string received_folder, size_t chunk_size, bool dies_midway)
    : transfers(remote, chunk_size, dies_midway), received_folder_(std::move(received_folder))
{
    sign_in();
    must(_common_queue_init(&requests_));
}

service::~service()
{
    if (dispatcher_) {
        connection last;
        queued_request request(g_new0(comm_param_s, 1));
        request->request.cmd = ZEL_CMD_DEACTIVATE;
        request->handle = &last;
        submit(std::move(request));
        dispatcher_.reset(); // waits for its end
    }
    _common_queue_deinit(requests_,
                         [](void *item) { _common_free_zel_param_members(static_cast<comm_param_s *>(item)); });
}

void service::start()
{
    transfers.start();
    dispatcher_ = std::make_unique<worker>([this](worker &) { dispatch(); });
    dispatcher_->start();
}

void service::sign_in()
{
    char *stored = nullptr;
    const bool is_known =
        found(_common_storage_get_unique_data("evt_access_token", &stored, nullptr, nullptr, nullptr));
    const text kept(stored);
    int salt = 0;
    for (const char *key : {"evt_refresh_token", "evt_push_token", "evt_access_token"})
        if (!is_known)
            must(_common_storage_upsert_unique_data(key, std::to_string(_common_get_random_no(++salt)).c_str(), nullptr,
                                                    nullptr, nullptr));
    // What is not given, NULL or 0, stays as it is stored.
    must(_common_storage_upsert_folder_info(family_folder, nullptr, 0, is_known ? nullptr : "family-folder-token", 0,
                                            _common_util_get_current_timestamp()));
}

/* Requests --------------------------------------------------------------------------------------------------- */

void service::submit(queued_request request)
{
    _common_queue_push(requests_, request.release());
}

void service::dispatch()
{
    for (bool is_active = true; is_active;) {
        const queued_request request(static_cast<comm_param_s *>(_common_queue_pop(requests_)));
        if (!request)
            continue; // woken without an item
        auto &client = *static_cast<connection *>(request->handle);
        is_active = request->request.cmd != ZEL_CMD_DEACTIVATE;
        try {
            carry_out(request->request, client);
            client.answer(ZEL_ERR_NONE, "");
        } catch (const failure &reason) {
            client.answer(reason.code, reason.what());
        } catch (const std::exception &reason) {
            client.answer(ZEL_ERR_INTERNAL_ERROR, reason.what());
        }
    }
}

void service::carry_out(const zel_request &request, connection &client)
{
    switch (request.cmd) {
    case ZEL_CMD_UPLOAD:
        take_up_upload(request);
        break;
    case ZEL_CMD_UPLOAD_PAUSE:
    case ZEL_CMD_UPLOAD_RESUME:
        transfers.pause_or_resume(request.req_id, request.cmd == ZEL_CMD_UPLOAD_PAUSE);
        break;
    case ZEL_CMD_GET_UPLOAD_INFO: {
        zel_trans_upload_info *report = nullptr;
        const zel_err_e result = _common_storage_get_upload_data(request.req_id, &report);
        client.report.reset(report); // it may come with a failure
        must(result);
        break;
    }
    case ZEL_CMD_DOWNLOAD:
        start_download(request.contents_token);
        break;
    case ZEL_CMD_DEACTIVATE:
        break;
    default:
        throw failure(ZEL_ERR_REQUEST_FAILED, "The service does not know this request.");
    }
}

void service::take_up_upload(const zel_request &request)
{
    zel_upload_request_info upload = {};
    for (const char *path : elements_of<char>(request.file_list))
        upload.total_size += size_of_sendable(path);
    upload.req_id = request.req_id;
    upload.file_count = request.file_count;
    upload.receiver_count = request.receiver_count;
    upload.app_type = request.type;
    upload.description = request.description;
    // NONE until all its rows are stored: what dies in between is no upload yet.
    upload.status = QUILLO_UPLOAD_STATUS_NONE;
    must(_common_storage_add_upload_request_info(&upload));

    for (const std::string recipient : elements_of<char>(request.receiver_list)) {
        const size_t colon = recipient.find(':');
        must(_common_storage_add_upload_receiver_details(request.req_id, recipient.substr(colon + 1).c_str(),
                                                         recipient.substr(0, colon).c_str(), 0));
    }
    remember_recipients(request.req_id);

    for (char *path : elements_of<char>(request.file_list)) {
        std::string name = fs::path(path).filename();
        zel_content_sync_info row = {};
        row.type = ZEL_UPLOAD_FILE;
        row.status = ZEL_SYNC_TODO;
        row.req_id = request.req_id;
        row.name = name.data();
        row.local_path = path;
        must(_common_storage_add_sync_content_info(&row));
    }
    set_upload_status(request.req_id, QUILLO_UPLOAD_STATUS_STARTED);
    transfers.wake();
}

void service::remember_recipients(unsigned int req_id)
{
    const upload_report owner(g_new0(zel_trans_upload_info, 1)); // it can release an array of recipients
    quillo_msisdn_s **&list = owner->msisdn_list;
    unsigned int count = 0;
    must(_common_storage_get_upload_recievers_details(req_id, &list, &count));
    owner->msisdn_count = count;

    int group = 0;
    bool exists = false;
    must(_common_storage_is_recent_receiver_list_exist(list, count, &group, &exists));
    if (!exists) {
        int groups = 0;
        must(_common_storage_get_recent_receiver_group_count(&groups));
        if (group <= groups) // the least recently used group gives its number to this one
            must(_common_storage_delete_recent_receiver_by_group(group));
        for (unsigned int i = 0; i < count; ++i)
            must(_common_storage_add_recent_receiver(list[i]->phone_number, list[i]->ccc, list[i]->number_id, group));
    }
    must(_common_storage_update_timestamp_recent_receiver_group(group));
}

/* Received shares -------------------------------------------------------------------------------------------- */

arrived_share service::receive_push(const std::vector<char> &message)
{
    const share record = decode_share(message);
    const char *token = record->contents_token;
    const bool is_known = _common_storage_exist_push_noti(token);
    if (!is_known) {
        // The items first: a notification in the store tells that its items are there too.
        const zel_err_e result = _common_storage_add_notification(record.get());
        if (result != ZEL_ERR_INVALID_ARG) // it refuses items that are there already
            must(result);
        must(_common_storage_add_push_noti_info(token, record->type, record->expired_time,
                                                _common_util_get_current_unix_time()));
    }

    zel_trans_share_content_info *read_back = nullptr;
    must(_common_storage_get_notification_data(token, &read_back));
    const share stored(read_back);
    if (stored->content_info_list_length != record->content_info_list_length)
        throw failure(ZEL_ERR_STORAGE_FAILURE, "The store holds only a part of the share; start over with --fresh.");
    arrived_share arrived = {token, add_downloads(*stored, ZEL_DOWNLOAD_THUMBNAIL, ZEL_SYNC_TODO, is_known),
                             // Nobody has asked for the files yet.
                             add_downloads(*stored, ZEL_DOWNLOAD_FILE, ZEL_SYNC_PAUSED_TODO, is_known)};
    transfers.wake();
    return arrived;
}

unsigned int service::add_downloads(const zel_trans_share_content_info &record, zel_file_sync_type kind,
                                    zel_file_sync_status status, bool may_be_there)
{
    unsigned int req_id = 0;
    std::vector<zel_trans_content_info *> missing;
    for (auto *item : elements_of<zel_trans_content_info>(record.content_info_list)) {
        zel_content_sync_info *row = nullptr;
        if (may_be_there && found(_common_storage_get_sync_content_info(signed_id(item->content_id), kind, &row))) {
            req_id = row->req_id;
            _common_storage_free_sync_content_info(row);
        } else {
            missing.push_back(item);
        }
    }
    if (req_id == 0)
        req_id = next_request_id();
    const std::string folder = received_folder_ + (kind == ZEL_DOWNLOAD_THUMBNAIL ? "/thumbnails" : "");
    for (const zel_trans_content_info *item : missing) {
        std::string path = reserve_path(folder, text_of(item->name));
        zel_content_sync_info row = {};
        row.type = kind;
        row.status = status;
        row.content_id = item->content_id;
        row.req_id = req_id;
        row.contents_token = item->contents_token;
        row.original = item->original;
        row.thumbnail = item->thumbnail;
        row.name = item->name;
        row.local_path = path.data();
        must(_common_storage_add_sync_content_info(&row));
    }
    return req_id;
}

void service::start_download(const char *token)
{
    zel_trans_share_content_info *read = nullptr;
    must(_common_storage_get_notification_data(token, &read));
    const share stored(read);
    const auto *item = static_cast<zel_trans_content_info *>(stored->content_info_list->data);
    zel_content_sync_info *found_row = nullptr;
    must(_common_storage_get_sync_content_info(signed_id(item->content_id), ZEL_DOWNLOAD_FILE, &found_row));
    const transfer row(found_row);
    move_status(row->req_id, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED_TODO);
    transfers.wake();
}

} // namespace demo
