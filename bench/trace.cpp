/* The cost of the trace when the host platform writes it. Standard error is a file meanwhile. */

#include "zel_common_log/trace.h"
#include "harness.h"
#include "samples.h"
#include "store_by_hand.h"
#include "store_scratch.h"
#include "zel_common_queue.h"
#include "zel_platform.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace bench
{

namespace
{

char item;

/** Makes standard error a file until it goes. */
class diverted_trace
{
  public:
    explicit diverted_trace(const std::string &path) : before(dup(STDERR_FILENO))
    {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        require(before >= 0 && file >= 0, "standard error cannot be diverted");
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~diverted_trace()
    {
        dup2(before, STDERR_FILENO);
        close(before);
    }
    diverted_trace(const diverted_trace &) = delete;
    diverted_trace &operator=(const diverted_trace &) = delete;

    /** Keeps the file small; what is no file stays as it is. */
    void empty() const
    {
        [[maybe_unused]] const int failed = ftruncate(STDERR_FILENO, 0);
    }

  private:
    int before;
};

using trace_holder = std::shared_ptr<diverted_trace>;

/** Runs an action over and over while the trace is diverted. */
template <typename Action> side diverted(const trace_holder &trace, Action action)
{
    return {.run =
                [=](size_t count) {
                    for (size_t i = 0; i < count; ++i)
                        action();
                },
            .prepare = [trace](size_t) { trace->empty(); }};
}

void add_line(const std::string &kind, const std::string &text, const std::string &where, const std::string &path)
{
    add({
        .name = "trace: one" + kind + " line " + where + " / fprintf",
        .bound = 1.2,
        .make =
            [=] {
                const auto trace = std::make_shared<diverted_trace>(path);
                return sides{
                    diverted(trace, [=] { ZEL_PLAIN("query [%s]", text.c_str()); }),
                    diverted(trace,
                             [=] {
                                 std::fprintf(stderr, "%c/%s: %s(%d):  query [%s]\n", 'I', "QUILLO_COMMON", __func__,
                                              __LINE__, text.c_str());
                             }),
                };
            },
        .same_lines = false,
    });
}

void add_written(const std::string &where, const std::string &path)
{
    add({
        .name = "trace written " + where + ": push and pop / GAsyncQueue without a line",
        .bound = NOT_JUDGED,
        .make =
            [=] {
                const auto trace = std::make_shared<diverted_trace>(path);
                zel_queue_s *made = nullptr;
                _common_queue_init(&made);
                const std::shared_ptr<zel_queue_s> own(
                    made, [trace](zel_queue_s *queue) { _common_queue_deinit(queue, [](void *) {}); });
                const std::shared_ptr<GAsyncQueue> peer(g_async_queue_new(), g_async_queue_unref);
                return sides{
                    diverted(trace,
                             [=] {
                                 _common_queue_push(own.get(), &item);
                                 _common_queue_pop(own.get());
                             }),
                    diverted(trace,
                             [=] {
                                 g_async_queue_push(peer.get(), &item);
                                 g_async_queue_pop(peer.get());
                             }),
                };
            },
        .same_lines = false,
    });
    add({
        .name = "trace written " + where + ": read of a transfer / by hand without a line",
        .bound = NOT_JUDGED,
        .make =
            [=] {
                const auto trace = std::make_shared<diverted_trace>(path);
                const auto store = std::make_shared<scratch_store>(memory_folder(), transfers(1000));
                return sides{
                    diverted(trace,
                             [=] {
                                 store->use();
                                 zel_content_sync_info *info = nullptr;
                                 _common_storage_get_sync_content_info_by_sync_id(500, &info);
                                 _common_storage_free_sync_content_info(info);
                             }),
                    diverted(trace,
                             [=] {
                                 zel_content_sync_info *info = by_hand::read_transfer<false>(store->peer, 500);
                                 by_hand::release_transfer<false>(info);
                             }),
                };
            },
        .same_lines = false,
    });
}

void add_measures()
{
    const std::string text = "UPDATE 'content_info_status' SET status = 1 WHERE sync_id = 123";
    const std::string file = memory_folder() + "/trace";
    add_line("", text, "to a file", file);
    add_line(" long", std::string(4000, 'x'), "to a file", file);
    add_line("", text, "to nowhere", "/dev/null");
    add_written("to a file", file);
    add_written("to nowhere", "/dev/null");
}

} // namespace

std::vector<std::string> *kept_lines()
{
    return nullptr;
}

} // namespace bench

int main(int argc, char **argv)
{
    return bench::run(argc, argv, bench::add_measures);
}
