#include "recording_platform.h"
#include "zel_common_request.h"
#include "zel_common_request_internal.h"

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
    for (size_t i = 0; i < std::size(owned_strings); ++i)
        request->*owned_strings[i] = g_strdup_printf("text %zu", i);
    for (const auto list : owned_lists)
        request->*list = list_of({"first", "second"});
    request->caller = new_handle();
    return request;
}

const std::string copy_name = "_common_copy_zel_request_members";
const std::string release_name = "_common_free_zel_request_members";
const std::string dup_name = "_common_glist_dup";

trace members_released(const char *at_the_handle = nullptr)
{
    return whole(release_name, {debug(release_name, "g_list_free_full"), debug(release_name, "destroy app control"),
                                at_the_handle ? debug(release_name, at_the_handle) : trace()});
}

} // namespace

TEST(Request, CopyIsIndependentButForThreeMembers)
{
    zel_request *source = make_request();
    auto *copy = g_new0(zel_request, 1);
    copy->description = reinterpret_cast<char *>(1); // overwritten, not released
    EXPECT_EQ(_common_copy_zel_request_members(source, copy), ZEL_ERR_NONE);
    EXPECT_TRACE(whole(copy_name, {whole(dup_name), whole(dup_name), whole(dup_name),
                                   debug(copy_name, "app_control_clone result : [0]")}));
    EXPECT_EQ(copy->req_id, 4000000001U);
    EXPECT_EQ(copy->folder_token_expired_time, ~0ULL);
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

    // One of the two gives up what both refer to. A release resets the strings only.
    copy->server_file_list = nullptr;
    copy->list_next = copy->list_more = nullptr;
    platform.destroy_result = -7;
    _common_free_zel_request_members(copy);
    EXPECT_TRACE(members_released("app_control_destroy ret[-7]"));
    for (const auto string : owned_strings)
        EXPECT_EQ(copy->*string, nullptr);
    EXPECT_NE(copy->file_list, nullptr);
    EXPECT_NE(copy->caller, nullptr);
    g_free(copy);
    _common_free_zel_request(source);
    EXPECT_TRACE(whole("_common_free_zel_request", {members_released("app_control_destroy ret[-7]")}));
    EXPECT_TRUE(platform.handles.empty());
}

TEST(Request, CopyHasNoHandleThatCannotBeClonedAndListsUpToANull)
{
    zel_request source{};
    source.receiver_list = list_of({"first", nullptr, "third"});
    source.caller = new_handle();
    for (app_control_h left_behind : {app_control_h(), source.caller}) {
        zel_request copy{};
        platform.clone_result = -12;
        platform.clone_left_behind = left_behind;
        EXPECT_EQ(_common_copy_zel_request_members(&source, &copy), ZEL_ERR_NONE);
        EXPECT_TRACE(whole(copy_name, {whole(dup_name, {critical(dup_name, "NULL string")}),
                                       debug(copy_name, "app_control_clone result : [-12]")}));
        EXPECT_EQ(texts_of(copy.receiver_list), std::vector<std::string>{"first"});
        EXPECT_EQ(copy.url, nullptr);
        EXPECT_EQ(copy.caller, nullptr);
        _common_free_zel_request_members(&copy);
        EXPECT_TRACE(members_released());
    }
    EXPECT_EQ(g_list_length(source.receiver_list), 3u);
    _common_free_zel_request_members(&source);
}

TEST(Request, NullIsRejected)
{
    zel_request request{};
    EXPECT_NULLS_REJECTED(2, ZEL_ERR_INVALID_ARG, "Invalid parameters", _common_copy_zel_request_members, &request,
                          &request);
    _common_free_zel_request(nullptr);
    _common_free_zel_request_members(nullptr);
    _common_glist_dup(nullptr);
    EXPECT_TRACE(whole("_common_free_zel_request", {critical("_common_free_zel_request", "[request] is NULL_PARAM")}),
                 whole(release_name, {critical(release_name, "[request] is NULL_PARAM")}),
                 whole(dup_name, {critical(dup_name, "[src] is NULL_PARAM")}));
    _common_free_zel_param_members(nullptr);
    auto *param = g_new0(comm_param_s, 1);
    param->handle = &request; // not its own
    _common_free_zel_param_members(param);
    EXPECT_TRACE(whole("_common_free_zel_param_members"),
                 whole("_common_free_zel_param_members", {members_released()}));
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
