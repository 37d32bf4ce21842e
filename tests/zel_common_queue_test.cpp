#include "interpose.h"
#include "recording_platform.h"
#include "zel_common_queue.h"

#include <cstdint>
#include <cstdio>
#include <future>
#include <thread>
#include <vector>

using namespace zel_test;

namespace
{

zel_queue_s *queue = nullptr;
std::vector<void *> released;

void release(void *item)
{
    EXPECT_TRUE(is_locked(queue->available_lock));
    released.push_back(item);
}

// Items are numbers here; two match when they agree in the last digit.
int matches(void *item, void *wanted)
{
    EXPECT_TRUE(is_locked(queue->available_lock));
    return reinterpret_cast<intptr_t>(item) % 10 != reinterpret_cast<intptr_t>(wanted) % 10;
}

void *item(intptr_t number)
{
    return reinterpret_cast<void *>(number);
}

trace locked(const std::string &function, std::initializer_list<trace> inside = {})
{
    return whole(function, {whole("__enter_critical_section"), join(inside), whole("__leave_critical_section")});
}

class Queue : public testing::Test
{
  protected:
    Queue()
    {
        EXPECT_EQ(_common_queue_init(&queue), ZEL_ERR_NONE);
        EXPECT_TRACE(whole("_common_queue_init"));
    }
    ~Queue() override
    {
        _common_queue_deinit(queue, release);
    }

    void push(std::initializer_list<intptr_t> numbers)
    {
        for (const intptr_t number : numbers)
            _common_queue_push(queue, item(number));
        take_trace();
    }
};

} // namespace

TEST_F(Queue, ItemsLeaveInTheOrderTheyCame)
{
    _common_queue_push(queue, item(1));
    EXPECT_TRACE(locked("_common_queue_push", {whole("__push_front"), whole("__wake_condition_variable")}));
    _common_queue_push(queue, item(2));
    EXPECT_TRACE(locked("_common_queue_push", {whole("__push_front")}));
    push({0});
    EXPECT_EQ(calls::cond_signal.calls(), 1) << "only the step from empty to one signals";

    EXPECT_EQ(_common_queue_length(queue), 3);
    EXPECT_TRACE(locked("_common_queue_length"));
    EXPECT_EQ(queue->item_list->data, nullptr) << "the head is the newest";
    EXPECT_EQ(_common_queue_pop(queue), item(1));
    EXPECT_TRACE(locked("_common_queue_pop", {whole("__pop_back")}));
    EXPECT_EQ(_common_queue_pop(queue), item(2));
    EXPECT_EQ(_common_queue_pop(queue), nullptr) << "a null item is an item";
    EXPECT_EQ(queue->item_list, nullptr);
    push({4});
    EXPECT_EQ(calls::cond_signal.calls(), 2) << "empty to one again";
}

TEST_F(Queue, SearchesTakeTheNewestMatch)
{
    push({17, 1, 27, 17, 3});
    EXPECT_EQ(_common_queue_find(queue, matches, item(7)), item(17));
    EXPECT_EQ(_common_queue_find(queue, matches, item(9)), nullptr);
    EXPECT_TRACE(locked("_common_queue_find"), locked("_common_queue_find"));
    _common_queue_remove(queue, item(7)); // by its address only
    _common_queue_remove(queue, item(17));
    EXPECT_TRACE(locked("_common_queue_remove"), locked("_common_queue_remove"));
    EXPECT_TRUE(released.empty());

    char element[40];
    std::snprintf(element, sizeof element, "elem[%p]", static_cast<void *>(queue->item_list->next));
    EXPECT_TRUE(_common_queue_find_and_remove(queue, matches, release, item(7)));
    EXPECT_TRACE(locked("_common_queue_find_and_remove", {debug("_common_queue_find_and_remove", element)}));
    EXPECT_FALSE(_common_queue_find_and_remove(queue, matches, release, item(9)));
    EXPECT_TRACE(locked("_common_queue_find_and_remove"));
    EXPECT_EQ(released, std::vector{item(27)});
    for (const intptr_t left : {17, 1, 3})
        EXPECT_EQ(_common_queue_pop(queue), item(left));
}

TEST_F(Queue, ClearAndDeinitReleaseNewestFirst)
{
    const std::string clear = "_common_queue_clear";
    push({1, 2, 3});
    _common_queue_clear(queue, release);
    EXPECT_TRACE(locked(clear));
    EXPECT_EQ(released, (std::vector{item(3), item(2), item(1)}));
    EXPECT_EQ(queue->item_list, nullptr);
    _common_queue_clear(queue, release);
    EXPECT_TRACE(locked(clear, {critical(clear, "req_queue->item_list is NULL")}));
    push({6, 7});
    _common_queue_deinit(queue, nullptr); // the nodes go, the items stay
    EXPECT_TRACE(whole("_common_queue_deinit", {begin(clear), critical(clear, "Invalid params")}));
    _common_queue_init(&queue);
    push({5});
    _common_queue_deinit(queue, release);
    EXPECT_TRACE(whole("_common_queue_deinit", {locked(clear)}));
    EXPECT_EQ(released.back(), item(5));
    _common_queue_init(&queue);
}

TEST_F(Queue, NullArgumentsAreRejected)
{
    push({1});
    const std::string body = "Invalid params";
    EXPECT_NULLS_REJECTED(1, ZEL_ERR_INVALID_ARG, body, _common_queue_init, &queue);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_queue_push, queue, item(2));
    EXPECT_NULLS_REJECTED(1, nullptr, body, _common_queue_pop, queue);
    EXPECT_NULLS_REJECTED(2, nullptr, body, _common_queue_find, queue, matches, item(1));
    EXPECT_NULLS_REJECTED(2, 0, body, _common_queue_remove, queue, item(1));
    EXPECT_NULLS_REJECTED(3, false, body, _common_queue_find_and_remove, queue, matches, release, item(1));
    EXPECT_NULLS_REJECTED(2, 0, body, _common_queue_clear, queue, release);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_queue_deinit, queue, release);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_queue_length, queue);
    EXPECT_NULLS_REFUSED(1, false, body, _common_queue_get_wait_status, queue);
    EXPECT_EQ(_common_queue_length(queue), 1);
    EXPECT_TRUE(released.empty());

    take_trace();
    zel_queue_s *other = queue;
    const allocation_failure failure(1);
    EXPECT_REJECTED(ZEL_ERR_MEMORY, "Failed to allocate memory", _common_queue_init, &other);
    EXPECT_EQ(other, queue);
}

TEST_F(Queue, PopSleepsUntilItIsWoken)
{
    EXPECT_FALSE(_common_queue_get_wait_status(queue));
    EXPECT_TRACE();
    for (void *pushed : {item(5), item(0)}) {
        auto popped = std::async(std::launch::async, [] {
            void *result = _common_queue_pop(queue);
            EXPECT_TRACE(locked("_common_queue_pop", {whole("__sleep_condition_variable"), whole("__pop_back")}));
            return result;
        });
        wait_for_sleeper(queue->available_lock);
        EXPECT_TRUE(_common_queue_get_wait_status(queue));
        if (pushed)
            _common_queue_push(queue, pushed);
        else // woken over an empty queue
            pthread_cond_broadcast(&queue->available_signal);
        EXPECT_EQ(popped.get(), pushed);
        EXPECT_FALSE(_common_queue_get_wait_status(queue));
    }
}

TEST_F(Queue, ManyProducersLoseNothingAndKeepTheirOrder)
{
    std::vector<std::thread> producers;
    for (const intptr_t producer : {0, 1, 2, 3})
        producers.emplace_back([producer] {
            for (intptr_t n = 1; n <= 200; ++n)
                _common_queue_push(queue, item(producer * 1000 + n));
        });
    intptr_t last[4] = {};
    for (int taken = 0; taken < 4 * 200;) {
        const auto number = reinterpret_cast<intptr_t>(_common_queue_pop(queue));
        if (number == 0)
            continue;
        ++taken;
        EXPECT_EQ(number % 1000, ++last[number / 1000]);
    }
    for (std::thread &producer : producers)
        producer.join();
    EXPECT_EQ(_common_queue_length(queue), 0);
}
