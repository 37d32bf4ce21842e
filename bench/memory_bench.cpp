/* The bytes that the library holds, beside the bytes of its data. */

#include "harness.h"
#include "recording.h"
#include "world.h"
#include "zel_common_queue.h"

#include <malloc.h>

namespace bench
{

namespace
{

double allocated()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/** Returns the bytes that an action leaves allocated. */
double held_by(const std::function<void()> &action)
{
    const double before = allocated();
    action();
    return allocated() - before;
}

std::pair<double, double> weigh_queue()
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

std::pair<double, double> weigh_list()
{
    constexpr int RECORDS = 1000;
    static char text[] = "https://files.example.org/v1/contents/4f1c9a7e2b5d4803/0001";
    zel_content_sync_info sample = {};
    sample.type = ZEL_UPLOAD_FILE;
    sample.name = text;
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
            peer_list = g_list_prepend(peer_list, g_new0(zel_content_sync_info, 1));
            static_cast<zel_content_sync_info *>(peer_list->data)->name = g_strdup(text);
        }
    });
    require(g_list_length(own_list) == RECORDS, "a record is missing");
    for (GList *list : {own_list, peer_list})
        g_list_free_full(list, _common_storage_free_sync_content_info);
    close_store();
    return {own / RECORDS, peer / RECORDS};
}

/** Opens a store that exists; the bare connection asks what the library asks of it. */
std::pair<double, double> weigh_store()
{
    recording asked;
    asked.record(open_store);
    close_store();
    sqlite3 *bare = nullptr;
    const double peer = held_by([&] {
        sqlite3_open_v2(zel_test::database_file.c_str(), &bare, SQLITE_OPEN_READWRITE, nullptr);
        asked.replay(bare);
    });
    sqlite3_close(bare);
    const double own = held_by(open_store);
    close_store();
    return {own, peer};
}

const group measures([] {
    add_value("memory: a queued item / a GList node", 1.1, "bytes", weigh_queue);
    add_value("memory: a listed transfer / the record and its strings", 1.1, "bytes", weigh_list);
    add_value("memory: an open store / a bare connection", 1.1, "bytes", weigh_store);
});

} // namespace

} // namespace bench
