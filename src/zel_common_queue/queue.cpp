/* The blocking request queue. */

#include "zel_common_log/trace.h"
#include "zel_common_queue/steps.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace
{

/** The allocation of _common_queue_init: the public record, and fields that spare push, pop and length a list walk. */
struct queue_record {
    zel_queue_s queue;
    GList *tail;  /**< the oldest item's node; NULL when the queue is empty */
    int length;   /**< number of nodes */
    GList *spare; /**< a removed node, for the next push; may be NULL */
};
static_assert(std::is_standard_layout_v<queue_record> && offsetof(queue_record, queue) == 0);

queue_record *record_of(zel_queue_s *req_queue)
{
    return reinterpret_cast<queue_record *>(req_queue);
}

/** Removes a node from the list and returns its item. */
void *unlink_node(zel_queue_s *req_queue, GList *node)
{
    queue_record *record = record_of(req_queue);
    void *item = node->data;
    (node->prev ? node->prev->next : req_queue->item_list) = node->next;
    (node->next ? node->next->prev : record->tail) = node->prev;
    --record->length;
    g_list_free(record->spare);
    node->next = nullptr;
    record->spare = node;
    return item;
}

/** Returns the node of the newest item that matches, or NULL. */
GList *find_node(zel_queue_s *req_queue, _common_queue_find_func func, void *user_data)
{
    GList *node = req_queue->item_list;
    while (node && func(node->data, user_data) != 0)
        node = node->next;
    return node;
}

/** Releases all nodes, but not their items. */
void drop_nodes(zel_queue_s *req_queue)
{
    g_list_free(req_queue->item_list);
    req_queue->item_list = nullptr;
    record_of(req_queue)->tail = nullptr;
    record_of(req_queue)->length = 0;
}

/** Reads the flag without the lock, so through an atomic reference. */
std::atomic_ref<bool> wait_status(zel_queue_s *req_queue)
{
    return std::atomic_ref<bool>(req_queue->queue_wait_status);
}

} // namespace

/* Single steps ----------------------------------------------------------------------------------------------- */

void __enter_critical_section(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    pthread_mutex_lock(&req_queue->available_lock);
    ZEL_END();
}

void __leave_critical_section(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    pthread_mutex_unlock(&req_queue->available_lock);
    ZEL_END();
}

void __push_front(zel_queue_s *req_queue, void *data)
{
    ZEL_BEGIN();
    queue_record *record = record_of(req_queue);
    GList *node = record->spare ? std::exchange(record->spare, nullptr) : g_list_alloc();
    node->data = data;
    node->prev = nullptr;
    node->next = req_queue->item_list;
    (node->next ? node->next->prev : record->tail) = node;
    req_queue->item_list = node;
    ++record->length;
    ZEL_END();
}

void __wake_condition_variable(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    pthread_cond_signal(&req_queue->available_signal);
    ZEL_END();
}

void __sleep_condition_variable(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    pthread_cond_wait(&req_queue->available_signal, &req_queue->available_lock);
    ZEL_END();
}

void *__pop_back(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    GList *tail = record_of(req_queue)->tail;
    void *item = tail ? unlink_node(req_queue, tail) : nullptr;
    ZEL_END();
    return item;
}

/* Operations ------------------------------------------------------------------------------------------------- */

zel_err_e _common_queue_init(zel_queue_s **req_queue)
{
    ZEL_BEGIN();
    if (!req_queue)
        return reject("Invalid params");

    queue_record *record = g_try_new0(queue_record, 1);
    if (!record) {
        ZEL_CRITICAL("Failed to allocate memory");
        return ZEL_ERR_MEMORY;
    }
    pthread_mutex_init(&record->queue.available_lock, nullptr);
    pthread_cond_init(&record->queue.available_signal, nullptr);

    *req_queue = &record->queue;
    ZEL_END();
    return ZEL_ERR_NONE;
}

void _common_queue_deinit(zel_queue_s *req_queue, free_queue_member func)
{
    ZEL_BEGIN();
    if (!req_queue)
        return (void)reject("Invalid params");

    _common_queue_clear(req_queue, func);
    if (!func)
        drop_nodes(req_queue);
    pthread_mutex_destroy(&req_queue->available_lock);
    pthread_cond_destroy(&req_queue->available_signal);
    g_list_free(record_of(req_queue)->spare);
    g_free(record_of(req_queue));
    ZEL_END();
}

void _common_queue_clear(zel_queue_s *req_queue, free_queue_member func)
{
    ZEL_BEGIN();
    if (!req_queue || !func)
        return (void)reject("Invalid params");

    __enter_critical_section(req_queue);
    if (req_queue->item_list) {
        for (GList *node = req_queue->item_list; node; node = node->next)
            func(node->data);
        drop_nodes(req_queue);
    } else {
        ZEL_CRITICAL("req_queue->item_list is NULL");
    }
    __leave_critical_section(req_queue);
    ZEL_END();
}

void _common_queue_push(zel_queue_s *req_queue, void *data)
{
    ZEL_BEGIN();
    if (!req_queue)
        return (void)reject("Invalid params");

    __enter_critical_section(req_queue);
    __push_front(req_queue, data);
    if (record_of(req_queue)->length == 1)
        __wake_condition_variable(req_queue);
    __leave_critical_section(req_queue);
    ZEL_END();
}

void *_common_queue_pop(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    if (!req_queue)
        return reject("Invalid params", nullptr);

    __enter_critical_section(req_queue);
    if (!req_queue->item_list) {
        wait_status(req_queue) = true;
        __sleep_condition_variable(req_queue);
        wait_status(req_queue) = false;
    }
    void *item = __pop_back(req_queue);
    __leave_critical_section(req_queue);
    ZEL_END();
    return item;
}

bool _common_queue_get_wait_status(zel_queue_s *req_queue)
{
    if (!req_queue)
        return reject("Invalid params", false);
    return wait_status(req_queue);
}

void *_common_queue_find(zel_queue_s *req_queue, _common_queue_find_func func, void *user_data)
{
    ZEL_BEGIN();
    if (!req_queue || !func)
        return reject("Invalid params", nullptr);

    __enter_critical_section(req_queue);
    const GList *node = find_node(req_queue, func, user_data);
    void *item = node ? node->data : nullptr;
    __leave_critical_section(req_queue);
    ZEL_END();
    return item;
}

void _common_queue_remove(zel_queue_s *req_queue, void *item)
{
    ZEL_BEGIN();
    if (!req_queue || !item)
        return (void)reject("Invalid params");

    __enter_critical_section(req_queue);
    if (GList *node = g_list_find(req_queue->item_list, item))
        unlink_node(req_queue, node);
    __leave_critical_section(req_queue);
    ZEL_END();
}

bool _common_queue_find_and_remove(zel_queue_s *req_queue, _common_queue_find_func func, free_queue_member free_func,
                                   void *user_data)
{
    ZEL_BEGIN();
    if (!req_queue || !func || !free_func)
        return reject("Invalid params", false);

    __enter_critical_section(req_queue);
    GList *node = find_node(req_queue, func, user_data);
    const bool found = node != nullptr;
    if (found) {
        void *item = unlink_node(req_queue, node);
        ZEL_DEBUG("elem[%p]", static_cast<void *>(node));
        free_func(item);
    }
    __leave_critical_section(req_queue);
    ZEL_END();
    return found;
}

int _common_queue_length(zel_queue_s *req_queue)
{
    ZEL_BEGIN();
    if (!req_queue)
        return reject("Invalid params", 0);

    __enter_critical_section(req_queue);
    const int length = record_of(req_queue)->length;
    __leave_critical_section(req_queue);
    ZEL_END();
    return length;
}
