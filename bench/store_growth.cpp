/* The growth of the store's operations with the rows that they hand out, count or pass by. */

#include "measures.h"
#include "samples.h"
#include "store_scratch.h"
#include "zel_common_storage.h"
#include "zel_common_storage/patterns.h"

#include <cstdlib>
#include <map>
#include <memory>

namespace bench
{

namespace
{

/** An operation among the rows that fill gives for n. */
template <typename Fill, typename Operation>
void add_store_growth(const std::string &name, size_t n, Fill fill, Operation operation, bool flat = false,
                      const std::string &reset = "")
{
    add_growth(
        "store, " + name, n,
        [=](size_t size) {
            const auto store = std::make_shared<scratch_store>(memory_folder(), fill(size));
            return side{.run =
                            [=, number = std::make_shared<size_t>(0)](size_t count) {
                                for (const size_t end = *number + count; *number != end; ++*number)
                                    require(operation(size, *number) == ZEL_ERR_NONE, "an operation failed");
                            },
                        .prepare =
                            [=](size_t) {
                                store->use();
                                if (!reset.empty())
                                    execute(store->own, reset);
                            }};
        },
        flat);
}

std::string one_request_of(size_t files)
{
    return transfers(files) + requests(1, static_cast<unsigned int>(files)) + recipients(10);
}

std::string one_request_to(size_t receivers)
{
    return transfers(1) + requests(1, 1, static_cast<unsigned int>(receivers)) + recipients(receivers);
}

/** Transfers of as many requests. */
std::string scattered(size_t n)
{
    return transfers(n) + "UPDATE content_info_status SET req_id = sync_id;";
}

std::string tokens(size_t n)
{
    return rows("push_noti_info", n, "NULL, printf('%032d', x), 'image/jpeg', 1895550000, 0, x");
}

std::string items(size_t n)
{
    return rows(
        "content_info", n,
        "NULL, 1895550000, 0, 1234567, 'token', '', '', '', '', printf('https://a/%d', x), 'thumbnail', 'name', "
        "'type', 0, 'big', 'mid', NULL");
}

std::string one_group_of(size_t n)
{
    return rows("recent_receiver_group", 1, "NULL, 1, '2026-11-24'") +
           rows("recent_receiver_details", n, "NULL, x, '" + std::string(NUMBER) + "', '1', 1");
}

/** The members of such a group, the last one first. */
quillo_msisdn_s **members_in_reverse(size_t n)
{
    static std::map<size_t, std::vector<quillo_msisdn_s>> members;
    static std::map<size_t, std::vector<quillo_msisdn_s *>> lists;
    auto &list = lists[n];
    if (list.empty()) {
        members[n].resize(n);
        for (quillo_msisdn_s &member : members[n]) {
            member = {const_cast<char *>("1"), const_cast<char *>(NUMBER), static_cast<int>(n - list.size()), 0};
            list.push_back(&member);
        }
    }
    return list.data();
}

/* Each row that is handed out. */

void add_lists()
{
    add_store_growth(
        "a listed transfer", 100, [](size_t n) { return transfers(n); },
        [](size_t, size_t) {
            GList *list = nullptr;
            const zel_err_e result =
                _common_storage_get_sync_content_info_list(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &list, -1);
            g_list_free_full(list, _common_storage_free_sync_content_info);
            return result;
        });
    add_store_growth(
        "a transfer's URL", 100, [](size_t n) { return transfers(n); },
        [](size_t, size_t) {
            GList *list = nullptr;
            const zel_err_e result = _common_storage_get_sync_content_info_url_list(1, &list);
            g_list_free_full(list, _common_free_url_info);
            return result;
        });
    add_store_growth(
        "a transfer's local path", 100, [](size_t n) { return transfers(n); },
        [](size_t, size_t) {
            int sent_time = 0;
            int count = 0;
            char **paths = nullptr;
            const zel_err_e result = _common_storage_get_sent_time_local_path_by_req_id(1, &sent_time, &paths, &count);
            for (int i = 0; i < count; ++i)
                g_free(paths[i]);
            g_free(paths);
            return result;
        });
    add_store_growth("a request id by transfers", 100, scattered, [](size_t, size_t) {
        unsigned int *ids = nullptr;
        unsigned int count = 0;
        const zel_err_e result =
            _common_storage_get_resumable_and_cancellable_req_id_by_sync_type(ZEL_UPLOAD_FILE, &ids, &count);
        g_free(ids);
        return result;
    });
    add_store_growth(
        "a request id by time", 100, [](size_t n) { return requests(n); },
        [](size_t, size_t) {
            unsigned int *ids = nullptr;
            unsigned int count = 0;
            const zel_err_e result = _common_storage_get_request_id_list(APP_TYPE_NONE, &ids, &count);
            g_free(ids);
            return result;
        });
    add_store_growth(
        "a request id by status", 100, [](size_t n) { return requests(n); },
        [](size_t, size_t) {
            unsigned int *ids = nullptr;
            unsigned int count = 0;
            const zel_err_e result =
                _common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt(QUILLO_APP_TYPE, &ids, &count);
            g_free(ids);
            return result;
        });
    add_store_growth("a file of an upload report", 100, one_request_of, [](size_t, size_t) {
        zel_trans_upload_info *report = nullptr;
        const zel_err_e result = _common_storage_get_upload_data(1, &report);
        _common_free_upload_info(report);
        return result;
    });
    add_store_growth("a recipient of an upload report", 100, one_request_to, [](size_t, size_t) {
        zel_trans_upload_info *report = nullptr;
        const zel_err_e result = _common_storage_get_upload_data(1, &report);
        _common_free_upload_info(report);
        return result;
    });
    add_store_growth("a content path", 100, one_request_of, [](size_t n, size_t) {
        char **paths = nullptr;
        unsigned int length = 0;
        const zel_err_e result = _common_storage_get_upload_content_path_list(1, &paths, &length);
        for (size_t i = 0; i < n; ++i)
            g_free(paths[i]);
        g_free(paths);
        return result;
    });
    add_store_growth("a recipient's text", 100, one_request_to, [](size_t n, size_t) {
        char **texts = nullptr;
        const zel_err_e result =
            _common_storage_get_upload_receipients_details(1, static_cast<unsigned int>(n), &texts);
        for (size_t i = 0; i < n; ++i)
            g_free(texts[i]);
        g_free(texts);
        return result;
    });
    add_store_growth("a contents token", 100, tokens, [](size_t, size_t) {
        char **list = nullptr;
        unsigned int length = 0;
        const zel_err_e result = _common_storage_get_contents_token_list(nullptr, false, &list, &length);
        for (unsigned int i = 0; i < length; ++i)
            g_free(list[i]);
        free(list);
        return result;
    });
    add_store_growth("an item of a share, read", 100, items, [](size_t, size_t) {
        zel_trans_share_content_info *share = nullptr;
        const zel_err_e result = _common_storage_get_notification_data("token", &share);
        _common_free_share_content_info(share);
        return result;
    });
    add_store_growth(
        "an item of a share, written", 10, [](size_t) { return ""; },
        [](size_t n, size_t) {
            zel_trans_share_content_info *share = new_share(n);
            const zel_err_e result = _common_storage_add_notification(share);
            execute(_g_sqlite_handle, "DELETE FROM content_info");
            _common_free_share_content_info(share);
            return result;
        });
    add_store_growth("a recent receiver", 100, one_group_of, [](size_t, size_t) {
        quillo_msisdn_s **members = nullptr;
        unsigned int count = 0;
        const zel_err_e result = _common_storage_get_recent_receiver_details(&members, &count);
        for (unsigned int i = 0; i < count; ++i) {
            g_free(members[i]->ccc);
            g_free(members[i]->phone_number);
            g_free(members[i]);
        }
        free(members);
        return result;
    });
    add_store_growth("a recipient looked for", 100, one_group_of, [](size_t n, size_t) {
        int group = 0;
        bool exists = false;
        const zel_err_e result = _common_storage_is_recent_receiver_list_exist(
            members_in_reverse(n), static_cast<unsigned int>(n), &group, &exists);
        require(exists, "the list is not found");
        return result;
    });
}

/* Each row that is passed by: the schema has no index. */

void add_scans()
{
    add_store_growth(
        "a transfer passed by a count", 100, [](size_t n) { return transfers(n); },
        [](size_t, size_t) {
            int count = 0;
            return _common_storage_get_sync_content_info_count(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, -1, &count);
        });
    add_store_growth(
        "a transfer passed by the completion test", 100, [](size_t n) { return transfers(n); },
        [](size_t, size_t) {
            bool completed = false;
            return _common_storage_check_all_file_completed_by_req_id(1, &completed);
        });
    add_store_growth("a transfer passed by an update of one request", 100, scattered, [](size_t n, size_t i) {
        return _common_storage_update_status_sync_content_info_by_reqid(static_cast<unsigned int>(n),
                                                                        i % 2 ? ZEL_SYNC_TODO : ZEL_SYNC_ONGOING);
    });
    add_store_growth(
        "a request passed by a read of its status", 100, [](size_t n) { return requests(n); },
        [](size_t n, size_t) {
            int status = 0;
            return _common_storage_get_upload_status(static_cast<unsigned int>(n), &status);
        });
    add_store_growth(
        "a request passed by the statistics", 100, [](size_t n) { return requests(n); },
        [](size_t, size_t) {
            unsigned long long size = 0;
            unsigned int files = 0;
            return _common_storage_get_time_upload_total_file_static_hr(24, &size, &files);
        });
    add_store_growth("an item passed by the search for a URL", 100, items, [](size_t n, size_t) {
        char *name = nullptr;
        const zel_err_e result = _common_storage_get_content_name(("https://a/" + std::to_string(n)).c_str(), &name);
        g_free(name);
        return result;
    });
}

/* Each row that is changed. */

void add_changes()
{
    add_store_growth(
        "a transfer updated with its kind", 100, [](size_t n) { return transfers(n); },
        [](size_t, size_t i) {
            const auto status = i % 2 ? ZEL_SYNC_ONGOING : ZEL_SYNC_TODO;
            const auto other = i % 2 ? ZEL_SYNC_TODO : ZEL_SYNC_ONGOING;
            return _common_storage_set_all_status_sync_content_info(ZEL_UPLOAD_FILE, status, other);
        });
    add_store_growth(
        "a transfer added by one statement and deleted with its request", 100, [](size_t) { return std::string(); },
        [](size_t n, size_t) {
            execute(_g_sqlite_handle, transfers(n));
            return _common_storage_delete_sync_content_info_by_req_id(1);
        });
    add_store_growth(
        "a transfer added by one statement and wiped", 100, [](size_t) { return std::string(); },
        [](size_t n, size_t) {
            execute(_g_sqlite_handle, transfers(n));
            return _common_storage_clear();
        });
}

/* One row by its row key. */

void add_by_key()
{
    const auto transfer_rows = [](size_t n) { return transfers(n); };
    add_store_growth(
        "read of a transfer by row id", 100, transfer_rows,
        [](size_t n, size_t i) {
            zel_content_sync_info *info = nullptr;
            const zel_err_e result =
                _common_storage_get_sync_content_info_by_sync_id(static_cast<int>(i % n) + 1, &info);
            _common_storage_free_sync_content_info(info);
            return result;
        },
        true);
    add_store_growth(
        "read of a percentage by row id", 100, transfer_rows,
        [](size_t n, size_t i) {
            unsigned int percentage = 0;
            return _common_storage_get_percentage_by_sync_id(static_cast<unsigned int>(i % n) + 1, &percentage);
        },
        true);
    add_store_growth(
        "update of a status by row id", 100, transfer_rows,
        [](size_t n, size_t i) {
            return _common_storage_update_status_sync_content_info(static_cast<int>(i % n) + 1,
                                                                   i / n % 2 ? ZEL_SYNC_TODO : ZEL_SYNC_ONGOING);
        },
        true);
    add_store_growth(
        "insert of a transfer", 100, transfer_rows,
        [](size_t, size_t) {
            zel_content_sync_info info = {};
            info.type = ZEL_UPLOAD_FILE;
            info.local_path = const_cast<char *>(LOCAL_PATH);
            return _common_storage_add_sync_content_info(&info);
        },
        true, "DELETE FROM content_info_status WHERE contents_token = ''");
    add_store_growth(
        "read of a key's value", 100,
        [](size_t n) { return rows("unique_data", n, "'key-' || x, 'value', '', '', ''"); },
        [](size_t n, size_t i) {
            char *value = nullptr;
            const zel_err_e result = _common_storage_get_unique_data(("key-" + std::to_string(i % n + 1)).c_str(),
                                                                     &value, nullptr, nullptr, nullptr);
            g_free(value);
            return result;
        },
        true);
    add_store_growth(
        "write of a key's value", 100,
        [](size_t n) { return rows("unique_data", n, "'key-' || x, 'value', '', '', ''"); },
        [](size_t n, size_t i) {
            return _common_storage_upsert_unique_data(("key-" + std::to_string(i % n + 1)).c_str(),
                                                      i / n % 2 ? "value" : "other", nullptr, nullptr, nullptr);
        },
        true);
}

} // namespace

void add_store_growth_measures()
{
    add_lists();
    add_scans();
    add_changes();
    add_by_key();
}

} // namespace bench
