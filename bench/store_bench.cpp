/*
 * Every operation of the store, as the tests' table calls it, beside what it asks of SQLite, asked again bare. Each in
 * three worlds: one of few rows, one where each of these stands a thousand times, and one where each text is long.
 */

#include "call.h"
#include "harness.h"
#include "recording.h"
#include "table.h"
#include "world.h"

#include <ctime>
#include <fstream>
#include <map>
#include <memory>

/* The tests' world needs this of their platform. */
std::string zel_test::take_trace()
{
    return {};
}

namespace bench
{

namespace
{

constexpr int MANY = 1000;

struct setting {
    const char *name;
    double bound;
    int repetitions;
    int copies;  /**< of each row */
    size_t text; /**< bytes of each text in a row or a call */
};
constexpr setting FEW_ROWS = {"few rows", 1.1, 41, 1, 40};
constexpr setting MANY_ROWS = {"many rows", 1.2, 11, MANY, 40};
constexpr setting LONG_TEXTS = {"long texts", 2.0, 11, 1, 20000};

/** A file that is the start of each run; one database is open at a time. */
class world
{
  public:
    explicit world(const setting &with) : word_(with.text, 'w')
    {
        std::filesystem::remove_all(zel_test::database_folder);
        std::filesystem::create_directories(zel_test::database_folder);
        zel_test::prefix = word_;
        require(_common_storage_init() == ZEL_ERR_NONE, "the store cannot be opened");
        zel_test::furnish(zel_test::ROWS);
        multiply(with.copies);
        close();
        std::ifstream in(zel_test::database_file, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(in), {});
    }

    void open() const
    {
        close();
        zel_test::prefix = word_;
        std::ofstream(zel_test::database_file, std::ios::binary) << bytes_;
        sqlite3_open(zel_test::database_file.c_str(), &_g_sqlite_handle);
        // As in a process that has run for a while, the schema is known.
        require(sqlite3_exec(_g_sqlite_handle, "SELECT * FROM sqlite_master", nullptr, nullptr, nullptr) == SQLITE_OK,
                "the store cannot be read");
    }
    static void close()
    {
        require(sqlite3_close(_g_sqlite_handle) == SQLITE_OK, "a statement was not finalized");
        _g_sqlite_handle = nullptr;
    }

  private:
    /** All rows but those of the groups of receivers, of which there are nine at most. */
    static void multiply(int copies)
    {
        zel_test::raw_database raw;
        for (const auto &table : raw.rows("SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite%' AND name <> "
                                          "'recent_receiver_group'"))
            raw.run("WITH RECURSIVE copy(x) AS (SELECT 2 UNION ALL SELECT x + 1 FROM copy WHERE x < " +
                    std::to_string(copies) + ") INSERT INTO " + table[0] + " SELECT " +
                    raw.value("SELECT group_concat(CASE WHEN pk AND type = 'TEXT' THEN name || ' || x' WHEN pk THEN "
                              "'NULL' ELSE name END) FROM pragma_table_info('" +
                              table[0] + "')") +
                    " FROM copy, " + table[0] + " WHERE x <= " + std::to_string(copies));
    }

    std::string word_;
    std::string bytes_;
};

const world &world_of(const setting &with)
{
    static std::map<const setting *, world> all;
    return all.try_emplace(&with, with).first->second;
}

double now()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/** Returns the seconds of the operation, without reading its arguments and releasing its outputs. */
double time_of(const zel_test::call &call)
{
    zel_test::prepared_call prepared(call);
    const double start = now();
    prepared.run();
    const double time = now() - start;
    prepared.take_result();
    return time;
}

/** One run of an operation. */
struct run_of {
    run_of(const world &in, const zel_test::call &call)
    {
        in.open();
        zel_test::prepared_call prepared(call);
        asked.record([&] { prepared.run(); });
        prepared.take_result();
        world::close();
    }
    recording asked;
};

/** Measures seconds(), from a world that is restored for each run if the operation changes it. */
side in_world(const world &in, const std::shared_ptr<run_of> &run, const std::function<double()> &seconds)
{
    return {[&in, run, seconds](benchmark::State &state) {
        in.open();
        for (auto _ : state) {
            if (run->asked.writes)
                in.open();
            state.SetIterationTime(seconds());
        }
        world::close();
    }};
}

/** Returns the operation's name without the common prefix. */
std::string short_name(const zel_test::call &call)
{
    const std::string name = call.function(), head = "_common_storage_";
    return name.starts_with(head) ? name.substr(head.size()) : name;
}

void add_beside(const zel_test::call &call, const setting &with)
{
    const auto make = [=, &with] {
        const world &in = world_of(with);
        const auto run = std::make_shared<run_of>(in, call);
        return std::pair(in_world(in, run, [=] { return time_of(call); }), in_world(in, run, [run] {
                             const double start = now();
                             run->asked.replay(_g_sqlite_handle);
                             const double time = now() - start;
                             run->asked.release();
                             return time;
                         }));
    };
    add({.name = std::string("store, ") + with.name + ": " + short_name(call),
         .bound = with.bound,
         .make = make,
         .repetitions = with.repetitions,
         .sets_time = true});
}

const group measures([] {
    for (const zel_test::call &call : zel_test::first_calls()) {
        for (const setting *with : {&FEW_ROWS, &MANY_ROWS, &LONG_TEXTS})
            add_beside(call, *with);
    }
});

} // namespace

} // namespace bench
