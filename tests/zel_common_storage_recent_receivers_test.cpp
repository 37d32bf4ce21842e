#include "store_expectations.h"

using namespace zel_test;

namespace
{

/// A recipient: number id, calling code, number.
struct person {
    int id;
    const char *ccc, *number;
};

const char groups[] = "recent_receiver_group", members[] = "recent_receiver_details";
const std::string lookup = "_common_storage_is_recent_receiver_list_exist";
const std::string stamp = "_common_storage_update_timestamp_recent_receiver_group";
const store_call group_count = {ZEL_CALL(get_recent_receiver_group_count, &out.numbers[0]),
                                "SELECT count(*) FROM 'recent_receiver_group';", "number 0\n"};
const store_call member_count = {ZEL_CALL(get_recent_receiver_count, &out.numbers[0]),
                                 "SELECT count(*) FROM 'recent_receiver_details';", "number 0\n"};
const store_call group_list = {ZEL_CALL(get_recent_receiver_group_list, &out.number_list, &out.numbers[0]),
                               "SELECT index_value FROM 'recent_receiver_group' ORDER BY time_stamp DESC, id DESC;"};
const store_call details = {ZEL_CALL(get_recent_receiver_details, &out.people, &out.counts[0]), ""};
const refusal bad = {"Invalid Parameter"}, bad_params = {"Invalid Params", POINTERS};
const question_kind count_kind = {"Failed to get receiver group count!!", ZEL_ERR_RESOURCE_DOESNT_EXIST, bad_params,
                                  false};

trace counted(const store_call &count)
{
    return whole(count.function, {prepared(count.statement), finalized(count.function)});
}

/// Reading the numbers of the groups, which there are.
trace listed()
{
    return whole(group_list.function,
                 {counted(group_count), prepared(group_list.statement), finalized(group_list.function)});
}

std::string of_group(int group, const char *what = "*", const char *blank = " ")
{
    return std::string("SELECT ") + what + " FROM 'recent_receiver_details' WHERE group_id" + blank + "=" + blank +
           std::to_string(group) + (*blank ? ";" : "");
}

struct StorageRecentReceivers : store_test {
    /// The number and whether it exists, as "2 yes".
    static std::string find(const std::vector<person> &list)
    {
        std::vector<quillo_msisdn_s> records;
        for (const person &one : list)
            records.push_back({const_cast<char *>(one.ccc), const_cast<char *>(one.number), one.id, 0});
        std::vector<quillo_msisdn_s *> pointers;
        for (quillo_msisdn_s &record : records)
            pointers.push_back(&record);
        int group = -7;
        bool exists = false;
        EXPECT_EQ(_common_storage_is_recent_receiver_list_exist(
                      pointers.data(), static_cast<unsigned int>(pointers.size()), &group, &exists),
                  ZEL_ERR_NONE);
        return std::to_string(group) + (exists ? " yes" : " no");
    }
    /// Stores a list in the way that its users do; every use is a second later than the last.
    void use(const std::vector<person> &list)
    {
        const std::string found = find(list);
        const int group = std::stoi(found);
        if (found.ends_with("no")) {
            EXPECT_EQ(_common_storage_delete_recent_receiver_by_group(group), ZEL_ERR_NONE);
            for (const person &one : list)
                EXPECT_EQ(_common_storage_add_recent_receiver(one.number, one.ccc, one.id, group), ZEL_ERR_NONE);
        }
        EXPECT_EQ(_common_storage_update_timestamp_recent_receiver_group(group), ZEL_ERR_NONE);
        database.run("UPDATE recent_receiver_group SET time_stamp = datetime(1000000000 + " + std::to_string(++uses_) +
                     ", 'unixepoch') WHERE index_value = " + std::to_string(group));
        take_trace();
    }
    std::string recency()
    {
        answers out;
        EXPECT_EQ(group_list.call(out), ZEL_ERR_NONE);
        take_trace();
        return out.take();
    }

  private:
    int uses_ = 0;
};

} // namespace

TEST_F(StorageRecentReceivers, an_empty_store)
{
    const trace none =
        join({begin(group_list.function), counted(group_count), debug(group_list.function, "group count is 0")});
    expect_outcome(details, ZEL_ERR_RESOURCE_DOESNT_EXIST, "", join({begin(details.function), none}));
    EXPECT_EQ(find({{1, "44", "1"}}), "1 no");
    EXPECT_TRACE(whole(lookup, {none}));
    expect_questions(groups, {group_count}, count_kind);
    expect_questions(members, {member_count}, count_kind);
    expect_refused({group_list, details}, bad_params);
}

TEST_F(StorageRecentReceivers, groups_are_created_refreshed_and_listed_by_recency)
{
    const std::string create = "INSERT into 'recent_receiver_group' VALUES (NULL, 1, CURRENT_TIMESTAMP)";
    const std::string refresh =
        "UPDATE 'recent_receiver_group' SET time_stamp = CURRENT_TIMESTAMP WHERE index_value = 1";
    EXPECT_LOGGED(_common_storage_update_timestamp_recent_receiver_group(1), ZEL_ERR_NONE,
                  whole(stamp, {counted(group_count), info(stamp, "add group id [1]"), inserted(create, 1)}));
    database.run("UPDATE recent_receiver_group SET time_stamp = '1970-01-01 00:00:00'");
    EXPECT_LOGGED(_common_storage_update_timestamp_recent_receiver_group(1), ZEL_ERR_NONE,
                  whole(stamp, {counted(group_count), info(stamp, "update time_stamp group_id [1]"), ran(refresh)}));
    EXPECT_EQ(database.value("SELECT count(*) FROM recent_receiver_group WHERE time_stamp > '2000'"), "1");

    for (const int group : {2, 3})
        EXPECT_EQ(_common_storage_update_timestamp_recent_receiver_group(group), ZEL_ERR_NONE);
    database.run("UPDATE recent_receiver_group SET time_stamp = '2000-01-01 00:00:00'");
    EXPECT_EQ(recency(), "number 3\nentry 3\nentry 2\nentry 1\n") << "of one second";
    database.run("UPDATE recent_receiver_group SET time_stamp = '2000-01-01 00:00:01' WHERE index_value = 2");
    expect_outcome(group_list, ZEL_ERR_NONE, "number 3\nentry 2\nentry 3\nentry 1\n", listed());
}

TEST_F(StorageRecentReceivers, a_list_is_found_by_its_members)
{
    const person a = {1, "44", "7700"}, b = {2, "", "7'"}, c = {3, "1", ""};
    use({a, b});
    use({c});
    EXPECT_EQ(find({b, a}), "1 yes");
    EXPECT_TRACE(whole(lookup, {listed(), prepared(of_group(2, "count(*)")), finalized(lookup),
                                prepared(of_group(1, "count(*)")), finalized(lookup), prepared(of_group(1)),
                                finalized(lookup)}));
    EXPECT_EQ(find({c}), "2 yes");
    EXPECT_EQ(find({a}), "3 no");
    EXPECT_EQ(find({a, b, c}), "3 no");
    EXPECT_EQ(find({a, {2, "4", "7'"}}), "3 no");
    EXPECT_EQ(find({a, {2, "", "7"}}), "3 no");
    EXPECT_EQ(find({a, {3, "", "7'"}}), "3 no");
    EXPECT_EQ(find({a, a}), "3 no");
    database.run("UPDATE recent_receiver_details SET ccc = NULL WHERE number_id = 3");
    EXPECT_EQ(find({c}), "3 no");

    expect_outcome(details, ZEL_ERR_NONE, "count 3\nperson NULL NULL 3 2\nperson 44 7700 1 1\nperson NULL 7' 2 1\n",
                   whole(details.function, {listed(), prepared(of_group(2, "*", "")),
                                            whole("__fill_last_receiver_info"), finalized(details.function),
                                            prepared(of_group(1, "*", "")), whole("__fill_last_receiver_info"),
                                            whole("__fill_last_receiver_info"), finalized(details.function)}));
    EXPECT_EQ(_common_storage_delete_recent_receiver_by_group(1), ZEL_ERR_NONE);
    take_trace();
    EXPECT_EQ(find({}), "3 no") << "nobody is not group 1";
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "No records found"), 1);
    expect_changes(members, {{ZEL_CALL(clear_recent_receiver), "DELETE FROM 'recent_receiver_details'"}},
                   "Failed to delete all content", bad, false);
    expect_answers({member_count});
    EXPECT_EQ(find({a}), "3 no") << "the groups stay";
    answers out;
    EXPECT_EQ(details.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.people, nullptr);
    EXPECT_EQ(out.counts[0], 0u);
}

TEST_F(StorageRecentReceivers, at_nine_groups_the_least_recently_used_is_given_away)
{
    for (int i = 1; i <= 9; ++i)
        use({{i, "44", "7"}});
    EXPECT_EQ(find({{10, "44", "7"}}), "1 no");
    use({{1, "44", "7"}});
    EXPECT_EQ(find({{10, "44", "7"}}), "2 no");
    use({{10, "44", "7"}});
    EXPECT_EQ(find({{2, "44", "7"}}), "3 no");
    EXPECT_EQ(find({{10, "44", "7"}}), "2 yes");
    EXPECT_EQ(recency(), "number 9\nentry 2\nentry 1\nentry 9\nentry 8\nentry 7\nentry 6\nentry 5\nentry 4\nentry 3\n");
}

TEST_F(StorageRecentReceivers, members_come_and_go)
{
    use({{1, "44", "7"}});
    const store_call add = {ZEL_CALL(add_recent_receiver, "7'", "44", -1, 2),
                            "INSERT into 'recent_receiver_details' VALUES (NULL, -1, '7''', '44', 2)"};
    const store_call remove = {ZEL_CALL(delete_recent_receiver_by_group, 9),
                               "DELETE FROM 'recent_receiver_details' WHERE group_id = 9"};
    expect_outcome(
        add, ZEL_ERR_NONE, "",
        whole(add.function,
              {debug(add.function, "Recipient's phone no [7'] and ccc [44] and number_id [-1] and group_id[2]"),
               inserted(add.statement, 2)}));
    expect_outcome(remove, ZEL_ERR_NONE, "",
                   whole(remove.function, {info(remove.function, "delete group_id [9]"), ran(remove.statement)}));
    expect_refused({add}, {bad.message, POINTERS});
    expect_refused({remove}, {bad.message, FIRST, true});
    expect_failure({ZEL_CALL(delete_recent_receiver_by_group, 10), ""}, ZEL_ERR_INVALID_ARG, bad.message);
    {
        const missing_table gone(members); // groups whose members cannot be read are passed over
        expect_failure(add, ZEL_ERR_STORAGE_FAILURE, "Failed to add recipient");
        expect_failure(remove, ZEL_ERR_STORAGE_FAILURE, "Failed to delete recipient");
        expect_ended_failure(details, ZEL_ERR_NONE, "Failed to get file", "count 0\n");
        EXPECT_EQ(find({{1, "44", "7"}}), "2 no");
        EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "ExecuteSelectQuery Failed"), 1);
    }
    const missing_table gone(groups); // a count that fails is 0
    expect_failure({ZEL_CALL(update_timestamp_recent_receiver_group, 0), ""}, ZEL_ERR_STORAGE_FAILURE,
                   "Failed to update timestamp");
    expect_failure({ZEL_CALL(update_timestamp_recent_receiver_group, 1), ""}, ZEL_ERR_STORAGE_FAILURE,
                   "Failed to add group");
    EXPECT_EQ(find({{1, "44", "7"}}), "1 no");
}
