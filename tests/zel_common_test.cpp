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
    for (int code = -2; code < 110; ++code) {
        const auto known = client_codes.find(code);
        EXPECT_EQ(_common_util_convert_service_error_to_client_error(static_cast<zel_err_e>(code)),
                  known == client_codes.end() ? -100 : known->second)
            << code;
        EXPECT_TRACE(debug("_common_util_convert_service_error_to_client_error", "err [" + std::to_string(code) + "]"));
    }
}

TEST(Errors, CodesArePrintedWithTheirNames)
{
    std::istringstream names(
        "NONE INVALID_ARG MEMORY SOCKET_FAILURE SERVER_NOT_RUNNING THREAD REQUEST_FAILED CANCELLED NETWORK_FAILURE "
        "TIMEOUT_ERR RESOURCE_DOESNT_EXIST MAX_FILE_SIZE_EXCEEDED NOT_AUTHENTICATED BROKEN_PIPE TELEPHONY "
        "STORAGE_FAILURE INVALID_REQ_ID SHARE_FILE_DOESNT_EXITS AUTHENTICATION_FAILED BAD_JSON_FORMAT "
        "BAD_ACCESS_TOKEN BAD_DEVICE_ID BAD_CLIENT_ID INVALID_UID JSON_FAILURE LIMIT_EXCEED STORAGE_NO_RECORDS "
        "STORAGE_INIT_FAILURE INVALID_FILE FILE_DOESNT_EXIST NOT_A_FILE TRANSPORT_FAILURE SHARE_THUMBNAIL_ERR "
        "REQ_PAUSED UNKNOWN RESOURCE_ALREADY_EXIST MAX_REQ_REACHED");
    int code = 0;
    for (std::string name; names >> name; ++code) {
        _common_print_error_info(code);
        EXPECT_TRACE(critical("_common_print_error_info",
                              "Error code [" + std::to_string(code) + "]: Error Msg[ZEL_ERR_" + name + "]"));
    }
    for (const int silent : {code, -1, INT_MIN, INT_MAX})
        _common_print_error_info(silent);
    EXPECT_TRACE();
}

// What a release forgets, the leak check at the end of the process finds; what it releases twice, the address check.
namespace
{

template <typename Record> Record *make_with(std::initializer_list<char * Record::*> strings)
{
    auto *record = static_cast<Record *>(g_malloc0(sizeof(Record)));
    for (const auto string : strings)
        record->*string = g_strdup("x");
    return record;
}

} // namespace

TEST(Records, ReleasesTakeNullEmptyRecordsAndAllThatARecordOwns)
{
    using item = zel_trans_content_info;
    using share_info = zel_trans_share_content_info;
    auto *share = make_with({&share_info::contents_token, &share_info::description, &share_info::type,
                             &share_info::from_msisdn, &share_info::to_list});
    share->content_info_list_length = 99; // the list itself counts
    for (item *one : {static_cast<item *>(nullptr), make_with<item>({}),
                      make_with({&item::original, &item::thumbnail, &item::mid_thumbnail, &item::big_thumbnail,
                                 &item::name, &item::content_type, &item::contents_token})})
        share->content_info_list = g_list_append(share->content_info_list, one);

    auto *report = make_with<zel_trans_upload_info>({});
    report->contents_token = g_strdup("token");
    report->msisdn_count = 3;
    report->msisdn_list = g_new0(quillo_msisdn_s *, 3);
    report->msisdn_list[0] = make_with<quillo_msisdn_s>({});
    report->msisdn_list[2] = make_with({&quillo_msisdn_s::ccc, &quillo_msisdn_s::phone_number});
    report->file_path_list = g_list_append(g_list_append(nullptr, g_strdup("/a")), g_strdup("/b"));

    using url = zel_trans_url_info;
    using url_ids = zel_trans_url_ids_info;
    const trace path = whole("__free_file_path_list");
    const std::tuple<const char *, void (*)(void *), size_t, void *, trace> releases[] = {
        {"_common_free_url_info", _common_free_url_info, sizeof(url), make_with({&url::url, &url::content_type}), {}},
        {"_common_free_url_ids_info",
         _common_free_url_ids_info,
         sizeof(url_ids),
         make_with({&url_ids::id, &url_ids::url}),
         {}},
        {"_common_free_share_content_info", _common_free_share_content_info, sizeof(share_info), share, {}},
        {"_common_free_upload_info", _common_free_upload_info, sizeof(*report), report, join({path, path})},
        {"__free_file_path_list", __free_file_path_list, 8, g_strdup("/c"), {}},
    };
    for (const auto &[name, release, size, record, inside] : releases) {
        release(nullptr);
        release(g_malloc0(size));
        release(record);
        EXPECT_TRACE(whole(name), whole(name), whole(name, {inside}));
    }
}
