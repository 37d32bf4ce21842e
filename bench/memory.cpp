/* The bytes that the library holds beside those that its data takes. */

#include "harness.h"
#include "samples.h"
#include "store_fixture.h"
#include "zel_common_queue.h"

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

/** A store of its own in the working directory, opened. */
void open_store()
{
    std::filesystem::create_directories(zel_test::database_folder);
    require(_common_storage_init() == ZEL_ERR_NONE, "the store cannot be opened");
}

void close_store()
{
    sqlite3_close(_g_sqlite_handle);
    _g_sqlite_handle = nullptr;
}

weights weigh_list()
{
    constexpr int RECORDS = 1000;
    zel_content_sync_info sample = {};
    sample.type = ZEL_UPLOAD_FILE;
    sample.status = ZEL_SYNC_TODO;
    for (char **text : texts_of(sample))
        *text = const_cast<char *>(URL);
    open_store();
    for (int i = 0; i < RECORDS; ++i)
        _common_storage_add_sync_content_info(&sample);
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
            for (char **text : texts_of(*info))
                *text = g_strdup(URL);
            peer_list = g_list_prepend(peer_list, info);
        }
    });
    require(g_list_length(own_list) == RECORDS, "a record is missing");
    g_list_free_full(own_list, _common_storage_free_sync_content_info);
    g_list_free_full(peer_list, _common_storage_free_sync_content_info);
    close_store();
    std::filesystem::remove_all(zel_test::database_folder);
    return {own / RECORDS, peer / RECORDS};
}

/** The first row's first column of a query. */
int ask(sqlite3 *database, const std::string &text)
{
    sqlite3_stmt *row = nullptr;
    sqlite3_prepare_v2(database, text.c_str(), -1, &row, nullptr);
    const int answer = sqlite3_step(row) == SQLITE_ROW ? sqlite3_column_int(row, 0) : -1;
    sqlite3_finalize(row);
    return answer;
}

/** Opens a store that exists; the bare connection asks what the library asks of it. */
weights weigh_store()
{
    open_store();
    close_store();
    sqlite3 *bare = nullptr;
    const double peer = held_by([&] {
        sqlite3_open_v2(zel_test::database_file.c_str(), &bare, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        for (const char *table :
             {"push_noti_info", "content_info", "content_info_status", "recent_receiver_group",
              "recent_receiver_details", "upload_request_data", "contact_details", "unique_data", "folder_info"})
            require(ask(bare, "select count(name) from sqlite_master where name='" + std::string(table) + "'") == 1,
                    "a table is missing");
        require(ask(bare, "PRAGMA user_version;") == 104, "a version is missing");
    });
    sqlite3_close(bare);
    const double own = held_by(open_store);
    close_store();
    return {own, peer};
}

const group measures([] {
    add_memory("a queued item / a GList node", BOUND, weigh_queue);
    add_memory("a listed transfer / the record and its strings", BOUND, weigh_list);
    add_memory("an open store / a bare connection", BOUND, weigh_store);
});

} // namespace

} // namespace bench
