/* The queue beside GLib's, whose peer writes the queue's log lines. */

#include "harness.h"
#include "zel_common_log/trace.h"
#include "zel_common_queue.h"

#include <memory>
#include <sched.h>
#include <thread>

namespace bench
{

namespace
{

char item;

void peer_push(GAsyncQueue *queue, void *data)
{
    ZEL_BEGIN();
    ZEL_BEGIN();
    ZEL_END();
    ZEL_BEGIN();
    g_async_queue_push(queue, data);
    ZEL_END();
    ZEL_BEGIN();
    ZEL_END();
    ZEL_END();
}

void *peer_pop(GAsyncQueue *queue)
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

struct queue_release {
    void operator()(zel_queue_s *queue) const
    {
        _common_queue_deinit(queue, [](void *) {});
    }
    void operator()(GAsyncQueue *queue) const
    {
        g_async_queue_unref(queue);
    }
};
using own_queue = std::shared_ptr<zel_queue_s>;
using peer_queue = std::shared_ptr<GAsyncQueue>;

own_queue new_own_queue(size_t length)
{
    zel_queue_s *queue = nullptr;
    require(_common_queue_init(&queue) == ZEL_ERR_NONE, "no queue");
    for (size_t i = 0; i < length; ++i)
        _common_queue_push(queue, &item);
    return own_queue(queue, queue_release());
}

peer_queue new_peer_queue(size_t length)
{
    GAsyncQueue *queue = g_async_queue_new();
    for (size_t i = 0; i < length; ++i)
        g_async_queue_push(queue, &item);
    return peer_queue(queue, queue_release());
}

side own_push_and_pop(size_t length)
{
    return repeat([=] {
        return [queue = new_own_queue(length)] {
            _common_queue_push(queue.get(), &item);
            require(_common_queue_pop(queue.get()) == &item, "the queue is empty");
        };
    });
}

side peer_push_and_pop(size_t length)
{
    return repeat([=] {
        return [queue = new_peer_queue(length)] {
            peer_push(queue.get(), &item);
            require(peer_pop(queue.get()) == &item, "the queue is empty");
        };
    });
}

/** Keeps this thread and those it starts on one processor, so that none is waited for. */
class one_processor
{
  public:
    one_processor()
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        require(sched_getaffinity(0, sizeof before, &before) == 0 && sched_setaffinity(0, sizeof one, &one) == 0,
                "no processor can be chosen");
    }
    ~one_processor()
    {
        sched_setaffinity(0, sizeof before, &before);
    }
    one_processor(const one_processor &) = delete;
    one_processor &operator=(const one_processor &) = delete;

  private:
    cpu_set_t before;
};

/** Two queues, and a thread that hands back on the second what it takes from the first until that is `stop`. */
template <typename Queue> class echo
{
  public:
    using push_function = void (*)(Queue *, void *);
    using pop_function = void *(*)(Queue *);

    echo(std::shared_ptr<Queue> first, std::shared_ptr<Queue> second, push_function pushing, pop_function popping)
        : there(std::move(first)), back(std::move(second)), push(pushing), pop(popping), thread([this] {
              for (void *data = take(*there); data != &stop; data = take(*there))
                  push(back.get(), data);
          })
    {
    }
    ~echo()
    {
        push(there.get(), &stop);
        thread.join();
    }
    void hand_over_and_back()
    {
        push(there.get(), &item);
        take(*back);
    }

  private:
    /** A pop that wakes for nothing gives NULL. */
    void *take(Queue &queue)
    {
        for (;;) {
            if (void *data = pop(&queue))
                return data;
        }
    }

    std::shared_ptr<Queue> there;
    std::shared_ptr<Queue> back;
    push_function push;
    pop_function pop;
    char stop = 0;
    std::thread thread;
};

/** On one processor, which is taken before the other thread is started. */
template <typename Make> side hand_over(Make make)
{
    return repeat([=] {
        return [here = std::make_shared<one_processor>(), partner = make()] { partner->hand_over_and_back(); };
    });
}

/** The cost of an operation on a whole queue. */
template <typename Operation> void add_walk(const char *name, Operation operation)
{
    add_growth(std::string("queue ") + name, 100, [=](size_t n) {
        return repeat([=] { return [queue = new_own_queue(n), operation] { operation(queue.get()); }; });
    });
}

const group measures([] {
    add({.name = "control: the same work on both sides", .bound = NOT_JUDGED, .make = [] {
             return sides{peer_push_and_pop(10), peer_push_and_pop(10)};
         }});
    for (const size_t length : {10, 1000, 100000})
        add({.name = "queue: push and pop, " + std::to_string(length) + " queued / GAsyncQueue",
             .bound = 1.0,
             .make = [=] {
                 return sides{own_push_and_pop(length), peer_push_and_pop(length)};
             }});
    // The lines of a hand-over depend on which thread comes first.
    add({.name = "queue: hand-over to a thread and back, on one processor / GAsyncQueue",
         .bound = 1.1,
         .make =
             [] {
                 return sides{hand_over([] {
                                  return std::make_shared<echo<zel_queue_s>>(new_own_queue(0), new_own_queue(0),
                                                                             _common_queue_push, _common_queue_pop);
                              }),
                              hand_over([] {
                                  return std::make_shared<echo<GAsyncQueue>>(new_peer_queue(0), new_peer_queue(0),
                                                                             peer_push, peer_pop);
                              })};
             },
         .same_lines = false,
         .source = time_source::process});
    add_growth("queue push and pop", 1000, own_push_and_pop, true);
    add_growth(
        "queue length", 1000,
        [](size_t n) {
            return repeat([=] {
                return [queue = new_own_queue(n), n] {
                    require(_common_queue_length(queue.get()) == static_cast<int>(n), "a wrong length");
                };
            });
        },
        true);
    add_walk("find, the oldest", [](zel_queue_s *queue) {
        _common_queue_find(
            queue, [](void *, void *) { return 1; }, nullptr);
    });
    add_walk("remove, the oldest", [](zel_queue_s *queue) {
        char other;
        _common_queue_remove(queue, &other);
        _common_queue_find_and_remove(
            queue, [](void *, void *) { return 1; }, [](void *) {}, nullptr);
    });
    add_growth("queue fill and clear", 100, [](size_t n) {
        return repeat([=] {
            return [queue = new_own_queue(0), n] {
                for (size_t pushed = 0; pushed < n; ++pushed)
                    _common_queue_push(queue.get(), &item);
                _common_queue_clear(queue.get(), [](void *) {});
            };
        });
    });
});

} // namespace

} // namespace bench
