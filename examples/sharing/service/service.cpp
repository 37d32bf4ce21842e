#include "service.h"

#include <algorithm>
#include <filesystem>
#include <unistd.h>

#include "bus.h"

namespace fs = std::filesystem;

namespace sharing
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

/** The recipients of a request; COUNTRY-CODE:NUMBER each. */
std::vector<quillo_msisdn_s> recipients_of(const zel_request &request)
{
    std::vector<quillo_msisdn_s> recipients;
    recipients.reserve(request.receiver_count);
    for (char *recipient : elements_of<char>(request.receiver_list)) {
        char *colon = strchr(recipient, ':');
        if (!colon || colon == recipient || !colon[1] || strspn(recipient, "0123456789") != size_t(colon - recipient) ||
            strspn(colon + 1, "0123456789") != strlen(colon + 1))
            throw failure(ZEL_ERR_INVALID_ARG, std::string(recipient) + ": is not of the form COUNTRY-CODE:NUMBER.");
        *colon = '\0';
        recipients.push_back({.ccc = recipient, .phone_number = colon + 1, .number_id = 0, .group_id = 0});
    }
    return recipients;
}

std::string shown(const quillo_msisdn_s &one)
{
    return "+" + text_of(one.ccc) + " " + text_of(one.phone_number);
}

/** Keeps a list of recipients among the nine that were used last. */
void remember(std::vector<quillo_msisdn_s> &recipients)
{
    std::vector<quillo_msisdn_s *> list(recipients.size());
    std::ranges::transform(recipients, list.begin(), [](quillo_msisdn_s &one) { return &one; });
    int group = 0;
    bool exists = false;
    must(_common_storage_is_recent_receiver_list_exist(list.data(), static_cast<unsigned int>(list.size()), &group,
                                                       &exists));
    if (!exists) {
        // With nine groups, the one used least recently gives its number away.
        write(_common_storage_delete_recent_receiver_by_group, group);
        for (const quillo_msisdn_s *one : list)
            write(_common_storage_add_recent_receiver, one->phone_number, one->ccc, 0, group);
    }
    write(_common_storage_update_timestamp_recent_receiver_group, group);
}

} // namespace

service::service(const settings &chosen)
    : door_([this](const zel_request &request, GDBusMethodInvocation *invocation) { submit(request, invocation); }),
      movers_(chosen, door_), inbox_(chosen, movers_)
{
    must(_common_queue_init(&requests_));
    dispatcher_ = std::make_unique<worker>([this] { dispatch(); });
}

service::~service()
{
    // The queue's pop sleeps without a limit, so its worker is ended by a request.
    zel_request last = {};
    last.cmd = ZEL_CMD_UNKNOWN;
    submit(last, nullptr);
    dispatcher_.reset();
    _common_queue_deinit(requests_,
                         [](void *item) { _common_free_zel_param_members(static_cast<comm_param_s *>(item)); });
}

void service::submit(const zel_request &request, GDBusMethodInvocation *invocation)
{
    auto *queued = g_new0(comm_param_s, 1);
    must(_common_copy_zel_request_members(&request, &queued->request));
    queued->handle = invocation;
    _common_queue_push(requests_, queued);
}

void service::dispatch()
{
    using queued_request = std::unique_ptr<comm_param_s, releaser<_common_free_zel_param_members>>;
    for (;;) {
        const queued_request queued(static_cast<comm_param_s *>(_common_queue_pop(requests_)));
        if (!queued)
            continue; // woken without an item
        if (queued->request.cmd == ZEL_CMD_UNKNOWN)
            return;
        auto *invocation = static_cast<GDBusMethodInvocation *>(queued->handle); // which the answer releases
        try {
            g_dbus_method_invocation_return_value(invocation, carry_out(queued->request));
        } catch (const std::exception &reason) {
            const auto *known = dynamic_cast<const failure *>(&reason);
            const int code =
                _common_util_convert_service_error_to_client_error(known ? known->code : ZEL_ERR_INTERNAL_ERROR);
            const text sentence(g_utf8_make_valid(reason.what(), -1));
            g_dbus_method_invocation_return_dbus_error(invocation, (bus::error_prefix + std::to_string(-code)).c_str(),
                                                       sentence.get());
        }
    }
}

GVariant *service::carry_out(const zel_request &request)
{
    switch (request.cmd) {
    case ZEL_CMD_UPLOAD:
        return g_variant_new("(u)", take_up_upload(request));
    case ZEL_CMD_GET_UPLOAD_LIST:
        return list_uploads();
    case ZEL_CMD_GET_UPLOAD_INFO:
        return describe(request.req_id);
    case ZEL_CMD_UPLOAD_PAUSE:
        movers_.pause(request.req_id);
        return nullptr;
    case ZEL_CMD_UPLOAD_RESUME:
        movers_.resume(request.req_id);
        return nullptr;
    case ZEL_CMD_UPLOAD_CANCEL:
        movers_.cancel(request.req_id);
        return nullptr;
    case ZEL_CMD_GET_SHARE_CONTENT_LIST:
        return inbox_.list();
    case ZEL_CMD_DOWNLOAD:
        return g_variant_new("(u)", inbox_.fetch(text_of(request.contents_token), text_of(request.local_path)));
    case ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST:
        return list_recent();
    case ZEL_CMD_DEACTIVATE:
        movers_.forget();
        return nullptr;
    default:
        throw failure(ZEL_ERR_REQUEST_FAILED, "The service does not know this request.");
    }
}

/** Stores an upload: recipients and transfers first, the request last, for a request makes its transfers count. */
unsigned int service::take_up_upload(const zel_request &request)
{
    const auto files = elements_of<char>(request.file_list);
    auto recipients = recipients_of(request);
    if (files.empty() || recipients.empty())
        throw failure(ZEL_ERR_INVALID_ARG, "It takes a file and a recipient at least.");
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
    for (char *path : files) {
        std::string name = fs::path(path).filename();
        zel_content_sync_info row = {};
        row.type = ZEL_UPLOAD_FILE;
        row.status = ZEL_SYNC_TODO;
        row.req_id = upload.req_id;
        row.name = name.data();
        row.local_path = path;
        write(_common_storage_add_sync_content_info, &row);
    }
    write(_common_storage_add_upload_request_info, &upload);
    movers_.take_up(upload.req_id);
    remember(recipients);
    return upload.req_id;
}

GVariant *service::list_uploads()
{
    GVariantBuilder uploads;
    g_variant_builder_init(&uploads, G_VARIANT_TYPE("a(uutuast)"));
    for (const unsigned int req_id : all_uploads()) {
        zel_trans_upload_info *record = nullptr;
        found(_common_storage_get_upload_data, req_id, &record);
        const upload_report report(record);
        if (!report)
            continue;
        GVariantBuilder recipients;
        g_variant_builder_init(&recipients, G_VARIANT_TYPE("as"));
        for (size_t i = 0; i < report->msisdn_count; ++i)
            if (const quillo_msisdn_s *one = report->msisdn_list[i])
                g_variant_builder_add(&recipients, "s", shown(*one).c_str());
        g_variant_builder_add(&uploads, "(uutuast)", req_id, report->status, guint64{report->total_size},
                              report->file_count, &recipients, guint64{report->sent_time});
    }
    return g_variant_new("(a(uutuast))", &uploads);
}

GVariant *service::describe(unsigned int req_id)
{
    const zel_file_sync_type kind = kind_of(req_id);
    unsigned long long total = 0;
    const bool is_upload = found(_common_storage_get_upload_total_size, req_id, &total);
    if (kind == ZEL_UNKNOWN && !is_upload)
        throw failure(ZEL_ERR_INVALID_REQ_ID, "There is no request " + std::to_string(req_id) + ".");
    const bool is_settled = movers_.is_settled(req_id); // asked before the transfers: then these are through too
    const auto rows = transfers_of(kind, req_id);
    std::string token;
    if (is_upload) {
        char *issued = nullptr;
        found(_common_storage_get_upload_contents_token, req_id, &issued);
        token = text_of(text(issued).get());
    } else if (!rows.empty()) {
        token = text_of(rows.front()->contents_token);
        if (const share received = share_of(token))
            for (const auto *item : elements_of<share_item>(received->content_info_list))
                total += item->size;
    }
    GVariantBuilder files;
    g_variant_builder_init(&files, G_VARIANT_TYPE("a" SHARING_FILE));
    for (const transfer &row : rows)
        g_variant_builder_add_value(&files, file_of(*row));
    const trouble last = trouble_of(key_of_request(req_id));
    return g_variant_new("(" SHARING_REQUEST ")", is_upload ? ZEL_UPLOAD_FILE : kind, movers_.status_of(req_id),
                         is_settled, guint64{total}, token.c_str(), last.code, last.sentence.c_str(), &files);
}

GVariant *service::list_recent()
{
    GVariantBuilder groups;
    g_variant_builder_init(&groups, G_VARIANT_TYPE("aas"));
    quillo_msisdn_s **members = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_recent_receiver_details, &members, &count);
    for (unsigned int i = 0; i < count; ++i) {
        if (i == 0 || members[i - 1]->group_id != members[i]->group_id)
            g_variant_builder_open(&groups, G_VARIANT_TYPE("as"));
        g_variant_builder_add(&groups, "s", shown(*members[i]).c_str());
        if (i + 1 == count || members[i + 1]->group_id != members[i]->group_id)
            g_variant_builder_close(&groups);
    }
    for (unsigned int i = 0; i < count; ++i) {
        g_free(members[i]->ccc);
        g_free(members[i]->phone_number);
        g_free(members[i]);
    }
    free(members); // the C library's
    return g_variant_new("(aas)", &groups);
}

} // namespace sharing
