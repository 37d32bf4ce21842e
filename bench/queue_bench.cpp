/* The queue beside GLib's, whose peer writes the queue's log lines. */

#include "harness.h"
#include "zel_common_log/trace.h"
#include "zel_common_queue.h"

#include <memory>

namespace bench
{

namespace
{

char item;

void push(zel_queue_s *queue)
{
    _common_queue_push(queue, &item);
}

void push(GAsyncQueue *queue)
{
    ZEL_BEGIN();
    ZEL_BEGIN();
    ZEL_END();
    ZEL_BEGIN();
    g_async_queue_push(queue, &item);
    ZEL_END();
    ZEL_BEGIN();
    ZEL_END();
    ZEL_END();
}

void *pop(zel_queue_s *queue)
{
    return _common_queue_pop(queue);
}

void *pop(GAsyncQueue *queue)
{
    ZEL_BEGIN();
    ZEL_BEGIN();
    ZEL_END();
    ZEL_BEGIN();
    void *data = g_async_queue_pop(queue);
    ZEL_END();
    ZEL_BEGIN();
    ZEL_END();
    ZEL_END();
    return data;
}

std::shared_ptr<zel_queue_s> new_own_queue(size_t length)
{
    zel_queue_s *queue = nullptr;
    require(_common_queue_init(&queue) == ZEL_ERR_NONE, "no queue");
    for (size_t i = 0; i < length; ++i)
        push(queue);
    return {queue, [](zel_queue_s *it) { _common_queue_deinit(it, [](void *) {}); }};
}

std::shared_ptr<GAsyncQueue> new_peer_queue(size_t length)
{
    GAsyncQueue *queue = g_async_queue_new();
    for (size_t i = 0; i < length; ++i)
        g_async_queue_push(queue, &item);
    return {queue, g_async_queue_unref};
}

template <typename Make> side push_and_pop(Make make, size_t length)
{
    return repeat([=] {
        return [queue = make(length)] {
            push(queue.get());
            require(pop(queue.get()) == &item, "the queue is empty");
        };
    });
}

/** Two threads: the second returns on one queue the items that it takes from the other. */
template <typename Make> side hand_over(Make make)
{
    return {[there = make(0), back = make(0)](benchmark::State &state) {
        const bool first = state.thread_index() == 0;
        for (auto _ : state) {
            if (first)
                push(there.get());
            while (!pop((first ? back : there).get())) // a pop that wakes for nothing gives NULL
                ;
            if (!first)
                push(back.get());
        }
    }};
}

constexpr auto is_it = [](void *, void *) { return 1; };

/** The cost of an operation on a whole queue of so many items. */
template <typename Operation>
void add_growth_of(const char *name, size_t n, Operation operation, bool flat = false, bool filled = true)
{
    add_growth(
        std::string("queue ") + name, n,
        [=](size_t size) {
            return repeat([=] {
                return [queue = new_own_queue(filled ? size : 0), operation, size] { operation(queue.get(), size); };
            });
        },
        flat);
}

const group measures([] {
    add({"control: the same work on both sides", 1.1,
         [] { return std::pair(push_and_pop(new_peer_queue, 10), push_and_pop(new_peer_queue, 10)); }});
    for (const size_t length : {10U, 1000U, 100000U})
        add({"queue: push and pop, " + std::to_string(length) + " queued / GAsyncQueue", 1.0,
             [=] { return std::pair(push_and_pop(new_own_queue, length), push_and_pop(new_peer_queue, length)); }});
    add({.name = "queue: hand-over to a thread and back, on one processor / GAsyncQueue",
         .bound = 1.1,
         .make = [] { return std::pair(hand_over(new_own_queue), hand_over(new_peer_queue)); },
         .threads = 2});
    add_growth(
        "queue push and pop", 1000, [](size_t n) { return push_and_pop(new_own_queue, n); }, true);
    add_growth_of(
        "length", 1000,
        [](zel_queue_s *queue, size_t n) {
            require(_common_queue_length(queue) == static_cast<int>(n), "a wrong length");
        },
        true);
    add_growth_of("find, the oldest", 100,
                  [](zel_queue_s *queue, size_t) { _common_queue_find(queue, is_it, nullptr); });
    add_growth_of("remove, the oldest", 100, [](zel_queue_s *queue, size_t) {
        char other;
        _common_queue_remove(queue, &other);
        _common_queue_find_and_remove(
            queue, is_it, [](void *) {}, nullptr);
    });
    add_growth_of(
        "fill and clear", 100,
        [](zel_queue_s *queue, size_t n) {
            for (size_t pushed = 0; pushed < n; ++pushed)
                push(queue);
            _common_queue_clear(queue, [](void *) {});
        },
        false, false);
});

} // namespace

} // namespace bench
