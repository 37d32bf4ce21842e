#include "schema.h"

#include "engine.h"

using namespace zel_storage;

const table zel_storage::TABLES[] = {
    {TABLE_PUSH_NOTI_INFO, "CREATE TABLE push_noti_info ("
                           "\tid \t\t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                           "\tcontents_token\tTEXT NOT NULL,"
                           "\ttype\t\t\t\tTEXT,"
                           "\texpired_time\t\tINTEGER,"
                           "\tread_noti\tINTEGER,"
                           "\treceived_time\t\tINTEGER);"},
    {TABLE_CONTENT_INFO, "CREATE TABLE content_info ("
                         "\tcontent_id\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                         "\texpired_time\t\tINTEGER,"
                         "\tdownload_count\t\tINTEGER,"
                         "\tsize\t\t\t\tINTEGER,"
                         "\tcontents_token\t\tTEXT NOT NULL,"
                         "\tdescription\t\t\tTEXT,"
                         "\ttype\t\t\t\tTEXT,"
                         "\tfrom_msisdn\t\t\tTEXT NOT NULL,"
                         "\tto_list\t\t\t\tTEXT,"
                         "\toriginal\t\t\tTEXT NOT NULL,"
                         "\tthumbnail\t\t\tTEXT NOT NULL,"
                         "\tname\t\t\t\tTEXT,"
                         "\tcontent_type\t\tTEXT,"
                         "\tdownloaded\t\t\tINTEGER,"
                         "\tbig_thumbnail\t\tTEXT NOT NULL,"
                         "\tmid_thumbnail\t\tTEXT NOT NULL,"
                         "\tpush_status\t\tINTEGER);"},
    {TABLE_CONTENT_INFO_STATUS, "CREATE TABLE content_info_status ("
                                "\tsync_id\t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                                "\tsync_type\t\t\tINTEGER,"
                                "\tstatus\t\t\t\tINTEGER,"
                                "\tcontent_id\t\t\tINTEGER,"
                                "\treq_id\t\t\t\tINTEGER,"
                                "\twifi_only\t\t\tINTEGER,"
                                "\tfail_retry_count\tINTEGER,"
                                "\tpercentage\t\t\tINTEGER,"
                                "\toffset\t\t\t\tINTEGER,"
                                "\tchunk_no\t\t\tINTEGER,"
                                "\tsent_time\t\t\tINTEGER,"
                                " \tcontents_token\t\tTEXT NOT NULL,"
                                " \tcontent_type\t\tTEXT,"
                                "\toriginal\t\t\tTEXT NOT NULL,"
                                "\tthumbnail\t\t\tTEXT NOT NULL,"
                                "\tname\t\t\t\tTEXT NOT NULL,"
                                "\tlocal_path\t\t\tTEXT,"
                                "\tmupload_key\t\t\tTEXT,"
                                "\tFOREIGN KEY(content_id) REFERENCES content_info(content_id));"},
    {TABLE_RECENT_RECEIVER_GROUP, "CREATE TABLE recent_receiver_group ("
                                  "\tid \t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                                  "\tindex_value\t\t\tINTEGER,"
                                  "\ttime_stamp\t\t\tTIMESTAMP);"},
    {TABLE_RECENT_RECEIVER_DETAILS, "CREATE TABLE recent_receiver_details ("
                                    "\tid \t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                                    "\tnumber_id\t\t\tINTEGER,"
                                    "\tphone_no\t\t\tTEXT,"
                                    "\tccc\t\t\t\tTEXT,"
                                    "\tgroup_id\t\t\tINTEGER);"},
    {TABLE_UPLOAD_REQUEST_DATA, "CREATE TABLE upload_request_data ("
                                "\tunique_id\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                                "\treq_id\t\t\t\tINTEGER NOT NULL,"
                                "\tfile_count\t\t\tINTEGER,"
                                "\tstatus\t\t\t\tINTEGER,"
                                "\treceiver_count\t\t\tINTEGER,"
                                "\texpired_time\t\t\tINTEGER,"
                                "\ttotal_size\t\t\tINTEGER NOT NULL,"
                                "\tcontents_token\t\t\tTEXT,"
                                "\tapp_type\t\t\tINTEGER,"
                                "\tdescription\t\t\tTEXT,"
                                "\tsent_time\t\t\tINTEGER);"},
    {TABLE_CONTACT_DETAILS, "CREATE TABLE contact_details ("
                            "\tid\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                            "\treq_id\t\t\tINTEGER NOT NULL,"
                            "\tnumber_id\t\tINTEGER,"
                            "\tphone_no\t\tTEXT,"
                            "\tccc\t\t\tTEXT,"
                            "\tFOREIGN KEY(req_id) REFERENCES upload_request_data(req_id));"},
    {TABLE_UNIQUE_DATA, "CREATE TABLE unique_data ("
                        "key\t\t\tTEXT PRIMARY KEY,"
                        "value\t\tTEXT,"
                        "reserv_0\tTEXT,"
                        "reserv_1\tTEXT,"
                        "reserv_2\tTEXT);"},
    {TABLE_FOLDER_INFO, "CREATE TABLE folder_info ("
                        "group_id\tTEXT PRIMARY KEY,"
                        "contents_token\tTEXT,"
                        "content_token_expired_time\tINTEGER,"
                        "folder_token\tTEXT,"
                        "folder_token_expired_time\tINTEGER,"
                        "folder_sync_time\t\t\tINTEGER);"},
};

zel_err_e _common_storage_db_create(void)
{
    ZEL_BEGIN();
    zel_err_e result = ZEL_ERR_NONE;
    for (const table &entry : TABLES) {
        if (_common_storage_check_table_exist(entry.name))
            continue;
        if (__execute_query(sql(entry.create).get())) {
            ZEL_INFO("Success : create [%s]", entry.name);
        } else {
            ZEL_CRITICAL("FAIL : create [%s]", entry.name);
            result = ZEL_ERR_STORAGE_FAILURE;
        }
    }
    return finish(result);
}
