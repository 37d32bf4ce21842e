#include <algorithm>
#include <filesystem>
#include <unistd.h>
#include <utility>

#include "bus.h"
#include "service.h"

namespace fs = std::filesystem;

namespace sharing
{

/** The size of a file that can be sent; throws when it cannot. */
static unsigned int size_of_sendable(const std::string &path)
{
    std::error_code error;
    unsigned int size = 0;
    require(fs::exists(path, error), ZEL_ERR_FILE_DOESNT_EXIST, path + ": there is no such file, or you may not look.");
    require(fs::is_regular_file(path, error), ZEL_ERR_NOT_A_FILE, path + ": is not a file.");
    require(access(path.c_str(), R_OK) == 0, ZEL_ERR_PERMISSION_DENIED, path + ": you may not read it.");
    require(_common_util_file_size(path.c_str(), &size) == ZEL_ERR_NONE, ZEL_ERR_MAX_FILE_SIZE_EXCEEDED,
            path + ": has 2 GiB or more, which is too much.");
    return size;
}

/** The recipients of a request; COUNTRY-CODE:NUMBER each. */
static std::vector<quillo_msisdn_s> recipients_of(const zel_request &request)
{
    std::vector<quillo_msisdn_s> recipients;
    for (char *recipient : elements_of<char>(request.receiver_list)) {
        const size_t code = strspn(recipient, "0123456789");
        char *number = recipient + code + 1;
        require(code > 0 && recipient[code] == ':' && *number && strspn(number, "0123456789") == strlen(number),
                ZEL_ERR_INVALID_ARG, std::string(recipient) + ": is not of the form COUNTRY-CODE:NUMBER.");
        recipient[code] = '\0';
        recipients.push_back({.ccc = recipient, .phone_number = number, .number_id = 0, .group_id = 0});
    }
    return recipients;
}

static GVariant *shown(const quillo_msisdn_s *one)
{
    return g_variant_new_string(("+" + text_of(one->ccc) + " " + text_of(one->phone_number)).c_str());
}

/** Keeps a list of recipients among the nine that were used last. */
static void remember(std::vector<quillo_msisdn_s> &recipients)
{
    std::vector<quillo_msisdn_s *> list(recipients.size());
    std::ranges::transform(recipients, list.begin(), [](quillo_msisdn_s &one) { return &one; });
    int group = 0;
    bool exists = false;
    write(_common_storage_is_recent_receiver_list_exist, list.data(), list.size(), &group, &exists);
    if (!exists) {
        // With nine groups, the one used least recently gives its number away.
        write(_common_storage_delete_recent_receiver_by_group, group);
        for (const quillo_msisdn_s *one : list)
            write(_common_storage_add_recent_receiver, one->phone_number, one->ccc, 0, group);
    }
    write(_common_storage_update_timestamp_recent_receiver_group, group);
}

/* What the methods do --------------------------------------------------------------------------------------------- */

/** Stores an upload: recipients and transfers first, the request last, for a request makes its transfers count. */
static GVariant *send(service &s, const zel_request &request)
{
    const auto files = elements_of<char>(request.file_list);
    auto recipients = recipients_of(request);
    require(!files.empty() && !recipients.empty(), ZEL_ERR_INVALID_ARG, "It takes a file and a recipient at least.");
    zel_upload_request_info upload = {};
    for (const char *path : files)
        upload.total_size += size_of_sendable(path);
    upload.req_id = next_request_id();
    upload.file_count = static_cast<unsigned int>(files.size());
    upload.receiver_count = static_cast<unsigned int>(recipients.size());
    upload.app_type = request.type;
    upload.description = request.description;
    upload.status = QUILLO_UPLOAD_STATUS_STARTED;

    for (const quillo_msisdn_s &one : recipients)
        write(_common_storage_add_upload_receiver_details, upload.req_id, one.phone_number, one.ccc, 0);
    for (const char *path : files)
        add_transfer({}, ZEL_UPLOAD_FILE, upload.req_id, fs::path(path).filename(), path);
    write(_common_storage_add_upload_request_info, &upload);
    take_up(s, upload.req_id);
    remember(recipients);
    return g_variant_new("(u)", upload.req_id);
}

static GVariant *list_uploads(service &, const zel_request &)
{
    std::vector<GVariant *> uploads;
    for (const unsigned int req_id : all_uploads())
        if (const upload_report report(read<zel_trans_upload_info *>(_common_storage_get_upload_data, req_id));
            report) {
            std::vector<quillo_msisdn_s *> recipients(report->msisdn_list, report->msisdn_list + report->msisdn_count);
            std::erase(recipients, nullptr); // as far as there is an answer
            uploads.push_back(g_variant_new("(uutu@ast)", req_id, report->status, guint64{report->total_size},
                                            report->file_count, array_of("as", recipients, shown),
                                            guint64{report->sent_time}));
        }
    return g_variant_new("(@a(uutuast))", array_of("a(uutuast)", uploads, std::identity()));
}

static GVariant *describe(service &s, const zel_request &request)
{
    const unsigned int req_id = request.req_id;
    const zel_file_sync_type kind = kind_of(req_id);
    unsigned long long total = 0;
    const bool is_upload = found(_common_storage_get_upload_total_size, req_id, &total);
    require(kind != ZEL_UNKNOWN || is_upload, ZEL_ERR_INVALID_REQ_ID, "There is no such request.");
    const bool has_ended = is_settled(s, req_id); // asked before the transfers: then these are through too
    const auto rows = transfers_of(kind, req_id);
    std::string token;
    if (is_upload) {
        token = text_of(text(read<char *>(_common_storage_get_upload_contents_token, req_id)).get());
    } else if (!rows.empty()) {
        token = text_of(rows.front()->contents_token);
        const share received = received_share(token);
        for (const auto *item : elements_of<share_item>(received->content_info_list))
            total += item->size;
    }
    const trouble last = trouble_of("request", req_id);
    return g_variant_new("((uubtsis@a" SHARING_FILE "))", is_upload ? ZEL_UPLOAD_FILE : kind, status_of(req_id),
                         has_ended, guint64{total}, token.c_str(), last.code, last.sentence.c_str(),
                         array_of("a" SHARING_FILE, rows, [](const transfer &row) { return file_of(*row); }));
}

static GVariant *list_recent(service &, const zel_request &)
{
    quillo_msisdn_s **members = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_recent_receiver_details, &members, &count);
    std::vector<std::vector<GVariant *>> groups;
    for (int last = 0; quillo_msisdn_s * one : std::vector(members, members + count)) {
        if (std::exchange(last, one->group_id) != one->group_id)
            groups.emplace_back();
        groups.back().push_back(shown(one));
        g_free(one->ccc);
        g_free(one->phone_number);
        g_free(one);
    }
    free(members); // the C library's
    const auto shown_group = [](const auto &group) { return array_of("as", group, std::identity()); };
    return g_variant_new("(@aas)", array_of("aas", groups, shown_group));
}

/* From a call to its answer --------------------------------------------------------------------------------------- */

constexpr struct {
    const char *name;
    zel_cmd command;
    GVariant *(*carry_out)(service &, const zel_request &);
} methods[] = {{"Send", ZEL_CMD_UPLOAD, send},
               {"List", ZEL_CMD_GET_UPLOAD_LIST, list_uploads},
               {"Describe", ZEL_CMD_GET_UPLOAD_INFO, describe},
               {"Pause", ZEL_CMD_UPLOAD_PAUSE, pause},
               {"Resume", ZEL_CMD_UPLOAD_RESUME, resume},
               {"Cancel", ZEL_CMD_UPLOAD_CANCEL, cancel},
               {"Inbox", ZEL_CMD_GET_SHARE_CONTENT_LIST, list_received},
               {"Get", ZEL_CMD_DOWNLOAD, fetch},
               {"Recent", ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST, list_recent},
               {"Forget", ZEL_CMD_DEACTIVATE, forget}};

/** Carries out one request after the other, until there is one that is none. */
static void dispatch(service &s)
{
    using queued_request = std::unique_ptr<comm_param_s, releaser<_common_free_zel_param_members>>;
    for (;;) {
        const queued_request queued(static_cast<comm_param_s *>(_common_queue_pop(s.requests)));
        if (!queued)
            continue; // woken without an item
        if (queued->request.cmd == ZEL_CMD_UNKNOWN)
            return;
        const auto *method =
            std::ranges::find(methods, queued->request.cmd, [](const auto &one) { return one.command; });
        auto *invocation = static_cast<GDBusMethodInvocation *>(queued->handle); // which the answer releases
        try {
            g_dbus_method_invocation_return_value(invocation, method->carry_out(s, queued->request));
        } catch (const std::exception &reason) {
            const int code = _common_util_convert_service_error_to_client_error(as_failure(reason).code);
            const text sentence(g_utf8_make_valid(reason.what(), -1));
            g_dbus_method_invocation_return_dbus_error(invocation, (bus::error_prefix + std::to_string(-code)).c_str(),
                                                       sentence.get());
        }
    }
}

void service::start()
{
    open_door(*this);
    must(_common_queue_init(&requests));
    const auto run = [](void *self) -> void * {
        auto &s = *static_cast<service *>(self);
        auto end = std::move(s.dispatcher_end); // the service may go as soon as the end is told
        _common_thread_notify_started(s.dispatcher);
        _common_thread_sendSignal(s.dispatcher); // the report itself wakes nobody
        dispatch(s);
        end.set_value();
        return nullptr;
    };
    dispatcher_ended = dispatcher_end.get_future();
    require(_common_thread_start(&dispatcher, run, this) && _common_thread_wait_till_start(dispatcher), ZEL_ERR_THREAD,
            "The service's thread could not be started.");
    start_movers(*this);
}

service::~service()
{
    if (dispatcher) { // the queue's pop sleeps without a limit, so its thread is ended by a request
        auto *last = g_new0(comm_param_s, 1);
        last->request.cmd = ZEL_CMD_UNKNOWN;
        _common_queue_push(requests, last);
        dispatcher_ended.wait();
        _common_thread_stop(dispatcher);
        _common_queue_deinit(requests,
                             [](void *item) { _common_free_zel_param_members(static_cast<comm_param_s *>(item)); });
    }
    stop_movers(*this);
    if (door)
        close_door(*this);
}

void take_call(service &s, const std::string &method, GVariant *arguments, GDBusMethodInvocation *invocation)
{
    auto *queued = g_new0(comm_param_s, 1);
    queued->handle = invocation; // which gets the answer
    zel_request &request = queued->request;
    request.cmd = std::ranges::find(methods, method, [](const auto &one) { return one.name; })->command;
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(u)")))
        g_variant_get(arguments, "(u)", &request.req_id);
    if (request.cmd == ZEL_CMD_DOWNLOAD)
        g_variant_get(arguments, "(s^ay)", &request.contents_token, &request.local_path);
    if (request.cmd == ZEL_CMD_UPLOAD) {
        char **files = nullptr;
        char **recipients = nullptr;
        g_variant_get(arguments, "(^aay^ass)", &files, &recipients, &request.description);
        for (char **file = files; *file; ++file)
            request.file_list = g_list_append(request.file_list, *file);
        for (char **recipient = recipients; *recipient; ++recipient)
            request.receiver_list = g_list_append(request.receiver_list, *recipient);
        g_free(files); // the strings are the request's
        g_free(recipients);
        request.type = QUILLO_APP_TYPE;
    }
    _common_queue_push(s.requests, queued);
}

} // namespace sharing
