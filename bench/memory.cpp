/* The bytes that the library holds beside those that its data takes. */

#include "measures.h"
#include "samples.h"
#include "store_by_hand.h"
#include "store_scratch.h"
#include "zel_common_queue.h"
#include "zel_common_storage.h"
#include "zel_common_storage/patterns.h"

#include <filesystem>
#include <malloc.h>

namespace bench
{

namespace
{

constexpr double BOUND = 1.1;

/** Bytes that are allocated now. */
double allocated()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/** Bytes that an action leaves allocated. */
template <typename Action> double held_by(Action action)
{
    const double before = allocated();
    action();
    return allocated() - before;
}

weights weigh_queue()
{
    constexpr size_t ITEMS = 100000;
    static char item;
    zel_queue_s *queue = nullptr;
    GList *list = nullptr;
    const double own = held_by([&] {
        _common_queue_init(&queue);
        for (size_t i = 0; i < ITEMS; ++i)
            _common_queue_push(queue, &item);
    });
    const double peer = held_by([&] {
        for (size_t i = 0; i < ITEMS; ++i)
            list = g_list_prepend(list, &item);
    });
    _common_queue_deinit(queue, [](void *) {});
    g_list_free(list);
    return {own / ITEMS, peer / ITEMS};
}

weights weigh_list()
{
    constexpr int RECORDS = 1000;
    const scratch_store store(memory_folder(), transfers(RECORDS));
    GList *own_list = nullptr;
    GList *peer_list = nullptr;
    const auto list_own = [&] {
        _common_storage_get_sync_content_info_list(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &own_list, RECORDS);
    };
    list_own(); // fills the page cache, which is SQLite's
    g_list_free_full(own_list, _common_storage_free_sync_content_info);
    const double own = held_by(list_own);
    const double peer = held_by([&] {
        for (int i = 0; i < RECORDS; ++i) {
            auto *info = g_new0(zel_content_sync_info, 1);
            info->contents_token = g_strdup(TOKEN);
            info->original = g_strdup(URL);
            info->thumbnail = g_strdup(THUMBNAIL_PATH);
            info->name = g_strdup(FILE_NAME);
            info->local_path = g_strdup(LOCAL_PATH);
            info->mupload_key = g_strdup(TOKEN);
            peer_list = g_list_prepend(peer_list, info);
        }
    });
    g_list_free_full(own_list, _common_storage_free_sync_content_info);
    g_list_free_full(peer_list, _common_storage_free_sync_content_info);
    return {own / RECORDS, peer / RECORDS};
}

/** The first row's first column of a query. */
int ask(sqlite3 *database, const char *text)
{
    sqlite3_stmt *row = nullptr;
    sqlite3_prepare_v2(database, text, -1, &row, nullptr);
    const int answer = sqlite3_step(row) == SQLITE_ROW ? sqlite3_column_int(row, 0) : -1;
    sqlite3_finalize(row);
    return answer;
}

/** Opens a store that exists; the bare connection asks what the library asks of it. */
weights weigh_store()
{
    const std::filesystem::path before = std::filesystem::current_path();
    const std::filesystem::path place = std::filesystem::absolute(memory_folder() + "/store-weighed");
    std::filesystem::create_directories(place / ZEL_APPS_ROOT "quillo.service/data");
    std::filesystem::current_path(place);
    _g_sqlite_handle = nullptr;
    _common_storage_init();
    sqlite3_close(_g_sqlite_handle);
    _g_sqlite_handle = nullptr;

    sqlite3 *bare = nullptr;
    const double peer = held_by([&] {
        sqlite3_open_v2(ZEL_APPS_ROOT "quillo.service/data/.quillo_service.db", &bare,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        for (const char *table :
             {"push_noti_info", "content_info", "content_info_status", "recent_receiver_group",
              "recent_receiver_details", "upload_request_data", "contact_details", "unique_data", "folder_info"}) {
            char *text = sqlite3_mprintf("select count(name) from sqlite_master where name=%Q", table);
            require(ask(bare, text) == 1, "a table is missing");
            sqlite3_free(text);
        }
        require(ask(bare, "PRAGMA user_version;") == 104, "a version is missing");
    });
    sqlite3_close(bare);
    const double own = held_by([] { _common_storage_init(); });
    sqlite3_close(_g_sqlite_handle);
    _g_sqlite_handle = nullptr;
    std::filesystem::current_path(before);
    std::filesystem::remove_all(place);
    return {own, peer};
}

} // namespace

void add_memory_measures()
{
    add_memory("a queued item / a GList node", BOUND, weigh_queue);
    add_memory("a listed transfer / the record and its strings", BOUND, weigh_list);
    add_memory("an open store / a bare connection", BOUND, weigh_store);
}

} // namespace bench
