#include "desk.h"

#include "bus.h"

namespace sharing
{

namespace
{

/** A call with its request, as it lies in the queue. */
struct call {
    GDBusMethodInvocation *invocation; /**< which the answer releases */
    std::function<void()> answered;
    work rest = nullptr; /**< of a call that has begun */
};

void answer(const call &one, GVariant *result)
{
    g_dbus_method_invocation_return_value(one.invocation, result);
    one.answered();
}

void answer(const call &one, const std::exception &reason)
{
    const int code = _common_util_convert_service_error_to_client_error(as_failure(reason).code);
    const text sentence(g_utf8_make_valid(reason.what(), -1));
    g_dbus_method_invocation_return_dbus_error(one.invocation, (bus::error_prefix + std::to_string(-code)).c_str(),
                                               sentence.get());
    one.answered();
}

} // namespace

void desk::take(const zel_request &request, GDBusMethodInvocation *invocation, std::function<void()> answered)
{
    auto *queued = g_new0(comm_param_s, 1);
    queued->request = request;
    queued->handle = new call{invocation, std::move(answered)};
    _common_queue_push(queue_, queued);
}

void desk::run()
{
    for (;;) {
        std::unique_ptr<comm_param_s, releaser<_common_free_zel_param_members>> queued(
            static_cast<comm_param_s *>(_common_queue_pop(queue_)));
        if (!queued)
            continue; // woken without an item
        if (queued->request.cmd == ZEL_CMD_UNKNOWN)
            return;
        std::unique_ptr<call> one(static_cast<call *>(queued->handle));
        try {
            if (!one->rest)
                one->rest = methods_.begin(queued->request);
            if (GVariant *result = one->rest()) {
                answer(*one, result);
            } else {
                queued->handle = one.release();
                _common_queue_push(queue_, queued.release());
            }
        } catch (const std::exception &reason) {
            answer(*one, reason);
        }
    }
}

void desk::start()
{
    must(_common_queue_init(&queue_));
    const auto routine = [](void *self) -> void * {
        auto &here = *static_cast<desk *>(self);
        auto end = std::move(here.end_); // the desk may go as soon as the end is known
        _common_thread_notify_started(here.thread_);
        _common_thread_sendSignal(here.thread_); // the report itself wakes nobody
        here.run();
        end.set_value();
        return nullptr;
    };
    require(_common_thread_start(&thread_, routine, this) && _common_thread_wait_till_start(thread_), ZEL_ERR_THREAD,
            "The service's thread could not be started.");
}

void desk::stop()
{
    if (!thread_)
        return;
    // The queue's pop sleeps without a limit, so its thread is ended by a request.
    auto *last = g_new0(comm_param_s, 1);
    last->request.cmd = ZEL_CMD_UNKNOWN;
    _common_queue_push(queue_, last);
    ended_.wait();
    _common_thread_stop(thread_);
    _common_queue_deinit(queue_, [](void *item) {
        auto *queued = static_cast<comm_param_s *>(item);
        if (const std::unique_ptr<call> one(static_cast<call *>(queued->handle)); one)
            answer(*one, failure(ZEL_ERR_SERVER_NOT_RUNNING, "The service is stopping."));
        _common_free_zel_param_members(queued);
    });
}

} // namespace sharing
