/* The store's operations beside the same statements by hand. */

#include "store_by_hand.h"

#include "measures.h"
#include "samples.h"
#include "store_scratch.h"

#include <cstdlib>
#include <memory>

namespace bench
{

namespace
{

constexpr double BOUND = 1.1;

/** Repeats an operation, which is given the number of its repetition and says whether it succeeded. */
template <typename Operation> auto repeat(Operation operation)
{
    return [operation, number = std::make_shared<size_t>(0)](size_t count) {
        for (const size_t end = *number + count; *number != end; ++*number)
            require(operation(*number), "an operation failed");
    };
}

struct statements {
    std::string fill;  /**< the rows that are there beforehand */
    std::string reset; /**< run before each batch, if any */
};

/** A measure in the memory file system, and once more on disk if there is time. */
template <typename Own, typename Peer>
void add_beside(const std::string &name, const statements &around, Own own, Peer peer)
{
    for (const bool on_disk : {false, true}) {
        if (on_disk && smoke())
            continue;
        add({
            .name = (on_disk ? "disk: " : "store: ") + name + " / by hand",
            .bound = on_disk ? NOT_JUDGED : BOUND,
            .make =
                [=] {
                    const auto store =
                        std::make_shared<scratch_store>(on_disk ? disk_folder() : memory_folder(), around.fill);
                    const auto prepare = [store, reset = around.reset](sqlite3 *database) {
                        store->use();
                        if (!reset.empty())
                            execute(database, reset);
                    };
                    return sides{
                        {.run = repeat(own), .prepare = [=](size_t) { prepare(store->own); }},
                        {.run = repeat([peer, store](size_t i) { return peer(store->peer, i); }),
                         .prepare = [=](size_t) { prepare(store->peer); }},
                    };
                },
            .same_lines = !on_disk,
            .source = on_disk ? time_source::clock : time_source::thread_cpu,
            .seconds = on_disk ? 0.5 : 4.0,
        });
    }
}

char *writable(const char *text)
{
    return const_cast<char *>(text);
}

zel_content_sync_info transfer(unsigned int sync_id = 0)
{
    return {
        .sync_id = sync_id,
        .type = ZEL_UPLOAD_FILE,
        .status = ZEL_SYNC_TODO,
        .content_id = 12,
        .req_id = 1,
        .wifi_only = 1,
        .fail_retry_count = 0,
        .percentage = 0,
        .offset = 0,
        .chunk_no = 0,
        .sent_time = 1795550000,
        .contents_token = writable(TOKEN),
        .original = writable(URL),
        .thumbnail = writable(THUMBNAIL_PATH),
        .name = writable(FILE_NAME),
        .local_path = writable(LOCAL_PATH),
        .mupload_key = writable(TOKEN),
    };
}

zel_upload_request_info request()
{
    return {
        .unique_id = 0,
        .req_id = 1,
        .file_count = 100,
        .status = QUILLO_UPLOAD_STATUS_STARTED,
        .receiver_count = 10,
        .expired_time = 1895550000000ULL,
        .total_size = 123456789,
        .contents_token = writable(TOKEN),
        .app_type = QUILLO_APP_TYPE,
        .from_ccc = nullptr,
        .from_number = nullptr,
        .description = writable(DESCRIPTION),
        .sent_time = 0,
    };
}

/** One of the ids that a table of 1,000 rows has. */
int id_of(size_t i)
{
    return static_cast<int>(i % 1000) + 1;
}

/** A value that the row does not hold yet: SQLite writes nothing where nothing changes. */
unsigned int fresh(size_t i, unsigned int values)
{
    return static_cast<unsigned int>(i / 1000 + 1) % values;
}

zel_content_sync_info rewritten(size_t i)
{
    zel_content_sync_info info = transfer(static_cast<unsigned int>(id_of(i)));
    info.chunk_no = static_cast<int>(fresh(i, 1000));
    return info;
}

zel_file_sync_status fresh_status(size_t i)
{
    return fresh(i, 2) ? ZEL_SYNC_ONGOING : ZEL_SYNC_TODO;
}

const char *fresh_text(size_t i)
{
    return i % 2 ? URL : THUMBNAIL_URL;
}

void add_writes()
{
    const statements empty_transfers = {"", "DELETE FROM content_info_status"};
    const statements filled = {transfers(1000), ""};

    add_beside(
        "insert of a transfer", empty_transfers,
        [](size_t) {
            zel_content_sync_info info = transfer();
            return _common_storage_add_sync_content_info(&info) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t) {
            zel_content_sync_info info = transfer();
            return by_hand::add_transfer(database, &info);
        });
    add_beside(
        "insert of a request", {"", "DELETE FROM upload_request_data"},
        [](size_t) {
            zel_upload_request_info info = request();
            return _common_storage_add_upload_request_info(&info) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t) {
            zel_upload_request_info info = request();
            return by_hand::add_request(database, &info);
        });
    add_beside(
        "rewrite of a transfer", filled,
        [](size_t i) {
            zel_content_sync_info info = rewritten(i);
            return _common_storage_update_sync_content_info(&info) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            zel_content_sync_info info = rewritten(i);
            return by_hand::rewrite_transfer(database, &info);
        });
    add_beside(
        "update of a status", filled,
        [](size_t i) {
            return _common_storage_update_status_sync_content_info(id_of(i), fresh_status(i)) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) { return by_hand::update_status(database, id_of(i), fresh_status(i)); });
    add_beside(
        "update of a percentage", filled,
        [](size_t i) {
            return _common_storage_update_percentage_sync_content_info(id_of(i), fresh(i, 100)) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) { return by_hand::update_percentage(database, id_of(i), fresh(i, 100)); });
    add_beside(
        "update of a chunk", filled,
        [](size_t i) {
            return _common_storage_update_upload_info(id_of(i), fresh(i, 1000) << 18, id_of(i)) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            return by_hand::update_chunk(database, id_of(i), fresh(i, 1000) << 18, id_of(i));
        });
    add_beside(
        "deletion of a transfer",
        {"", "DELETE FROM content_info_status; DELETE FROM sqlite_sequence;" + transfers(1000)},
        [](size_t i) {
            return _common_storage_delete_sync_content_info(static_cast<unsigned int>(id_of(i))) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            return by_hand::delete_transfer(database, static_cast<unsigned int>(id_of(i)));
        });
    add_beside(
        "write of a share of 100 items", {"", "DELETE FROM content_info"},
        [share =
             std::shared_ptr<zel_trans_share_content_info>(new_share(100), _common_free_share_content_info)](size_t i) {
            share->contents_token[0] = static_cast<char>('A' + i % 26);
            return _common_storage_add_notification(share.get()) == ZEL_ERR_NONE;
        },
        [share = std::shared_ptr<zel_trans_share_content_info>(new_share(100), _common_free_share_content_info)](
            sqlite3 *database, size_t i) {
            share->contents_token[0] = static_cast<char>('A' + i % 26);
            return by_hand::add_share(database, share.get());
        });
    add_beside(
        "write of a key's value", {"", ""},
        [](size_t i) {
            return _common_storage_upsert_unique_data("key", fresh_text(i), nullptr, nullptr, nullptr) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) { return by_hand::upsert_key(database, "key", fresh_text(i)); });
    add_beside(
        "write of a folder's token (reads first)",
        {"INSERT INTO folder_info VALUES ('" + std::string(TOKEN) + "', 'token', 1, 'folder', 1, 1)", ""},
        [](size_t i) {
            return _common_storage_upsert_folder_info(TOKEN, nullptr, 0, fresh_text(i), 1895550000000ULL, 0) ==
                   ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            return by_hand::upsert_folder(database, TOKEN, fresh_text(i), 1895550000000ULL);
        });
}

void add_reads()
{
    const statements filled = {transfers(1000) + requests(10), ""};

    add_beside(
        "read of a percentage by row id", filled,
        [](size_t i) {
            unsigned int percentage = 0;
            return _common_storage_get_percentage_by_sync_id(static_cast<unsigned int>(id_of(i)), &percentage) ==
                   ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            unsigned int percentage = 0;
            return by_hand::read_percentage(database, static_cast<unsigned int>(id_of(i)), &percentage);
        });
    add_beside(
        "read of a status by request id", filled,
        [](size_t i) {
            int status = 0;
            return _common_storage_get_upload_status(static_cast<unsigned int>(i % 10) + 1, &status) == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            int status = 0;
            return by_hand::read_upload_status(database, static_cast<unsigned int>(i % 10) + 1, &status);
        });
    add_beside(
        "count of 10 transfers", {transfers(10), ""},
        [](size_t) {
            int count = 0;
            return _common_storage_get_sync_content_info_count(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, -1, &count) ==
                   ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t) {
            int count = 0;
            return by_hand::count_transfers(database, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &count);
        });
    add_beside(
        "read of a transfer", filled,
        [](size_t i) {
            zel_content_sync_info *info = nullptr;
            const zel_err_e result = _common_storage_get_sync_content_info_by_sync_id(id_of(i), &info);
            _common_storage_free_sync_content_info(info);
            return result == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t i) {
            zel_content_sync_info *info = by_hand::read_transfer<true>(database, id_of(i));
            by_hand::release_transfer<true>(info);
            return info != nullptr;
        });
    for (const int length : {10, 1000})
        add_beside(
            "list of " + std::to_string(length) + " transfers", filled,
            [=](size_t) {
                GList *list = nullptr;
                const zel_err_e result =
                    _common_storage_get_sync_content_info_list(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &list, length);
                g_list_free_full(list, _common_storage_free_sync_content_info);
                return result == ZEL_ERR_NONE;
            },
            [=](sqlite3 *database, size_t) {
                GList *list = by_hand::list_transfers(database, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, length);
                g_list_free_full(list, by_hand::release_transfer<true>);
                return list != nullptr;
            });
    add_beside(
        "upload report, 10 recipients and 100 files", {transfers(100) + requests(1, 100, 10) + recipients(10), ""},
        [](size_t) {
            zel_trans_upload_info *report = nullptr;
            const zel_err_e result = _common_storage_get_upload_data(1, &report);
            _common_free_upload_info(report);
            return result == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t) {
            zel_trans_upload_info *report = by_hand::read_report(database, 1);
            _common_free_upload_info(report);
            return report != nullptr;
        });
    add_beside(
        "read of a key's value",
        {"INSERT INTO unique_data VALUES ('key', '" + std::string(TOKEN) + "', '', '', '')", ""},
        [](size_t) {
            char *value = nullptr;
            _common_storage_get_unique_data("key", &value, nullptr, nullptr, nullptr);
            g_free(value);
            return value != nullptr;
        },
        [](sqlite3 *database, size_t) {
            char *value = by_hand::read_key(database, "key");
            g_free(value);
            return value != nullptr;
        });
}

/** Nine groups, each of 10 members, the same in all but the calling code. */
std::string nine_groups()
{
    return rows("recent_receiver_group", 9, "NULL, x, datetime('2026-11-24', printf('+%d hours', x))") +
           rows("recent_receiver_details", 90,
                "NULL, (x - 1) / 9, printf('555%07d', (x - 1) / 9), (x - 1) % 9 + 1, (x - 1) % 9 + 1");
}

/** A list that every group equals up to its last member. */
struct receiver_list {
    receiver_list()
    {
        for (int i = 0; i < 10; ++i) {
            g_snprintf(numbers[i], sizeof numbers[i], "555%07d", i);
            records[i] = {writable("0"), numbers[i], i, 0};
            list[i] = &records[i];
        }
    }

    char numbers[10][11];
    quillo_msisdn_s records[10];
    quillo_msisdn_s *list[10];
};

void release_receivers(quillo_msisdn_s **members, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        g_free(members[i]->ccc);
        g_free(members[i]->phone_number);
        g_free(members[i]);
    }
    free(members);
}

void add_recent_receivers()
{
    const statements full = {nine_groups(), ""};
    const auto wanted = std::make_shared<receiver_list>();

    add_beside(
        "recent receivers, all 9 groups of 10", full,
        [](size_t) {
            quillo_msisdn_s **members = nullptr;
            unsigned int count = 0;
            const zel_err_e result = _common_storage_get_recent_receiver_details(&members, &count);
            release_receivers(members, count);
            return result == ZEL_ERR_NONE;
        },
        [](sqlite3 *database, size_t) {
            unsigned int count = 0;
            quillo_msisdn_s **members = by_hand::read_recent_receivers(database, &count);
            release_receivers(members, count);
            return count == 90;
        });
    add_beside(
        "search for a recipient list in 9 groups", full,
        [=](size_t) {
            int group = 0;
            bool exists = true;
            _common_storage_is_recent_receiver_list_exist(wanted->list, 10, &group, &exists);
            return !exists && group == 1;
        },
        [=](sqlite3 *database, size_t) {
            bool exists = true;
            return by_hand::find_receiver_list(database, wanted->list, 10, &exists) == 1 && !exists;
        });
}

} // namespace

void add_store_measures()
{
    add_writes();
    add_reads();
    add_recent_receivers();
    add({
        .name = "trace discarded: read of a transfer / by hand without a line",
        .bound = NOT_JUDGED,
        .make =
            [] {
                const auto store = std::make_shared<scratch_store>(memory_folder(), transfers(1000));
                return sides{
                    {.run = repeat([](size_t i) {
                         zel_content_sync_info *info = nullptr;
                         _common_storage_get_sync_content_info_by_sync_id(id_of(i), &info);
                         _common_storage_free_sync_content_info(info);
                         return info != nullptr;
                     }),
                     .prepare = [=](size_t) { store->use(); }},
                    {.run = repeat([=](size_t i) {
                         zel_content_sync_info *info = by_hand::read_transfer<false>(store->peer, id_of(i));
                         by_hand::release_transfer<false>(info);
                         return info != nullptr;
                     })},
                };
            },
        .same_lines = false,
    });
}

} // namespace bench
