#include "recording_platform.h"
#include "zel_common_request.h"
#include "zel_common_request_internal.h"

#include <cstring>
#include <string>
#include <vector>

using namespace zel_test;

namespace
{

constexpr char *zel_request::*owned_strings[] = {
    &zel_request::description,  &zel_request::local_path, &zel_request::url,       &zel_request::contents_token,
    &zel_request::folder_token, &zel_request::group_id,   &zel_request::list_next, &zel_request::list_more};
constexpr size_t copied_strings = 6; // the first ones
constexpr GList *zel_request::*owned_lists[] = {&zel_request::receiver_list, &zel_request::url_list,
                                                &zel_request::file_list, &zel_request::server_file_list};
constexpr size_t copied_lists = 3;

GList *list_of(std::initializer_list<const char *> texts)
{
    GList *list = nullptr;
    for (const char *text : texts)
        list = g_list_append(list, g_strdup(text));
    return list;
}

std::vector<std::string> texts_of(const GList *list)
{
    std::vector<std::string> texts;
    for (; list; list = list->next)
        texts.emplace_back(static_cast<const char *>(list->data));
    return texts;
}

zel_request *make_request()
{
    auto *request = g_new0(zel_request, 1);
    request->cmd = ZEL_CMD_RECALL_UPLOAD;
    request->req_id = 4000000001U;
    request->receiver_count = 2;
    request->url_count = 3;
    request->file_count = 4;
    request->thumbnail_type = QUILLO_EVENT_THUMBNAIL_480;
    request->content_token_expired_time = 1ULL << 40;
    request->folder_token_expired_time = ~0ULL;
    request->send_push = 9;
    size_t n = 0;
    for (const auto string : owned_strings)
        request->*string = g_strdup_printf("text %zu", n++);
    for (const auto list : owned_lists)
        request->*list = list_of({"first", "second"});
    request->caller = new_handle();
    return request;
}

const trace glist_dup = whole("_common_glist_dup");

trace members_released(std::initializer_list<trace> at_the_handle = {})
{
    const std::string function = "_common_free_zel_request_members";
    return whole(function,
                 {debug(function, "g_list_free_full"), debug(function, "destroy app control"), join(at_the_handle)});
}

trace clone_result(int result)
{
    return debug("_common_copy_zel_request_members", "app_control_clone result : [" + std::to_string(result) + "]");
}

} // namespace

TEST(Request, CopyIsIndependentButForThreeMembers)
{
    zel_request *source = make_request();
    auto *copy = static_cast<zel_request *>(g_malloc(sizeof(zel_request)));
    *copy = {};
    copy->description = reinterpret_cast<char *>(1); // overwritten, not released
    EXPECT_EQ(_common_copy_zel_request_members(source, copy), ZEL_ERR_NONE);
    EXPECT_TRACE(whole("_common_copy_zel_request_members", {glist_dup, glist_dup, glist_dup, clone_result(0)}));

    EXPECT_EQ(copy->cmd, source->cmd);
    EXPECT_EQ(copy->req_id, 4000000001U);
    EXPECT_EQ(copy->folder_token_expired_time, ~0ULL);
    EXPECT_EQ(copy->send_push, 9u);
    for (size_t i = 0; i < std::size(owned_strings); ++i) {
        const auto string = owned_strings[i];
        EXPECT_STREQ(copy->*string, source->*string);
        EXPECT_EQ(copy->*string == source->*string, i >= copied_strings) << i;
    }
    for (size_t i = 0; i < std::size(owned_lists); ++i) {
        const auto list = owned_lists[i];
        EXPECT_EQ(texts_of(copy->*list), (std::vector<std::string>{"first", "second"}));
        EXPECT_EQ(copy->*list == source->*list, i >= copied_lists) << i;
        EXPECT_EQ((copy->*list)->data == (source->*list)->data, i >= copied_lists) << i;
    }
    EXPECT_NE(copy->caller, source->caller);
    EXPECT_EQ(platform.handles.size(), 2u);

    // One of the two gives up what both refer to.
    copy->server_file_list = nullptr;
    copy->list_next = copy->list_more = nullptr;
    _common_free_zel_request(copy);
    EXPECT_TRACE(whole("_common_free_zel_request",
                       {members_released({debug("_common_free_zel_request_members", "app_control_destroy ret[0]")})}));
    EXPECT_EQ(texts_of(source->file_list), (std::vector<std::string>{"first", "second"}));
    EXPECT_STREQ(source->url, "text 2");
    _common_free_zel_request(source);
    EXPECT_TRUE(platform.handles.empty());
}

TEST(Request, CopyOfAnEmptyRequestAsksNobody)
{
    zel_request source{};
    zel_request copy;
    memset(&copy, 0xff, sizeof copy);
    EXPECT_EQ(_common_copy_zel_request_members(&source, &copy), ZEL_ERR_NONE);
    EXPECT_TRACE(whole("_common_copy_zel_request_members"));
    EXPECT_EQ(platform.clones, 0);
    for (const auto string : owned_strings)
        EXPECT_EQ(copy.*string, nullptr);
    for (const auto list : owned_lists)
        EXPECT_EQ(copy.*list, nullptr);
    EXPECT_EQ(copy.caller, nullptr);
    EXPECT_EQ(copy.req_id, 0u);
}

TEST(Request, CopyWhoseHandleCannotBeClonedHasNone)
{
    zel_request source{};
    source.caller = new_handle();
    for (app_control_h left_behind : {app_control_h(), source.caller}) {
        zel_request copy{};
        platform.clone_result = -12;
        platform.clone_left_behind = left_behind;
        EXPECT_EQ(_common_copy_zel_request_members(&source, &copy), ZEL_ERR_NONE);
        EXPECT_TRACE(whole("_common_copy_zel_request_members", {clone_result(-12)}));
        EXPECT_EQ(copy.caller, nullptr);
    }
    app_control_destroy(source.caller);
}

TEST(Request, CopyOfAListEndsAtItsFirstNull)
{
    zel_request source{};
    zel_request copy{};
    source.receiver_list = list_of({"first", nullptr, "third"});
    source.url_list = list_of({nullptr});
    source.file_list = list_of({"file"});
    EXPECT_EQ(_common_copy_zel_request_members(&source, &copy), ZEL_ERR_NONE);
    const trace stopped = whole("_common_glist_dup", {critical("_common_glist_dup", "NULL string")});
    EXPECT_TRACE(whole("_common_copy_zel_request_members", {stopped, stopped, glist_dup}));
    EXPECT_EQ(texts_of(copy.receiver_list), std::vector<std::string>{"first"});
    EXPECT_EQ(copy.url_list, nullptr);
    EXPECT_EQ(texts_of(copy.file_list), std::vector<std::string>{"file"});
    EXPECT_EQ(g_list_length(source.receiver_list), 3u);
    _common_free_zel_request_members(&copy);
    EXPECT_TRACE(members_released());
    _common_free_zel_request_members(&source);

    take_trace();
    EXPECT_EQ(_common_glist_dup(nullptr), nullptr);
    EXPECT_TRACE(whole("_common_glist_dup", {critical("_common_glist_dup", "[src] is NULL_PARAM")}));
}

TEST(Request, NullIsRejected)
{
    zel_request request{};
    request.req_id = 3;
    EXPECT_NULLS_REJECTED(2, ZEL_ERR_INVALID_ARG, "Invalid parameters", _common_copy_zel_request_members, &request,
                          &request);
    EXPECT_EQ(request.req_id, 3u);
    _common_free_zel_request(nullptr);
    EXPECT_TRACE(whole("_common_free_zel_request", {critical("_common_free_zel_request", "[request] is NULL_PARAM")}));
    _common_free_zel_request_members(nullptr);
    EXPECT_TRACE(whole("_common_free_zel_request_members",
                       {critical("_common_free_zel_request_members", "[request] is NULL_PARAM")}));
    _common_free_zel_param_members(nullptr);
    EXPECT_TRACE(whole("_common_free_zel_param_members"));
}

TEST(Request, ReleaseResetsTheStringsOnly)
{
    zel_request *request = make_request();
    platform.destroy_result = -7;
    _common_free_zel_request_members(request);
    EXPECT_TRACE(members_released({debug("_common_free_zel_request_members", "app_control_destroy ret[-7]")}));
    EXPECT_TRUE(platform.handles.empty());
    for (const auto string : owned_strings)
        EXPECT_EQ(request->*string, nullptr);
    for (const auto list : owned_lists)
        EXPECT_NE(request->*list, nullptr);
    EXPECT_NE(request->caller, nullptr);
    g_free(request);

    auto *param = g_new0(comm_param_s, 1);
    param->handle = &request; // not its own
    _common_free_zel_param_members(param);
    EXPECT_TRACE(whole("_common_free_zel_param_members", {members_released()}));
}

TEST(Request, DumpNamesItsCaller)
{
    zel_request *request = make_request();
    g_clear_pointer(&request->group_id, g_free);
    __print_zel_request(request, "send_it", 42);
    const std::string dump = "__print_zel_request";
    const std::string from = "from send_it(42) > ";
    EXPECT_TRACE(info(dump, from + "cmd [26]"), info(dump, from + "req_id [-294967295]"),
                 info(dump, from + "receiver_count [2]"), info(dump, from + "url_count [3]"),
                 info(dump, from + "file_count [4]"), plain(dump, from + "contents_token [text 3]"),
                 info(dump, from + "content_token_expired_time [1099511627776]"),
                 plain(dump, from + "folder_token [text 4]"), info(dump, from + "folder_token_expired_time [-1]"),
                 plain(dump, from + "group_id [(null)]"), plain(dump, from + "thumbnail_type [2]"),
                 plain(dump, from + "g_list_length(file_list) [2]"), plain(dump, from + "file [first]"),
                 plain(dump, from + "file [second]"));
    _common_free_zel_request(request);
}
