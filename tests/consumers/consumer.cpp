// A C++ program outside the tree: what only C++ does with the headers, and whether its answers are right.
#include <zel_common.h>
#include <zel_common_log.h>
#include <zel_common_queue.h>
#include <zel_common_request.h>
#include <zel_common_storage.h>
#include <zel_common_thread.h>

#include <cstdio>
#include <memory>
#include <string_view>

using text = std::unique_ptr<char, decltype(&g_free)>;

int main()
{
    zel_queue_s *queue = nullptr;
    bool right = _common_queue_init(&queue) == ZEL_ERR_NONE;
    const auto work = [](void *queue) -> void * {
        _common_queue_push(static_cast<zel_queue_s *>(queue), g_strdup("done"));
        return nullptr;
    };
    zel_thread_s *worker = nullptr;
    right = right && _common_thread_start(&worker, work, queue);
    right = right && text(static_cast<char *>(_common_queue_pop(queue)), g_free).get() == std::string_view("done");
    _common_thread_stop(worker);
    _common_queue_deinit(queue, g_free);

    char *token = nullptr;
    unsigned long long synced = 0;
    right = right && _common_storage_init() == ZEL_ERR_NONE &&
            _common_storage_upsert_folder_info("group", "content", 1, "folder", 2, 1ULL << 40) == ZEL_ERR_NONE &&
            _common_storage_get_folder_info("group", nullptr, nullptr, &token, nullptr, &synced) == ZEL_ERR_NONE;
    right = right && text(token, g_free).get() == std::string_view("folder") && synced == 1ULL << 40;
    std::puts(right ? "C++: all right" : "C++: not so");
    return right ? 0 : 1;
}
