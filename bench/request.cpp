/* Copy and release of a request beside the same allocations and copies by hand. */

#include "harness.h"
#include "samples.h"
#include "zel_common_log/trace.h"
#include "zel_common_request.h"

#include <cstdlib>
#include <fstream>
#include <memory>

namespace bench
{

namespace
{

GList *texts(const char *each, size_t count)
{
    GList *list = nullptr;
    for (size_t i = 0; i < count; ++i)
        list = g_list_prepend(list, g_strdup(each));
    return list;
}

using request_holder = std::shared_ptr<zel_request>;

request_holder new_request(size_t files)
{
    auto *request = g_new0(zel_request, 1);
    request->cmd = ZEL_CMD_UPLOAD;
    request->description = g_strdup(DESCRIPTION);
    request->local_path = g_strdup(LOCAL_PATH);
    request->url = g_strdup(URL);
    request->contents_token = g_strdup(TOKEN);
    request->folder_token = g_strdup(TOKEN);
    request->group_id = g_strdup(TOKEN);
    request->receiver_list = texts(NUMBER, files);
    request->url_list = texts(URL, files);
    request->file_list = texts(LOCAL_PATH, files);
    app_control_clone(&request->caller, nullptr);
    return request_holder(request, _common_free_zel_request);
}

side copy_and_release(const request_holder &request)
{
    return repeat([=] {
        return [=] {
            zel_request copy;
            _common_copy_zel_request_members(request.get(), &copy);
            _common_free_zel_request_members(&copy);
        };
    });
}

GList *copy_texts_by_hand(const GList *source)
{
    ZEL_BEGIN();
    GList *copy = nullptr;
    for (; source; source = source->next)
        copy = g_list_prepend(copy, g_strdup(static_cast<const char *>(source->data)));
    copy = g_list_reverse(copy);
    ZEL_END();
    return copy;
}

/* Not inlined: a copy that the compiler sees thrown away is one that it does not make. */

[[gnu::noinline]] void copy_by_hand(const zel_request *source, zel_request *copy)
{
    ZEL_BEGIN();
    *copy = *source;
    copy->description = g_strdup(source->description);
    copy->local_path = g_strdup(source->local_path);
    copy->url = g_strdup(source->url);
    copy->contents_token = g_strdup(source->contents_token);
    copy->folder_token = g_strdup(source->folder_token);
    copy->group_id = g_strdup(source->group_id);
    copy->receiver_list = copy_texts_by_hand(source->receiver_list);
    copy->url_list = copy_texts_by_hand(source->url_list);
    copy->file_list = copy_texts_by_hand(source->file_list);
    const int result = app_control_clone(&copy->caller, source->caller);
    ZEL_DEBUG("app_control_clone result : [%d]", result);
    ZEL_END();
}

[[gnu::noinline]] void release_by_hand(zel_request *request)
{
    ZEL_BEGIN();
    g_free(request->local_path);
    g_free(request->url);
    g_free(request->contents_token);
    g_free(request->folder_token);
    g_free(request->description);
    g_free(request->group_id);
    ZEL_DEBUG("g_list_free_full");
    g_list_free_full(request->receiver_list, g_free);
    g_list_free_full(request->url_list, g_free);
    g_list_free_full(request->file_list, g_free);
    g_list_free_full(request->server_file_list, g_free);
    ZEL_DEBUG("destroy app control");
    const int result = app_control_destroy(request->caller);
    ZEL_DEBUG("app_control_destroy ret[%d]", result);
    g_free(request->list_next);
    g_free(request->list_more);
    ZEL_END();
}

side copy_and_release_by_hand(const request_holder &request)
{
    return repeat([=] {
        return [=] {
            zel_request copy;
            copy_by_hand(request.get(), &copy);
            release_by_hand(&copy);
        };
    });
}

const group measures([] {
    for (const size_t files : {1, 10})
        add({.name = "request: copy and release, lists of " + std::to_string(files) + " / by hand",
             .bound = 1.1,
             .make = [=] {
                 const request_holder request = new_request(files);
                 return sides{copy_and_release(request), copy_and_release_by_hand(request)};
             }});
    add_growth("copy and release a request's files", 10, [](size_t n) { return copy_and_release(new_request(n)); });
    add_growth("numbering of a file whose numbers are taken", 10, [](size_t n) {
        const std::string name = "numbered-" + std::to_string(n);
        for (size_t i = 1; i <= n; ++i)
            std::ofstream(name + "_" + std::to_string(i) + ".jpg");
        return repeat([=] {
            return [=] {
                char path[ZEL_NEW_PATH_SIZE];
                _common_util_get_file_valid_path((name + ".jpg").c_str(), path);
            };
        });
    });
    add_growth("dump a request's files", 10, [](size_t n) {
        return repeat([request = new_request(n)] { return [=] { __print_zel_request(request.get(), "bench", 1); }; });
    });
});

} // namespace

} // namespace bench
