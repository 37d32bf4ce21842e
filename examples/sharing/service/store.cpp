#include "store.h"

#include <mutex>
#include <sqlite3.h>
#include <thread>
#include <unistd.h>

namespace sharing
{

using namespace std::chrono;

constexpr char always_there[] = "sharingd.present";

void must(zel_err_e result)
{
    if (result != ZEL_ERR_NONE)
        throw failure(result, "The library answered " + std::to_string(result) + "; the trace tells where.");
}

void require(bool holds, zel_err_e otherwise, const std::string &sentence)
{
    if (!holds)
        throw failure(otherwise, sentence);
}

failure as_failure(const std::exception &reason)
{
    const auto *known = dynamic_cast<const failure *>(&reason);
    return known ? *known : failure(ZEL_ERR_INTERNAL_ERROR, reason.what());
}

/* Opening --------------------------------------------------------------------------------------------------------- */

/** Readers and a writer do not meet then. The mode is kept in the file. */
static void set_write_ahead_log(const char *database)
{
    sqlite3 *opened = nullptr;
    const int result = sqlite3_open(database, &opened);
    const std::unique_ptr<sqlite3, releaser<sqlite3_close>> owner(opened);
    std::string mode;
    if (result == SQLITE_OK) {
        sqlite3_busy_timeout(opened, 3000);
        const auto take = [](void *to, int, char **columns, char **) {
            *static_cast<std::string *>(to) = text_of(columns[0]);
            return 0;
        };
        sqlite3_exec(opened, "PRAGMA journal_mode = WAL", take, &mode, nullptr);
    }
    require(mode == "wal", ZEL_ERR_STORAGE_INIT_FAILURE,
            std::string(database) + ": the database cannot be set to WAL: " + sqlite3_errmsg(opened) +
                ". Another program may hold it, or the disk may be full.");
}

void open_store(const char *database)
{
    set_write_ahead_log(database);
    must(_common_storage_init());
    store(_common_storage_db_create);
    store(_common_storage_upsert_unique_data, always_there, "1", nullptr, nullptr, nullptr);
    if (!entry_at(last_request))
        set_entry(last_request, {"0", {}});
}

bool store_answers()
{
    char *value = nullptr;
    const bool is_there =
        _common_storage_get_unique_data(always_there, &value, nullptr, nullptr, nullptr) == ZEL_ERR_NONE;
    g_free(value);
    return is_there;
}

void patience::wait()
{
    require(!is_stopping, ZEL_ERR_REQ_PAUSED, "The service is stopping.");
    require(steady_clock::now() < end_, ZEL_ERR_STORAGE_FAILURE,
            "The store could not be used: another program holds it, or the disk is full.");
    std::this_thread::sleep_for(pause_);
    pause_ = std::min(pause_ * 2, milliseconds(100));
}

/* Transfers ------------------------------------------------------------------------------------------------------- */

std::vector<transfer> transfers_of(zel_file_sync_type kind, unsigned int req_id)
{
    return transfers_from(_common_storage_get_sync_content_info_list_only_by_req_id, req_id, kind);
}

transfer transfer_of(unsigned int sync_id)
{
    return transfer(value_of<zel_content_sync_info *>(_common_storage_get_sync_content_info_by_sync_id, sync_id));
}

void add_transfer(zel_content_sync_info &row, std::string name, std::string path)
{
    row.name = name.data();
    row.local_path = path.data();
    store(_common_storage_add_sync_content_info, &row);
    row.name = row.local_path = nullptr;
}

void set_retries(zel_content_sync_info &row, zel_file_sync_status status, unsigned int retries)
{
    // An absent text would be stored as NULL, where the table wants a text.
    for (char **wanted : {&row.contents_token, &row.original, &row.thumbnail, &row.name})
        if (!*wanted)
            *wanted = g_strdup("");
    row.status = status;
    row.fail_retry_count = retries;
    store(_common_storage_update_sync_content_info, &row);
}

zel_file_sync_type kind_of(unsigned int req_id)
{
    return static_cast<zel_file_sync_type>(value_of<int>(_common_storage_get_sync_type_by_req_id, req_id));
}

quillo_upload_status_e upload_status_of(unsigned int req_id)
{
    return static_cast<quillo_upload_status_e>(value_of<int>(_common_storage_get_upload_status, req_id));
}

std::vector<unsigned int> all_uploads()
{
    unsigned int *ids = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_request_id_list, APP_TYPE_NONE, &ids, &count);
    const std::unique_ptr<unsigned int[], releaser<g_free>> owner(ids);
    return {ids, ids + count};
}

/* Keys ------------------------------------------------------------------------------------------------------------ */

std::optional<entry> entry_at(const std::string &key)
{
    char *columns[4] = {};
    if (!found(_common_storage_get_unique_data, key.c_str(), &columns[0], &columns[1], &columns[2], &columns[3]))
        return std::nullopt;
    entry content{text_of(columns[0]), {text_of(columns[1]), text_of(columns[2]), text_of(columns[3])}};
    for (char *column : columns)
        g_free(column);
    return content;
}

void set_entry(const std::string &key, const entry &content)
{
    store(_common_storage_upsert_unique_data, key.c_str(), content.value.c_str(), content.extra[0].c_str(),
          content.extra[1].c_str(), content.extra[2].c_str());
}

void remove_entry(const std::string &key)
{
    store(_common_storage_delete_unique_data, key.c_str());
}

unsigned long long number_at(const std::string &key)
{
    const auto content = entry_at(key);
    return content ? std::strtoull(content->value.c_str(), nullptr, 10) : 0;
}

unsigned int next_request_id()
{
    static std::mutex one_at_a_time;
    const std::lock_guard lock(one_at_a_time);
    const auto last = entry_at(last_request);
    require(last.has_value(), ZEL_ERR_INTERNAL_ERROR, "The store has lost the number of the last request.");
    const auto next = static_cast<unsigned int>(std::strtoul(last->value.c_str(), nullptr, 10) + 1);
    set_entry(last_request, {std::to_string(next), {}});
    return next;
}

static std::string key_of(const char *what, unsigned int id)
{
    return std::string("sharingd.") + what + "." + std::to_string(id);
}

static std::string trouble_key(const char *what, unsigned int id)
{
    return key_of((std::string("trouble.") + what).c_str(), id);
}

trouble trouble_of(const char *what, unsigned int id)
{
    const auto content = entry_at(trouble_key(what, id));
    return content ? trouble{static_cast<int>(std::strtol(content->extra[0].c_str(), nullptr, 10)), content->value}
                   : trouble();
}

void set_trouble(const char *what, unsigned int id, const failure &reason)
{
    const int code = _common_util_convert_service_error_to_client_error(reason.code);
    set_entry(trouble_key(what, id), {reason.what(), {std::to_string(code)}});
}

void clear_trouble(const char *what, unsigned int id)
{
    remove_entry(trouble_key(what, id));
}

/** The folder comes last and begins with a slash, which no token has. */
static std::string folder_key(const std::string &token, const std::string &folder)
{
    return "sharingd.folder." + token + folder;
}

std::optional<fetch> fetch_of(unsigned int req_id)
{
    const auto content = entry_at(key_of("fetch", req_id));
    if (!content)
        return std::nullopt;
    return fetch{content->value, content->extra[0], std::strtoul(content->extra[1].c_str(), nullptr, 10),
                 content->extra[2] == "cancelled"};
}

void set_fetch(unsigned int req_id, const fetch &content)
{
    // The way to the request comes first: one that leads nowhere is not followed.
    set_entry(folder_key(content.token, content.folder), {std::to_string(req_id), {}});
    set_entry(
        key_of("fetch", req_id),
        {content.token, {content.folder, std::to_string(content.items), content.is_cancelled ? "cancelled" : ""}});
}

std::optional<unsigned int> request_for(const std::string &token, const std::string &folder)
{
    const auto req_id = static_cast<unsigned int>(number_at(folder_key(token, folder)));
    const auto content = req_id > 0 ? fetch_of(req_id) : std::nullopt;
    if (!content || content->token != token || content->folder != folder || content->is_cancelled)
        return std::nullopt;
    return req_id;
}

void remove_folder_key(const std::string &token, const std::string &folder, unsigned int req_id)
{
    if (number_at(folder_key(token, folder)) == req_id)
        remove_entry(folder_key(token, folder));
}

std::string file_key(unsigned int sync_id)
{
    return key_of("file", sync_id);
}

void remove_keys_of_transfer(unsigned int sync_id)
{
    remove_entry(file_key(sync_id));
    clear_trouble("transfer", sync_id);
}

void remove_keys_of_request(unsigned int req_id)
{
    if (const auto content = fetch_of(req_id)) {
        remove_folder_key(content->token, content->folder, req_id);
        remove_entry(key_of("fetch", req_id));
    }
    remove_entry(key_of("share", req_id));
    clear_trouble("request", req_id);
}

} // namespace sharing
