#include "zel_common.h"
#include "zel_common/holders.h"
#include "zel_common_log/trace.h"
#include "zel_platform.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

/* Result codes ----------------------------------------------------------------------------------------------- */

namespace
{

/** Names of the result codes that _common_print_error_info prints, by code. */
constexpr char err_tbl[][100] = {
    "ZEL_ERR_NONE",
    "ZEL_ERR_INVALID_ARG",
    "ZEL_ERR_MEMORY",
    "ZEL_ERR_SOCKET_FAILURE",
    "ZEL_ERR_SERVER_NOT_RUNNING",
    "ZEL_ERR_THREAD",
    "ZEL_ERR_REQUEST_FAILED",
    "ZEL_ERR_CANCELLED",
    "ZEL_ERR_NETWORK_FAILURE",
    "ZEL_ERR_TIMEOUT_ERR",
    "ZEL_ERR_RESOURCE_DOESNT_EXIST",
    "ZEL_ERR_MAX_FILE_SIZE_EXCEEDED",
    "ZEL_ERR_NOT_AUTHENTICATED",
    "ZEL_ERR_BROKEN_PIPE",
    "ZEL_ERR_TELEPHONY",
    "ZEL_ERR_STORAGE_FAILURE",
    "ZEL_ERR_INVALID_REQ_ID",
    "ZEL_ERR_SHARE_FILE_DOESNT_EXITS",
    "ZEL_ERR_AUTHENTICATION_FAILED",
    "ZEL_ERR_BAD_JSON_FORMAT",
    "ZEL_ERR_BAD_ACCESS_TOKEN",
    "ZEL_ERR_BAD_DEVICE_ID",
    "ZEL_ERR_BAD_CLIENT_ID",
    "ZEL_ERR_INVALID_UID",
    "ZEL_ERR_JSON_FAILURE",
    "ZEL_ERR_LIMIT_EXCEED",
    "ZEL_ERR_STORAGE_NO_RECORDS",
    "ZEL_ERR_STORAGE_INIT_FAILURE",
    "ZEL_ERR_INVALID_FILE",
    "ZEL_ERR_FILE_DOESNT_EXIST",
    "ZEL_ERR_NOT_A_FILE",
    "ZEL_ERR_TRANSPORT_FAILURE",
    "ZEL_ERR_SHARE_THUMBNAIL_ERR",
    "ZEL_ERR_REQ_PAUSED",
    "ZEL_ERR_UNKNOWN",
    "ZEL_ERR_RESOURCE_ALREADY_EXIST",
    "ZEL_ERR_MAX_REQ_REACHED",
};
static_assert(std::size(err_tbl) == ZEL_ERR_MAX_REQ_REACHED + 1);

} // namespace

quillo_error_e _common_util_convert_service_error_to_client_error(zel_err_e err)
{
    ZEL_DEBUG("err [%d]", err);

    switch (err) {
    case ZEL_ERR_NONE:
    case ZEL_ERR_CANCELLED:
    case ZEL_ERR_REQ_PAUSED:
        return QUILLO_ERROR_NONE;
    case ZEL_ERR_INVALID_ARG:
        return QUILLO_ERROR_INVALID_PARAMETER;
    case ZEL_ERR_MEMORY:
        return QUILLO_ERROR_OUT_OF_MEMORY;
    case ZEL_ERR_SOCKET_FAILURE:
    case ZEL_ERR_BROKEN_PIPE:
        return QUILLO_ERROR_SOCKET;
    case ZEL_ERR_SERVER_NOT_RUNNING:
        return QUILLO_ERROR_SERVICE_NOT_RUNNING;
    case ZEL_ERR_THREAD:
        return QUILLO_ERROR_THREAD;
    case ZEL_ERR_REQUEST_FAILED:
        return QUILLO_ERROR_REQUEST_FAILED;
    case ZEL_ERR_NETWORK_FAILURE:
        return QUILLO_ERROR_NETWORK_FAILED;
    case ZEL_ERR_TIMEOUT_ERR:
        return QUILLO_ERROR_TIMEOUT;
    case ZEL_ERR_RESOURCE_DOESNT_EXIST:
    case ZEL_ERR_INVALID_FILE:
    case ZEL_ERR_FILE_DOESNT_EXIST:
    case ZEL_ERR_NOT_A_FILE:
        return QUILLO_ERROR_RESOURCE_DOESNT_EXIST;
    case ZEL_ERR_MAX_FILE_SIZE_EXCEEDED:
        return QUILLO_ERROR_MAX_FILE_SIZE_EXCEEDED;
    case ZEL_ERR_NOT_AUTHENTICATED:
        return QUILLO_ERROR_NOT_AUTHENTICATED;
    case ZEL_ERR_INVALID_REQ_ID:
        return QUILLO_ERROR_INVALID_REQ_ID;
    case ZEL_ERR_BAD_ACCESS_TOKEN:
    case ZEL_ERR_INVALID_ACCESS_TOKEN:
        return QUILLO_ERROR_INVALID_ACCESS_TOKEN;
    case ZEL_ERR_STORAGE_NO_RECORDS:
        return QUILLO_ERROR_NO_CONTENT;
    case ZEL_ERR_TRANSPORT_FAILURE:
        return QUILLO_ERROR_TRANSPORT;
    case ZEL_ERR_SERVICE_INITIALIZING:
        return QUILLO_ERROR_SERVICE_INITIALIZING;
    case ZEL_ERR_PERMISSION_DENIED:
        return QUILLO_ERROR_PERMISSION_DENIED_ERROR;
    case ZEL_ERR_NOT_SUPPORTED_CONTENT_TYPE:
        return QUILLO_ERROR_NOT_SUPPORTED_CONTENT_TYPE;
    default:
        return QUILLO_ERROR_UNKNOWN;
    }
}

void _common_print_error_info(int err_code)
{
    if (err_code < ZEL_ERR_NONE || err_code > ZEL_ERR_MAX_REQ_REACHED)
        return;

    ZEL_CRITICAL("Error code [%d]: Error Msg[%s]", err_code, err_tbl[err_code]);
}

/* Records that travel between client, service and store ------------------------------------------------------ */

namespace
{

/** Releases an array of recipients with its records, some of which may be NULL. */
void free_recipients(quillo_msisdn_s **recipients, size_t count)
{
    for (size_t i = 0; recipients && i < count; ++i) {
        if (quillo_msisdn_s *recipient = recipients[i]) {
            g_free(recipient->ccc);
            g_free(recipient->phone_number);
            g_free(recipient);
        }
    }
    g_free(recipients);
}

} // namespace

void _common_free_url_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *info = static_cast<zel_trans_url_info *>(data);
        g_free(info->url);
        g_free(info->content_type);
        g_free(info);
    }
    ZEL_END();
}

void _common_free_url_ids_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *info = static_cast<zel_trans_url_ids_info *>(data);
        g_free(info->id);
        g_free(info->url);
        g_free(info);
    }
    ZEL_END();
}

void __free_content_info(void *data)
{
    if (!data)
        return;

    auto *item = static_cast<zel_trans_content_info *>(data);
    g_free(item->original);
    g_free(item->thumbnail);
    g_free(item->mid_thumbnail);
    g_free(item->big_thumbnail);
    g_free(item->name);
    g_free(item->content_type);
    g_free(item->contents_token);
    g_free(item);
}

void _common_free_share_content_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *share = static_cast<zel_trans_share_content_info *>(data);
        g_free(share->contents_token);
        g_free(share->description);
        g_free(share->type);
        g_free(share->from_msisdn);
        g_free(share->to_list);
        g_list_free_full(share->content_info_list, __free_content_info);
        g_free(share);
    }
    ZEL_END();
}

void __free_file_path_list(void *data)
{
    ZEL_BEGIN();
    g_free(data);
    ZEL_END();
}

void _common_free_upload_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *upload = static_cast<zel_trans_upload_info *>(data);
        free_recipients(upload->msisdn_list, upload->msisdn_count);
        g_list_free_full(upload->file_path_list, __free_file_path_list);
        g_free(const_cast<char *>(upload->contents_token));
        g_free(upload);
    }
    ZEL_END();
}

/* Guarded hash table ----------------------------------------------------------------------------------------- */

namespace
{

/** The value of a key. NULL is never stored, and string hashing could not take it. */
void *lookup(const zel_hash_table *hash_table, const void *key)
{
    return key ? g_hash_table_lookup(hash_table->table, key) : nullptr;
}

} // namespace

void _common_init_hash_table(zel_hash_table **hash_table, GDestroyNotify free_key, GDestroyNotify free_value)
{
    ZEL_BEGIN();
    if (refused(!hash_table, "Invalid params"))
        return;

    *hash_table = g_try_new0(zel_hash_table, 1);
    if (!*hash_table) {
        ZEL_CRITICAL("Memory allocation failed");
        return;
    }

    pthread_mutex_init(&(*hash_table)->mutex, nullptr);
    (*hash_table)->table = g_hash_table_new_full(free_key ? g_str_hash : g_direct_hash,
                                                 free_key ? g_str_equal : g_direct_equal, free_key, free_value);
    ZEL_END();
}

void _common_deinit_hash_table(zel_hash_table *hash_table)
{
    ZEL_BEGIN();
    if (refused(!hash_table, "Invalid params"))
        return;

    {
        const mutex_guard guard(hash_table->mutex);
        g_hash_table_destroy(hash_table->table);
        hash_table->table = nullptr;
    }
    pthread_mutex_destroy(&hash_table->mutex);
    g_free(hash_table);
}

void _common_write_to_hash_table(zel_hash_table *hash_table, void *key, void *value)
{
    ZEL_BEGIN();
    ZEL_INFO("%p %p %p", static_cast<void *>(hash_table), key, value);
    if (refused(!hash_table || !key || !value, "Invalid params"))
        return;

    const mutex_guard guard(hash_table->mutex);
    g_hash_table_insert(hash_table->table, key, value);
}

void *_common_read_from_hash_table(zel_hash_table *hash_table, const void *key)
{
    ZEL_BEGIN();
    if (refused(!hash_table, "Invalid params"))
        return nullptr;

    const mutex_guard guard(hash_table->mutex);
    return lookup(hash_table, key);
}

void *_common_read_from_hash_table_addon(zel_hash_table *hash_table, const void *key, _common_hash_table_addon_cb cb)
{
    ZEL_BEGIN();
    if (refused(!hash_table || !cb, "Invalid params"))
        return nullptr;

    void *value = nullptr;
    {
        const mutex_guard guard(hash_table->mutex);
        value = lookup(hash_table, key);
        if (value)
            cb(value);
    }
    ZEL_END();
    return value;
}

void _common_remove_from_hash_table(zel_hash_table *hash_table, const void *key)
{
    ZEL_BEGIN();
    if (refused(!hash_table, "Invalid params"))
        return;

    const mutex_guard guard(hash_table->mutex);
    if (key)
        g_hash_table_remove(hash_table->table, key);
}

void *_common_find_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data)
{
    ZEL_BEGIN();
    if (refused(!hash_table || !predicate_func, "Invalid params"))
        return nullptr;

    const mutex_guard guard(hash_table->mutex);
    return g_hash_table_find(hash_table->table, predicate_func, user_data);
}

void _common_find_and_remove_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *key)
{
    if (refused(!hash_table || !predicate_func, "Invalid params"))
        return;

    const mutex_guard guard(hash_table->mutex);
    void *value = lookup(hash_table, key);
    if (value && predicate_func(key, value, key) == TRUE)
        g_hash_table_remove(hash_table->table, key);
}

void _common_foreach_remove_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data)
{
    if (refused(!hash_table || !predicate_func, "Invalid params"))
        return;

    const mutex_guard guard(hash_table->mutex);
    g_hash_table_foreach_remove(hash_table->table, predicate_func, user_data);
}

int _common_foreach_read_from_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data)
{
    ZEL_BEGIN();
    if (refused(!hash_table || !predicate_func, "Invalid params"))
        return -1;

    int visited = 0;
    GHashTableIter entries;
    void *key = nullptr;
    void *value = nullptr;
    g_hash_table_iter_init(&entries, hash_table->table);
    while (g_hash_table_iter_next(&entries, &key, &value)) {
        predicate_func(key, value, user_data);
        ++visited;
    }
    return visited;
}

int _common_get_hash_table_size(zel_hash_table *hash_table)
{
    ZEL_BEGIN();
    if (refused(!hash_table, "Invalid params"))
        return 0;

    const mutex_guard guard(hash_table->mutex);
    return static_cast<int>(g_hash_table_size(hash_table->table));
}

unsigned int _common_get_hash_table_count(zel_hash_table *hash_table)
{
    if (refused(!hash_table, "Invalid params"))
        return 0;

    const mutex_guard guard(hash_table->mutex);
    return g_hash_table_size(hash_table->table);
}

GList *_common_get_keys_from_hash_table(zel_hash_table *hash_table)
{
    if (refused(!hash_table, "Invalid params"))
        return nullptr;

    /* g_hash_table_get_keys promises no order. */
    const mutex_guard guard(hash_table->mutex);
    GList *keys = nullptr;
    GHashTableIter entries;
    void *key = nullptr;
    g_hash_table_iter_init(&entries, hash_table->table);
    while (g_hash_table_iter_next(&entries, &key, nullptr))
        keys = g_list_prepend(keys, key);
    return g_list_reverse(keys);
}

/* Files and paths -------------------------------------------------------------------------------------------- */

int _common_util_file_size(const char *file_path, unsigned int *file_size)
{
    ZEL_BEGIN();
    if (refused(!file_path || !file_size, "Invalid Parameters"))
        return ZEL_ERR_INVALID_ARG;

    /* A size of 2^31 or more fails on every host, as it does where file status has 32 bits. */
    struct stat status;
    if (stat(file_path, &status) != 0 || status.st_size > INT32_MAX) {
        ZEL_CRITICAL("Fail: stat failed");
        return ZEL_ERR_INVALID_FILE;
    }
    if (status.st_size == 0)
        ZEL_CRITICAL("Fail:Filesize is zero");

    *file_size = static_cast<unsigned int>(status.st_size);
    ZEL_END();
    return ZEL_ERR_NONE;
}

bool _common_util_file_exist(const char *file_path)
{
    ZEL_BEGIN();
    struct stat status;
    const bool exists = stat(file_path, &status) == 0 || strcmp(file_path, "/") == 0;
    if (exists)
        ZEL_INFO("File already exist");
    ZEL_END();
    return exists;
}

char *_common_util_get_filename_without_ext(const char *file_path)
{
    ZEL_BEGIN();
    char *name = nullptr;
    if (file_path) {
        const char *dot = strrchr(file_path, '.');
        if (!dot)
            name = strdup(file_path);
        else if (dot != file_path)
            name = strndup(file_path, static_cast<size_t>(dot - file_path));
    }
    ZEL_END();
    return name;
}

char *_common_util_get_ext(const char *file_path)
{
    ZEL_BEGIN();
    const char *slash = strrchr(file_path, '/');
    const char *dot = strrchr(slash ? slash : file_path, '.');
    char *extension = dot ? g_strdup(dot + 1) : nullptr;
    ZEL_END();
    return extension;
}

void _common_util_get_file_valid_path(const char *file_path, char *file_new_path)
{
    ZEL_BEGIN();
    const std::unique_ptr<char, releaser<free>> name(_common_util_get_filename_without_ext(file_path));
    const std::unique_ptr<char, releaser<g_free>> extension(name ? _common_util_get_ext(file_path) : nullptr);
    if (extension) {
        int number = 0;
        do {
            snprintf(file_new_path, ZEL_NEW_PATH_SIZE, "%s_%d.%s", name.get(), ++number, extension.get());
            /* A number that is cut off cannot make another name. */
        } while (_common_util_file_exist(file_new_path) &&
                 snprintf(nullptr, 0, "%s_%d", name.get(), number + 1) < ZEL_NEW_PATH_SIZE);
    } else {
        snprintf(file_new_path, ZEL_NEW_PATH_SIZE, "%s", file_path ? file_path : "");
    }
    ZEL_END();
}

/* Process, time and feature ---------------------------------------------------------------------------------- */

namespace
{

constexpr char PID_FILE_PATH[] = "/tmp/quillo.pid";
constexpr char ENHANCED_FEATURE_KEY[] = "quillo.feature.enhanced";

using file_holder = std::unique_ptr<FILE, releaser<fclose>>;

std::atomic<bool> _g_is_checked_feature{false};
std::atomic<bool> _g_is_enhanced_feature{false};

/** The answer is in place before it counts as checked. */
void remember_enhanced_feature(bool enhanced)
{
    _g_is_enhanced_feature = enhanced;
    _g_is_checked_feature = true;
}

timeval time_of_day()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return now;
}

} // namespace

unsigned int _common_get_random_no(int num)
{
    const timeval now = time_of_day();
    auto digits = now.tv_usec;
    while (digits > 999)
        digits /= 10;

    const long long seed = static_cast<long long>(now.tv_sec) * 1000 + digits + num + getpid();
    srand(static_cast<unsigned int>(seed));
    return static_cast<unsigned int>(rand());
}

unsigned long long _common_util_get_current_timestamp(void)
{
    ZEL_BEGIN();
    const auto timestamp = static_cast<unsigned long long>(time_of_day().tv_sec);
    ZEL_DEBUG(" timestamp:%llu", timestamp);
    ZEL_END();
    return timestamp;
}

unsigned long long _common_util_get_current_unix_time(void)
{
    ZEL_BEGIN();
    const timeval now = time_of_day();
    const auto timestamp =
        static_cast<unsigned long long>(static_cast<long long>(now.tv_sec) * 1000 + now.tv_usec / 1000);
    ZEL_DEBUG(" timestamp:%llu", timestamp);
    ZEL_END();
    return timestamp;
}

void _common_util_set_pid_to_file(void)
{
    const file_holder file(fopen(PID_FILE_PATH, "we"));
    if (!file) {
        ZEL_CRITICAL("RESUME: open file /tmp/quillo.pid error");
        return;
    }

    const auto pid = static_cast<pid_t>(syscall(SYS_gettid));
    fwrite(&pid, sizeof(pid), 1, file.get());
}

bool _common_util_get_pid_from_file(pid_t *pid)
{
    const file_holder file(fopen(PID_FILE_PATH, "re"));
    if (!file) {
        ZEL_CRITICAL("RESUME: open file /tmp/quillo.pid error");
        return false;
    }

    pid_t stored = 0;
    if (fread(&stored, sizeof(stored), 1, file.get()) != 1) {
        ZEL_CRITICAL("RESUME: pid size wrong");
        return false;
    }
    *pid = stored;
    return true;
}

bool _common_util_check_enhanced_feature(void)
{
    if (_g_is_checked_feature)
        return _g_is_enhanced_feature;

    bool enhanced = false;
    const int result = system_info_get_custom_bool(ENHANCED_FEATURE_KEY, &enhanced);
    if (result == SYSTEM_INFO_ERROR_NONE) {
        ZEL_INFO("enhanced feature is [%d]", enhanced);
        remember_enhanced_feature(enhanced);
    } else if (result == SYSTEM_INFO_ERROR_INVALID_PARAMETER) {
        ZEL_CRITICAL("enhanced feature does not exist in feature file");
        remember_enhanced_feature(false);
    } else {
        ZEL_CRITICAL("get enhanced feature failed! err[%d]", result);
    }
    return _g_is_enhanced_feature;
}
