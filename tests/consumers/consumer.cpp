// A C++ program outside the tree: one operation of every area, and whether its answer is right.
#include <zel_common.h>
#include <zel_common_log.h>
#include <zel_common_queue.h>
#include <zel_common_request.h>
#include <zel_common_storage.h>
#include <zel_common_thread.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string_view>

namespace
{

int failures = 0;

void check(bool truth, int line = __builtin_LINE())
{
    if (!truth) {
        ++failures;
        std::printf("consumer.cpp:%d: not so\n", line);
    }
}

template <auto function> struct released_by {
    template <typename T> void operator()(T *record) const
    {
        function(record);
    }
};
using text = std::unique_ptr<char, released_by<g_free>>;
using table_of_shares = std::unique_ptr<zel_hash_table, released_by<_common_deinit_hash_table>>;

zel_thread_s *worker = nullptr;
zel_queue_s *answers = nullptr;

} // namespace

int main()
{
    check(_common_util_convert_service_error_to_client_error(ZEL_ERR_REQ_PAUSED) == QUILLO_ERROR_NONE);
    zel_service_log(__FILE__, __func__, __LINE__, "CONSUMER", "%d", 1);

    zel_hash_table *made = nullptr;
    _common_init_hash_table(&made, g_free, _common_free_share_content_info);
    const table_of_shares shares(made);
    auto *share = g_new0(zel_trans_share_content_info, 1);
    share->expired_time = 5'000'000'000;
    _common_write_to_hash_table(shares.get(), g_strdup("token"), share);
    auto *found = static_cast<zel_trans_share_content_info *>(_common_read_from_hash_table(shares.get(), "token"));
    check(found && found->expired_time == 5'000'000'000);

    check(_common_queue_init(&answers) == ZEL_ERR_NONE);
    const auto double_it = [](void *number) -> void * {
        _common_thread_notify_started(worker);
        _common_thread_sendSignal(worker);
        *static_cast<int *>(number) *= 2;
        _common_queue_push(answers, number);
        return nullptr;
    };
    int number = 21;
    check(_common_thread_start(&worker, double_it, &number) && _common_thread_wait_till_start(worker));
    check(*static_cast<int *>(_common_queue_pop(answers)) == 42);
    _common_thread_stop(worker);
    _common_queue_deinit(answers, nullptr);

    auto *param = g_new0(comm_param_s, 1);
    zel_request source{};
    source.req_id = 7;
    source.receiver_list = g_list_append(nullptr, g_strdup("+15550100"));
    check(_common_copy_zel_request_members(&source, &param->request) == ZEL_ERR_NONE);
    _common_free_zel_request_members(&source);
    check(static_cast<char *>(param->request.receiver_list->data) == std::string_view("+15550100"));
    check(param->request.req_id == 7);
    _common_free_zel_param_members(param);

    check(_common_util_file_exist("/") && !_common_util_file_exist("no-such-file"));
    const auto now = std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1);
    check(_common_util_get_current_timestamp() - static_cast<unsigned long long>(now) + 1 <= 2);
    check(_common_util_check_enhanced_feature());

    check(_common_storage_init() == ZEL_ERR_NONE);
    check(_common_storage_upsert_folder_info("group", "content", 1, "folder", 2, 1ULL << 40) == ZEL_ERR_NONE);
    char *token = nullptr;
    unsigned long long synced = 0;
    check(_common_storage_get_folder_info("group", nullptr, nullptr, &token, nullptr, &synced) == ZEL_ERR_NONE);
    check(text(token).get() == std::string_view("folder") && synced == 1ULL << 40);

    std::printf("C++: %d failed\n", failures);
    return failures != 0;
}
