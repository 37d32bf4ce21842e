#include "requests.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "inbox.h"
#include "place.h"

namespace fs = std::filesystem;

namespace sharing
{

constexpr char forgetting[] = "sharingd.forget"; // there while everything is wiped

namespace
{

/** Takes steps until all are taken or others have waited long enough; whether all are taken. */
template <typename function> bool take_steps(size_t &next, size_t count, function step)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
    while (next < count) {
        step(next++);
        if (std::chrono::steady_clock::now() > end)
            break;
    }
    return next == count;
}

/** An array whose elements come one by one. */
struct array {
    explicit array(const char *type)
    {
        g_variant_builder_init(&builder, G_VARIANT_TYPE(type));
    }
    array(const array &) = delete;
    ~array()
    {
        g_variant_builder_clear(&builder);
    }
    void add(GVariant *element)
    {
        g_variant_builder_add_value(&builder, element);
    }
    GVariant *end()
    {
        return g_variant_builder_end(&builder);
    }
    GVariantBuilder builder;
};

GVariant *nothing()
{
    return g_variant_new("()");
}

GVariant *valid_text(const std::string &any)
{
    return g_variant_new_take_string(g_utf8_make_valid(any.data(), static_cast<gssize>(any.size())));
}

/** The recipients of a request, COUNTRY-CODE:NUMBER each, with their texts. */
struct recipient {
    std::string code;
    std::string number;
};

recipient recipient_from(const std::string &given)
{
    constexpr char digits[] = "0123456789";
    const size_t colon = given.find(':');
    recipient one{given.substr(0, colon), colon == std::string::npos ? "" : given.substr(colon + 1)};
    require(!one.code.empty() && !one.number.empty() && one.code.size() + one.number.size() <= 20 &&
                (one.code + one.number).find_first_not_of(digits) == std::string::npos,
            ZEL_ERR_INVALID_ARG, given + ": is not of the form COUNTRY-CODE:NUMBER.");
    return one;
}

GVariant *shown(const quillo_msisdn_s &one)
{
    return valid_text("+" + text_of(one.ccc) + " " + text_of(one.phone_number));
}

/** Keeps a list of recipients among the nine that were used last. */
void remember(std::vector<recipient> &recipients)
{
    std::vector<quillo_msisdn_s> records;
    records.reserve(recipients.size());
    for (recipient &one : recipients)
        records.push_back({.ccc = one.code.data(), .phone_number = one.number.data(), .number_id = 0, .group_id = 0});
    std::vector<quillo_msisdn_s *> list(records.size());
    std::ranges::transform(records, list.begin(), [](quillo_msisdn_s &one) { return &one; });
    int group = 0;
    bool exists = false;
    surely([&] {
        return _common_storage_is_recent_receiver_list_exist(list.data(), static_cast<unsigned int>(list.size()),
                                                             &group, &exists);
    });
    if (!exists) {
        // With nine groups, the one used least recently gives its number away.
        store(_common_storage_delete_recent_receiver_by_group, group);
        for (const quillo_msisdn_s &one : records)
            store(_common_storage_add_recent_receiver, one.phone_number, one.ccc, 0, group);
    }
    store(_common_storage_update_timestamp_recent_receiver_group, group);
}

} // namespace

/* Sending --------------------------------------------------------------------------------------------------------- */

/** Stores an upload: transfers and recipients first, the request last, for it makes them count. */
work requests::store_upload(const zel_request &request)
{
    struct upload {
        std::vector<std::string> files;
        std::vector<recipient> recipients;
        std::string description;
        std::vector<sendable> looked_at = {};
        unsigned int req_id = 0;
        size_t next_to_look_at = 0;
        size_t next_to_store = 0;
    };
    const auto one = std::make_shared<upload>();
    for (const char *file : elements_of<char>(request.file_list))
        one->files.emplace_back(file);
    for (const char *given : elements_of<char>(request.receiver_list))
        one->recipients.push_back(recipient_from(given));
    one->description = text_of(request.description);
    require(!one->files.empty() && !one->recipients.empty(), ZEL_ERR_INVALID_ARG,
            "It takes a file and a recipient at least.");
    return [this, one]() -> GVariant * {
        const size_t count = one->files.size();
        const auto look = [&](size_t i) { one->looked_at.push_back(look_at_file(one->files[i])); };
        if (!take_steps(one->next_to_look_at, count, look))
            return nullptr;
        if (one->req_id == 0)
            one->req_id = next_request_id();
        const auto store_file = [&](size_t i) {
            zel_content_sync_info row = {};
            row.type = ZEL_UPLOAD_FILE;
            row.req_id = one->req_id;
            add_transfer(row, fs::path(one->files[i]).filename(), one->files[i]);
            set_entry(file_key(row.sync_id), one->looked_at[i].record);
        };
        if (!take_steps(one->next_to_store, count, store_file))
            return nullptr;
        zel_upload_request_info stored = {};
        stored.req_id = one->req_id;
        stored.file_count = static_cast<unsigned int>(count);
        stored.receiver_count = static_cast<unsigned int>(one->recipients.size());
        stored.app_type = QUILLO_APP_TYPE;
        stored.description = one->description.data();
        stored.status = QUILLO_UPLOAD_STATUS_STARTED;
        for (const sendable &file : one->looked_at)
            stored.total_size += file.size;
        for (const recipient &to : one->recipients)
            store(_common_storage_add_upload_receiver_details, one->req_id, to.number.c_str(), to.code.c_str(), 0);
        store(_common_storage_add_upload_request_info, &stored);
        movers_.take_up(one->req_id);
        remember(one->recipients);
        return g_variant_new("(u)", one->req_id);
    };
}

/* What the service knows ------------------------------------------------------------------------------------------ */

work requests::list_uploads()
{
    struct listing {
        std::vector<unsigned int> ids = all_uploads();
        array uploads{"a(uutuast)"};
        size_t next = 0;
    };
    const auto one = std::make_shared<listing>();
    return [one]() -> GVariant * {
        const auto list = [&](size_t i) {
            const upload_report report(value_of<zel_trans_upload_info *>(_common_storage_get_upload_data, one->ids[i]));
            if (!report)
                return;
            array recipients("as");
            for (size_t at = 0; at < report->msisdn_count; ++at)
                if (report->msisdn_list[at])
                    recipients.add(shown(*report->msisdn_list[at]));
            one->uploads.add(g_variant_new("(uutu@ast)", one->ids[i], report->status, guint64{report->total_size},
                                           report->file_count, recipients.end(), guint64{report->sent_time}));
        };
        if (!take_steps(one->next, one->ids.size(), list))
            return nullptr;
        return g_variant_new("(@a(uutuast))", one->uploads.end());
    };
}

GVariant *describe_file(const movers &of, const zel_content_sync_info &row)
{
    trouble last;
    if (row.status != ZEL_SYNC_COMPLETE) {
        const auto waits = is_given_up(row) ? std::nullopt : of.wait_of_transfer(row.sync_id);
        last = waits                                                       ? waits->why
               : row.status == ZEL_SYNC_FAILED || row.fail_retry_count > 0 ? trouble_of("transfer", row.sync_id)
                                                                           : trouble();
    }
    return g_variant_new("(u^ay^ayuutubi@s)", row.sync_id, text_of(row.name).c_str(), text_of(row.local_path).c_str(),
                         row.status, row.percentage, guint64{row.offset}, row.fail_retry_count, is_given_up(row),
                         last.code, valid_text(last.sentence));
}

GVariant *requests::describe(unsigned int req_id) const
{
    const zel_file_sync_type kind = kind_of(req_id);
    unsigned long long total = 0;
    const bool is_upload = found(_common_storage_get_upload_total_size, req_id, &total);
    const auto fetched = is_upload ? std::nullopt : fetch_of(req_id);
    require(is_upload || fetched, ZEL_ERR_INVALID_REQ_ID, "There is no such request.");
    const bool is_settled = movers_.is_settled(req_id); // asked before the transfers: then these are through too
    const auto status = movers_.status_of(req_id);
    std::string token = fetched ? fetched->token : "";
    if (is_upload)
        token = text_of(text(value_of<char *>(_common_storage_get_upload_contents_token, req_id)).get());
    const share received = fetched ? received_share(token) : share();
    for (const auto *item : elements_of<share_item>(received ? received->content_info_list : nullptr))
        total += item->size;
    array files("a(uayayuutubis)");
    std::optional<waiting> waits;
    bool moves = false;
    for (const transfer &row : transfers_of(kind, req_id)) {
        files.add(describe_file(movers_, *row));
        const auto now = row->status == ZEL_SYNC_COMPLETE || is_given_up(*row) ? std::nullopt
                                                                               : movers_.wait_of_transfer(row->sync_id);
        moves |= row->status == ZEL_SYNC_ONGOING && !now;
        if (now && (!waits || now->since < waits->since))
            waits = now;
    }
    if (status == QUILLO_UPLOAD_STATUS_FINISHED)
        waits = movers_.wait_of_share(req_id);
    if (is_settled || moves || status == QUILLO_UPLOAD_STATUS_PAUSED)
        waits.reset();
    const trouble last = waits ? waits->why : trouble_of("request", req_id);
    return g_variant_new("((uubt@sti@s@a(uayayuutubis)))", is_upload ? ZEL_UPLOAD_FILE : kind, status, is_settled,
                         guint64{total}, valid_text(token), guint64{waits ? waits->since : 0}, last.code,
                         valid_text(last.sentence), files.end());
}

static GVariant *list_recent()
{
    quillo_msisdn_s **members = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_recent_receiver_details, &members, &count);
    array groups("aas");
    for (unsigned int at = 0; at < count;) {
        array group("as");
        for (const int id = members[at]->group_id; at < count && members[at]->group_id == id; ++at)
            group.add(shown(*members[at]));
        groups.add(group.end());
    }
    for (unsigned int at = 0; at < count; ++at) {
        g_free(members[at]->ccc);
        g_free(members[at]->phone_number);
        g_free(members[at]);
    }
    free(members); // the C library's
    return g_variant_new("(@aas)", groups.end());
}

/* Receiving ------------------------------------------------------------------------------------------------------- */

static std::vector<std::string> received_tokens(bool only_new)
{
    char **tokens = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_contents_token_list, nullptr, only_new, &tokens, &count);
    std::vector<std::string> list(tokens, tokens + count);
    for (unsigned int i = 0; i < count; ++i)
        g_free(tokens[i]);
    free(tokens); // the C library's
    return list;
}

work requests::list_received()
{
    struct listing {
        std::vector<std::string> tokens;
        std::vector<std::string> unread;
        array shares{"a(tbuay)"};
        size_t next = 0;
    };
    const auto one = std::make_shared<listing>();
    one->unread = received_tokens(true);
    one->tokens = received_tokens(false);
    return [one]() -> GVariant * {
        const auto list = [&](size_t i) {
            const std::string &token = one->tokens[i];
            const std::string message = encode(*received_share(token));
            one->shares.add(g_variant_new(
                "(tbu@ay)",
                guint64{value_of<unsigned long long>(_common_storage_get_received_time_push_noti, token.c_str())},
                std::ranges::count(one->unread, token) > 0,
                value_of<int>(_common_storage_get_content_info_not_downloaded_count, token.c_str()),
                g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, message.data(), message.size(), 1)));
        };
        if (!take_steps(one->next, one->tokens.size(), list))
            return nullptr;
        if (!one->unread.empty())
            _common_storage_update_read_push_noti(share_type); // one try: they are shown all the same
        return g_variant_new("(@a(tbuay)u)", one->shares.end(), static_cast<guint32>(number_at(unreadable_pushes)));
    };
}

/** Stores the transfer of an item, with a name of its own in the folder. */
static void reserve_item(const share_item &item, unsigned int req_id, const std::string &folder)
{
    zel_content_sync_info row = {};
    row.type = ZEL_DOWNLOAD_FILE;
    row.req_id = req_id;
    row.content_id = item.content_id;
    row.contents_token = item.contents_token;
    row.original = item.original;
    reserve(row, folder, text_of(item.name), item.size);
}

/** Has a transfer of a request that has ended fetched again, unless its file is there. */
static void revive(zel_content_sync_info &row, const std::string &folder)
{
    if (row.status == ZEL_SYNC_COMPLETE && is_in_place(row))
        return;
    if (row.status == ZEL_SYNC_COMPLETE) {
        row.percentage = row.offset = 0;
        store(_common_storage_update_percentage_sync_content_info, row.sync_id, 0);
    }
    if (is_reserved(row)) {
        begin_anew(row);
        return set_retries(row, ZEL_SYNC_FAILED, max_retries + 1); // as if given up: fetch_share takes them up at once
    }
    zel_content_sync_info again = row; // the name is somebody else's by now
    again.status = ZEL_SYNC_FAILED;
    again.fail_retry_count = max_retries + 1;
    reserve(again, folder, text_of(row.name), size_of(row));
    remove_unfinished(row);
}

/**
 * Fetches a share to a folder. Each transfer is stored, and its name reserved; what makes the request count comes last.
 * A request that has this share and this folder is taken up again.
 */
work requests::fetch_share(const zel_request &request)
{
    struct fetching {
        std::string token;
        std::string folder;
        share stored;
        std::vector<share_item *> items;
        std::vector<transfer> rows = {};
        unsigned int req_id = 0;
        bool is_mine = false;
        bool is_new = true;
        size_t next = 0;
    };
    const std::string token = text_of(request.contents_token);
    const std::string given = text_of(request.local_path);
    std::error_code error;
    if (given.empty())
        fs::create_directories(received_folder, error);
    require(given.empty() || fs::path(given).is_absolute(), ZEL_ERR_INVALID_ARG, given + ": is no absolute path.");
    const fs::path folder = fs::canonical(given.empty() ? received_folder : given, error);
    require(!error && fs::is_directory(folder, error), ZEL_ERR_PERMISSION_DENIED,
            given + ": is no folder, or you may not look.");
    const auto one = std::make_shared<fetching>(fetching{token, folder, received_share(token), {}});
    one->items = elements_of<share_item>(one->stored->content_info_list);
    const std::shared_ptr<void> end(nullptr, [this, one](void *) {
        if (one->is_mine)
            being_fetched_.erase({one->token, one->folder});
    });
    return [this, one, end]() -> GVariant * {
        if (one->req_id == 0) {
            one->is_mine = one->is_mine || being_fetched_.insert({one->token, one->folder}).second;
            if (!one->is_mine)
                return nullptr; // another client asks for the same: that comes first
            const auto known = request_for(one->token, one->folder);
            one->is_new = !known;
            one->req_id = known ? *known : next_request_id();
            if (known && !movers_.is_settled(*known))
                return g_variant_new("(u)", one->req_id);
            if (known)
                one->rows = transfers_of(ZEL_DOWNLOAD_FILE, one->req_id);
        }
        if (!one->is_new) {
            if (!take_steps(one->next, one->rows.size(), [&](size_t i) { revive(*one->rows[i], one->folder); }))
                return nullptr;
            movers_.retry(one->req_id); // all of them at once
            return g_variant_new("(u)", one->req_id);
        }
        const auto reserve_next = [&](size_t i) { reserve_item(*one->items[i], one->req_id, one->folder); };
        if (!take_steps(one->next, one->items.size(), reserve_next))
            return nullptr;
        set_fetch(one->req_id, {one->token, one->folder, one->items.size()});
        movers_.take_up(one->req_id);
        return g_variant_new("(u)", one->req_id);
    };
}

/* Forgetting ------------------------------------------------------------------------------------------------------ */

/** Removes all that is kept of a request under keys, and the files that are not complete. */
static void forget_request(unsigned int req_id)
{
    for (const auto kind : {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE})
        for (const transfer &row : transfers_of(kind, req_id)) {
            if (row->type == ZEL_DOWNLOAD_FILE && row->status != ZEL_SYNC_COMPLETE)
                free_name(*row);
            remove_keys_of_transfer(row->sync_id);
        }
    remove_keys_of_request(req_id);
}

/** The rows go last, since they hold the ids of the keys. The mark of a wipe goes after them. */
static void forget_the_rest()
{
    for (const char *folder : {thumbnail_folder, incoming_folder})
        for (const auto &file : fs::directory_iterator(folder))
            if (file.path().extension() != ".left") // see open_incoming
                fs::remove(file.path());
    for (const std::string &token : received_tokens(false))
        forget_token(token);
    store(_common_storage_clear);
    remove_entry(unreadable_pushes);
    remove_entry(forgetting);
}

void requests::finish_forgetting()
{
    if (!entry_at(forgetting))
        return;
    const unsigned long long count = number_at(last_request);
    for (unsigned int req_id = 1; req_id <= count; ++req_id)
        forget_request(req_id);
    forget_the_rest();
    has_to_be_finished_ = false;
}

work requests::forget()
{
    const auto next = std::make_shared<size_t>(0);
    const auto has_begun = std::make_shared<bool>(false);
    const std::shared_ptr<void> end(nullptr,
                                    [this, has_begun](void *) { is_forgetting_ = is_forgetting_ && !*has_begun; });
    return [this, next, has_begun, end]() -> GVariant * {
        if (!*has_begun) {
            if (being_stored_ > 0 || is_forgetting_)
                return nullptr;
            movers_.wipe([] { set_entry(forgetting, {"1", {}}); });
            *has_begun = is_forgetting_ = has_to_be_finished_ = true;
        }
        const auto forget_next = [](size_t i) { forget_request(static_cast<unsigned int>(i) + 1); };
        if (!take_steps(*next, static_cast<size_t>(number_at(last_request)), forget_next))
            return nullptr;
        forget_the_rest();
        has_to_be_finished_ = false;
        return nothing();
    };
}

/* ----------------------------------------------------------------------------------------------------------------- */

work requests::begin(const zel_request &request)
{
    const auto at_once = [](auto answer) { return work([=] { return answer(); }); };
    const auto id_only = [&](void (movers::*method)(unsigned int)) {
        return at_once([this, method, id = request.req_id] {
            (movers_.*method)(id);
            return nothing();
        });
    };
    // What is stored in steps, and what wipes the store, keep out of each other's way.
    const auto storing = [this](const work &of) {
        const std::shared_ptr<void> end((++being_stored_, nullptr), [this](void *) { --being_stored_; });
        return work([this, of, end]() -> GVariant * {
            if (is_forgetting_)
                return nullptr;
            if (has_to_be_finished_) // the store refused it midway
                finish_forgetting();
            return of();
        });
    };
    switch (request.cmd) {
    case ZEL_CMD_UPLOAD:
        return storing(store_upload(request));
    case ZEL_CMD_GET_UPLOAD_LIST:
        return list_uploads();
    case ZEL_CMD_GET_UPLOAD_INFO:
        return at_once([this, id = request.req_id] { return describe(id); });
    case ZEL_CMD_UPLOAD_PAUSE:
        return id_only(&movers::pause_request);
    case ZEL_CMD_UPLOAD_RESUME:
        return id_only(&movers::resume_request);
    case ZEL_CMD_UPLOAD_CANCEL:
        return id_only(&movers::cancel_request);
    case ZEL_CMD_GET_SHARE_CONTENT_LIST:
        return list_received();
    case ZEL_CMD_DOWNLOAD:
        return storing(fetch_share(request));
    case ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST:
        return at_once(list_recent);
    case ZEL_CMD_DEACTIVATE:
        return forget();
    default:
        throw failure(ZEL_ERR_INVALID_ARG, "There is no such method.");
    }
}

} // namespace sharing
