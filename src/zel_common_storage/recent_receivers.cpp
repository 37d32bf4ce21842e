/* Recently used recipient groups (recent_receiver_group) and their members (recent_receiver_details). */

#include "zel_common/records.h"
#include "zel_common_storage/patterns.h"
#include "zel_common_storage/rows.h"
#include "zel_common_storage/schema.h"

#include <cstdlib>

using namespace zel_storage;

namespace
{

using group_array = std::unique_ptr<int, releaser<g_free>>;

zel_err_e count_rows(const char *table, int *count, log_site site = log_here())
{
    query row(sql("SELECT count(*) FROM %Q;", table), site);
    const zel_err_e result =
        first_row(row, "Failed to get receiver group count!!", ZEL_ERR_RESOURCE_DOESNT_EXIST, site);
    if (result == ZEL_ERR_NONE)
        *count = int_column(row, 0);
    return finish_on_success(row, result, site);
}

/** Returns the number of groups; 0 when it cannot be read. */
int group_count()
{
    int count = 0;
    _common_storage_get_recent_receiver_group_count(&count);
    return count;
}

/** A set of recipients, keyed by id, number and calling code. */
using recipient_set = std::unique_ptr<GHashTable, releaser<g_hash_table_unref>>;

unsigned int recipient_hash(const void *recipient)
{
    const auto *hashed = static_cast<const quillo_msisdn_s *>(recipient);
    return g_str_hash(hashed->phone_number) ^ static_cast<unsigned int>(hashed->number_id);
}

int recipient_equal(const void *recipient, const void *other)
{
    const auto *one = static_cast<const quillo_msisdn_s *>(recipient);
    const auto *two = static_cast<const quillo_msisdn_s *>(other);
    return one->number_id == two->number_id && g_str_equal(one->phone_number, two->phone_number) &&
           g_str_equal(one->ccc, two->ccc);
}

/** The list to look up. Its set is filled only when a group of the same length exists. */
struct recipient_list {
    quillo_msisdn_s *const *records;
    unsigned int length;
    recipient_set set = nullptr;

    bool contains(const quillo_msisdn_s &sought)
    {
        if (!set) {
            set.reset(g_hash_table_new(recipient_hash, recipient_equal));
            for (unsigned int i = 0; i < length; ++i)
                if (records[i]->phone_number && records[i]->ccc)
                    g_hash_table_add(set.get(), records[i]);
        }
        return g_hash_table_contains(set.get(), &sought);
    }
};

/** True when the query's current row is one of the recipients. */
bool is_listed(sqlite3_stmt *member, recipient_list &recipients)
{
    const quillo_msisdn_s sought = {const_cast<char *>(text_column(member, COLUMN_RECENT_RECEIVER_CCC)),
                                    const_cast<char *>(text_column(member, COLUMN_RECENT_RECEIVER_PHONE_NO)),
                                    int_column(member, COLUMN_RECENT_RECEIVER_NUM_ID), 0};
    return sought.ccc && sought.phone_number && recipients.contains(sought);
}

/** True when a group has as many members as there are recipients, and each member is a recipient. */
bool group_matches(int group, recipient_list &recipients, log_site site = log_here())
{
    static constexpr char FAILURE[] = "ExecuteSelectQuery Failed";

    query counted(sql("SELECT count(*) FROM %Q WHERE group_id = %d;", TABLE_RECENT_RECEIVER_DETAILS, group), site);
    if (check_prepared(counted, FAILURE, site) != ZEL_ERR_NONE)
        return false;
    const unsigned int member_count = counted.next() ? uint_column(counted, 0) : 0;
    counted.close();
    if (member_count != recipients.length)
        return false;

    query members(sql("SELECT * FROM %Q WHERE group_id = %d;", TABLE_RECENT_RECEIVER_DETAILS, group), site);
    if (first_row(members, FAILURE, ZEL_ERR_RESOURCE_DOESNT_EXIST, site) != ZEL_ERR_NONE)
        return false;
    do {
        if (!is_listed(members, recipients))
            return false;
    } while (members.next());
    return true;
}

void release_members(quillo_msisdn_s **members, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i)
        zel_common::free_recipient(members[i]);
    free(members);
}

/** Appends the members of a group to the array; skips a group that cannot be read. */
zel_err_e gather_members(int group, quillo_msisdn_s **&members, unsigned int &count, log_site site = log_here())
{
    query rows(sql("SELECT * FROM %Q WHERE group_id=%d", TABLE_RECENT_RECEIVER_DETAILS, group), site);
    if (first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, site) != ZEL_ERR_NONE)
        return ZEL_ERR_NONE;
    do {
        auto *member = g_try_new0(quillo_msisdn_s, 1);
        if (!member)
            continue;
        __fill_last_receiver_info(rows, member);
        if (!append(members, count, member, resize_with_realloc)) {
            zel_common::free_recipient(member);
            return fail(ZEL_ERR_MEMORY, "Memory Allocation Failure", site);
        }
    } while (rows.next());
    return ZEL_ERR_NONE;
}

} // namespace

zel_err_e _common_storage_is_recent_receiver_list_exist(quillo_msisdn_s **to_msisdn_list,
                                                        unsigned int to_msisdn_list_length, int *group_id, bool *exist)
{
    ZEL_BEGIN();
    int *groups = nullptr;
    int count = 0;
    if (_common_storage_get_recent_receiver_group_list(&groups, &count) != ZEL_ERR_NONE || count < 1) {
        *group_id = 1;
        *exist = false;
        return finish(ZEL_ERR_NONE);
    }
    const group_array owner(groups);
    *exist = false;
    *group_id = count < GROUP_LIMIT ? count + 1 : groups[count - 1]; /* for a new list */
    recipient_list recipients = {to_msisdn_list, to_msisdn_list_length};
    for (int i = 0; i < count; ++i) {
        if (group_matches(groups[i], recipients)) {
            *exist = true;
            *group_id = groups[i];
            break;
        }
    }
    return finish(ZEL_ERR_NONE);
}

zel_err_e _common_storage_update_timestamp_recent_receiver_group(int group_id)
{
    ZEL_BEGIN();
    if (group_id <= group_count()) {
        ZEL_INFO("update time_stamp group_id [%d]", group_id);
        return finish_on_success(run(sql("UPDATE %Q SET time_stamp = CURRENT_TIMESTAMP WHERE index_value = %d",
                                         TABLE_RECENT_RECEIVER_GROUP, group_id),
                                     "Failed to update timestamp"));
    }
    ZEL_INFO("add group id [%d]", group_id);
    return finish_on_success(
        insert(sql("INSERT into %Q VALUES (NULL, %d, CURRENT_TIMESTAMP)", TABLE_RECENT_RECEIVER_GROUP, group_id),
               nullptr, "Failed to add group"));
}

zel_err_e _common_storage_add_recent_receiver(const char *phone_no, const char *ccc, int number_id, int group_id)
{
    ZEL_BEGIN();
    if (!phone_no || !ccc)
        return reject("Invalid Parameter");
    ZEL_DEBUG("Recipient's phone no [%s] and ccc [%s] and number_id [%d] and group_id[%d]", phone_no, ccc, number_id,
              group_id);
    return finish_on_success(insert(sql("INSERT into %Q VALUES (NULL, %d, %Q, %Q, %d)", TABLE_RECENT_RECEIVER_DETAILS,
                                        number_id, phone_no, ccc, group_id),
                                    nullptr, "Failed to add recipient"));
}

zel_err_e _common_storage_delete_recent_receiver_by_group(int group_id)
{
    ZEL_BEGIN();
    if (group_id < 1 || group_id > GROUP_LIMIT)
        return reject("Invalid Parameter");
    ZEL_INFO("delete group_id [%d]", group_id);
    return finish_on_success(run(sql("DELETE FROM %Q WHERE group_id = %d", TABLE_RECENT_RECEIVER_DETAILS, group_id),
                                 "Failed to delete recipient"));
}

zel_err_e _common_storage_clear_recent_receiver(void)
{
    ZEL_BEGIN();
    return finish_on_success(run(sql("DELETE FROM %Q", TABLE_RECENT_RECEIVER_DETAILS), "Failed to delete all content"));
}

zel_err_e _common_storage_get_recent_receiver_details(quillo_msisdn_s ***recent_receiver_list_details,
                                                      unsigned int *count)
{
    ZEL_BEGIN();
    if (!recent_receiver_list_details || !count)
        return reject("Invalid Params");
    int *groups = nullptr;
    int number_of_groups = 0;
    zel_err_e result = _common_storage_get_recent_receiver_group_list(&groups, &number_of_groups);
    if (result != ZEL_ERR_NONE)
        return result;
    const group_array owner(groups);
    quillo_msisdn_s **members = nullptr;
    unsigned int member_count = 0;
    for (int i = 0; i < number_of_groups && result == ZEL_ERR_NONE; ++i)
        result = gather_members(groups[i], members, member_count);
    if (result != ZEL_ERR_NONE) {
        release_members(members, member_count);
        return result;
    }
    *recent_receiver_list_details = members;
    *count = member_count;
    return finish(ZEL_ERR_NONE);
}

zel_err_e _common_storage_get_recent_receiver_group_list(int **group_list, int *count)
{
    ZEL_BEGIN();
    if (!group_list || !count)
        return reject("Invalid Params");
    const int size = group_count();
    if (size <= 0) {
        ZEL_DEBUG("group count is 0");
        return ZEL_ERR_RESOURCE_DOESNT_EXIST;
    }
    query rows(sql("SELECT index_value FROM %Q ORDER BY time_stamp DESC, id DESC;", TABLE_RECENT_RECEIVER_GROUP));
    const zel_err_e result = check_prepared(rows, "ExecuteSelectQuery Failed");
    if (result != ZEL_ERR_NONE)
        return result;
    if (!rows.next()) {
        ZEL_CRITICAL("No records found");
        *count = 0;
        return finish(rows, ZEL_ERR_NONE);
    }
    int *const groups = g_try_new0(int, static_cast<size_t>(size));
    if (!groups)
        return fail(ZEL_ERR_MEMORY, "Memory Allocation Failure");
    int filled = 0;
    do
        groups[filled++] = int_column(rows, 0);
    while (filled < size && rows.next());
    *group_list = groups;
    *count = size;
    return finish(rows, ZEL_ERR_NONE);
}

zel_err_e _common_storage_get_recent_receiver_group_count(int *count)
{
    ZEL_BEGIN();
    if (!count)
        return reject("Invalid Params");
    return count_rows(TABLE_RECENT_RECEIVER_GROUP, count);
}

zel_err_e _common_storage_get_recent_receiver_count(int *count)
{
    ZEL_BEGIN();
    if (!count)
        return reject("Invalid Params");
    return count_rows(TABLE_RECENT_RECEIVER_DETAILS, count);
}
