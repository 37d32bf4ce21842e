#include "recording_platform.h"
#include "zel_common.h"
#include "zel_common_internal.h"

#include <climits>
#include <map>
#include <sstream>
#include <string>
#include <tuple>

using namespace zel_test;

TEST(Errors, ConversionToClientCodes)
{
    const std::map<int, int> client_codes = {
        {0, 0},   {1, -1},  {2, -2},   {3, -3},   {4, -4},   {5, -5},   {6, -6},   {7, 0},    {8, -7},
        {9, -8},  {10, -9}, {11, -10}, {12, -11}, {13, -3},  {16, -13}, {20, -22}, {26, -14}, {28, -9},
        {29, -9}, {30, -9}, {31, -16}, {33, 0},   {42, -22}, {44, -18}, {45, -17}, {46, -21},
    };
    const auto convert = [&](int code) {
        const auto known = client_codes.find(code);
        EXPECT_EQ(_common_util_convert_service_error_to_client_error(static_cast<zel_err_e>(code)),
                  known == client_codes.end() ? -100 : known->second)
            << code;
        EXPECT_TRACE(debug("_common_util_convert_service_error_to_client_error", "err [" + std::to_string(code) + "]"));
    };
    for (int code = -110; code < 110; ++code)
        convert(code);
    convert(INT_MIN);
    convert(INT_MAX);
}

TEST(Errors, CodesArePrintedWithTheirNames)
{
    std::istringstream names(
        "ZEL_ERR_NONE ZEL_ERR_INVALID_ARG ZEL_ERR_MEMORY ZEL_ERR_SOCKET_FAILURE ZEL_ERR_SERVER_NOT_RUNNING "
        "ZEL_ERR_THREAD ZEL_ERR_REQUEST_FAILED ZEL_ERR_CANCELLED ZEL_ERR_NETWORK_FAILURE ZEL_ERR_TIMEOUT_ERR "
        "ZEL_ERR_RESOURCE_DOESNT_EXIST ZEL_ERR_MAX_FILE_SIZE_EXCEEDED ZEL_ERR_NOT_AUTHENTICATED "
        "ZEL_ERR_BROKEN_PIPE ZEL_ERR_TELEPHONY ZEL_ERR_STORAGE_FAILURE ZEL_ERR_INVALID_REQ_ID "
        "ZEL_ERR_SHARE_FILE_DOESNT_EXITS ZEL_ERR_AUTHENTICATION_FAILED ZEL_ERR_BAD_JSON_FORMAT "
        "ZEL_ERR_BAD_ACCESS_TOKEN ZEL_ERR_BAD_DEVICE_ID ZEL_ERR_BAD_CLIENT_ID ZEL_ERR_INVALID_UID "
        "ZEL_ERR_JSON_FAILURE ZEL_ERR_LIMIT_EXCEED ZEL_ERR_STORAGE_NO_RECORDS ZEL_ERR_STORAGE_INIT_FAILURE "
        "ZEL_ERR_INVALID_FILE ZEL_ERR_FILE_DOESNT_EXIST ZEL_ERR_NOT_A_FILE ZEL_ERR_TRANSPORT_FAILURE "
        "ZEL_ERR_SHARE_THUMBNAIL_ERR ZEL_ERR_REQ_PAUSED ZEL_ERR_UNKNOWN ZEL_ERR_RESOURCE_ALREADY_EXIST "
        "ZEL_ERR_MAX_REQ_REACHED");
    int code = 0;
    for (std::string name; names >> name; ++code) {
        _common_print_error_info(code);
        EXPECT_TRACE(
            critical("_common_print_error_info", "Error code [" + std::to_string(code) + "]: Error Msg[" + name + "]"));
    }
    for (const int silent : {37, 48, 49, 99, 100, -1, INT_MIN, INT_MAX})
        _common_print_error_info(silent);
    EXPECT_TRACE();
}

// What a release forgets, the leak check at the end of the process finds; what it releases twice, the address check.
namespace
{

template <typename Record> Record *make()
{
    return static_cast<Record *>(g_malloc0(sizeof(Record)));
}

template <typename Record> Record *make_with(std::initializer_list<char * Record::*> strings)
{
    auto *record = make<Record>();
    for (const auto string : strings)
        record->*string = g_strdup("x");
    return record;
}

zel_trans_content_info *make_item()
{
    using item = zel_trans_content_info;
    return make_with({&item::original, &item::thumbnail, &item::mid_thumbnail, &item::big_thumbnail, &item::name,
                      &item::content_type, &item::contents_token});
}

} // namespace

TEST(Records, ReleasesTakeNullAndEmptyRecords)
{
    const std::tuple<const char *, void (*)(void *), size_t> releases[] = {
        {"_common_free_url_info", _common_free_url_info, sizeof(zel_trans_url_info)},
        {"_common_free_url_ids_info", _common_free_url_ids_info, sizeof(zel_trans_url_ids_info)},
        {"_common_free_share_content_info", _common_free_share_content_info, sizeof(zel_trans_share_content_info)},
        {"_common_free_upload_info", _common_free_upload_info, sizeof(zel_trans_upload_info)},
        {"__free_file_path_list", __free_file_path_list, 8},
    };
    for (const auto &[name, release, size] : releases) {
        release(nullptr);
        release(g_malloc0(size));
        EXPECT_TRACE(whole(name), whole(name));
    }
}

TEST(Records, ReleasesTakeAllThatARecordOwns)
{
    _common_free_url_info(make_with({&zel_trans_url_info::url, &zel_trans_url_info::content_type}));
    _common_free_url_ids_info(make_with({&zel_trans_url_ids_info::id, &zel_trans_url_ids_info::url}));
    take_trace();

    using share_info = zel_trans_share_content_info;
    auto *share = make_with({&share_info::contents_token, &share_info::description, &share_info::type,
                             &share_info::from_msisdn, &share_info::to_list});
    share->content_info_list_length = 99; // the list itself counts
    for (zel_trans_content_info *item :
         {make_item(), static_cast<zel_trans_content_info *>(nullptr), make<zel_trans_content_info>(), make_item()})
        share->content_info_list = g_list_append(share->content_info_list, item);
    _common_free_share_content_info(share);
    EXPECT_TRACE(whole("_common_free_share_content_info"));

    auto *report = make<zel_trans_upload_info>();
    report->contents_token = g_strdup("token");
    report->msisdn_count = 4;
    report->msisdn_list = g_new0(quillo_msisdn_s *, 4);
    report->msisdn_list[0] = make_with({&quillo_msisdn_s::ccc, &quillo_msisdn_s::phone_number});
    report->msisdn_list[2] = make<quillo_msisdn_s>();
    report->msisdn_list[3] = make_with({&quillo_msisdn_s::ccc, &quillo_msisdn_s::phone_number});
    for (const char *path : {"/a", "/b", "/c"})
        report->file_path_list = g_list_append(report->file_path_list, g_strdup(path));
    _common_free_upload_info(report);
    const trace path = whole("__free_file_path_list");
    EXPECT_TRACE(whole("_common_free_upload_info", {path, path, path}));
}
