/* Copy and release of a request beside the same allocations and copies by hand. */

#include "harness.h"
#include "zel_common_log/trace.h"
#include "zel_common_request.h"

#include <array>
#include <fstream>
#include <memory>

namespace bench
{

namespace
{

constexpr char URL[] = "https://files.example.org/v1/contents/4f1c9a7e2b5d4803/0001";

auto texts_of(zel_request &request)
{
    return std::array{&request.description,    &request.local_path,   &request.url,
                      &request.contents_token, &request.folder_token, &request.group_id};
}

auto lists_of(zel_request &request)
{
    return std::array{&request.receiver_list, &request.url_list, &request.file_list};
}

using request_holder = std::shared_ptr<zel_request>;

request_holder new_request(size_t files)
{
    auto *request = g_new0(zel_request, 1);
    request->cmd = ZEL_CMD_UPLOAD;
    for (char **text : texts_of(*request))
        *text = g_strdup(URL);
    for (GList **list : lists_of(*request))
        for (size_t i = 0; i < files; ++i)
            *list = g_list_prepend(*list, g_strdup(URL));
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

GList *copy_texts_by_hand(GList *source)
{
    ZEL_BEGIN();
    const auto copy_text = [](const void *text, void *) -> void * { return g_strdup(static_cast<const char *>(text)); };
    GList *copy = g_list_copy_deep(source, copy_text, nullptr);
    ZEL_END();
    return copy;
}

side copy_and_release_by_hand(const request_holder &request)
{
    return repeat([=] {
        return [=] {
            ZEL_BEGIN();
            zel_request copy = *request;
            for (char **text : texts_of(copy))
                *text = g_strdup(*text);
            for (GList **list : lists_of(copy))
                *list = copy_texts_by_hand(*list);
            app_control_clone(&copy.caller, request->caller);
            ZEL_DEBUG("app_control_clone result : [%d]", 0);
            ZEL_END();
            benchmark::DoNotOptimize(copy);
            ZEL_BEGIN();
            for (char **text : texts_of(copy))
                g_free(*text);
            ZEL_DEBUG("g_list_free_full");
            for (GList **list : lists_of(copy))
                g_list_free_full(*list, g_free);
            ZEL_DEBUG("destroy app control");
            ZEL_DEBUG("app_control_destroy ret[%d]", app_control_destroy(copy.caller));
            ZEL_END();
        };
    });
}

const group measures([] {
    for (const size_t files : {1U, 10U})
        add({"request: copy and release, lists of " + std::to_string(files) + " / by hand", 1.15, [=] {
                 const request_holder request = new_request(files);
                 return std::pair(copy_and_release(request), copy_and_release_by_hand(request));
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
