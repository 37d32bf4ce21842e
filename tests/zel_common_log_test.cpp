#include "recording_platform.h"
#include "zel_common_log.h"
#include "zel_common_log_internal.h"

using namespace zel_test;

namespace
{

void note_begin(log_site site = log_here())
{
    ZEL_BEGIN_AT(site);
}

} // namespace

TEST(Log, EveryKindHasItsExactLayout)
{
    constexpr log_site site = {"f", 12};
    struct {
        void (*write)(log_site);
        int priority;
        const char *text;
    } const kinds[] = {
        {[](log_site at) { ZEL_BEGIN_AT(at); }, 4, "f(12):  \033[0;36mBEGIN >>>>\033[0;m\n"},
        {[](log_site at) { ZEL_END_AT(at); }, 4, "f(12):  \033[0;36mEND <<<<\033[0;m\n"},
        {[](log_site at) { ZEL_CRITICAL_AT(at, "Invalid params"); }, 6,
         "f(12):  \033[0;31m* Critical * Invalid params\033[0;m\n"},
        {[](log_site at) { ZEL_WARNING_AT(at, "odd [%s]", "x"); }, 5,
         "f(12):  \033[0;34m* Warning * odd [x]\033[0;m\n"},
        {[](log_site at) { ZEL_INFO_AT(at, "DB version is %d", 7); }, 4, "f(12):  * Info * DB version is 7\n"},
        {[](log_site at) { ZEL_PLAIN_AT(at, "query [%s]", "y"); }, 4, "f(12):  query [y]\n"},
        {[](log_site at) { ZEL_DEBUG_AT(at, "DB open Success"); }, 3, "f(12): DB open Success\n"},
        {[](log_site at) { ZEL_DEBUG_AT(at, " timestamp:%llu", 9ULL); }, 3, "f(12):  timestamp:9\n"},
    };
    for (const auto &kind : kinds) {
        kind.write(site);
        EXPECT_EQ(last_raw_line().text, kind.text);
        EXPECT_EQ(last_raw_line().priority, kind.priority);
        EXPECT_EQ(last_raw_line().tag, "QUILLO_COMMON");
    }
    EXPECT_TRACE(begin("f"), end("f"), critical("f", "Invalid params"), warning("f", "odd [x]"),
                 info("f", "DB version is 7"), plain("f", "query [y]"), debug("f", "DB open Success"),
                 debug("f", " timestamp:9"));
}

TEST(Log, LineNamesItsWriterOrTheOneItWritesFor)
{
    ZEL_DEBUG("here");
    note_begin();
    EXPECT_TRACE(debug("TestBody", "here"), begin("TestBody"));
}

TEST(Log, EntryPointWritesNothing)
{
    zel_service_log("file.c", "function", 1, "TAG", "%d %s", 1, "x");
    zel_service_log(nullptr, nullptr, -1, nullptr, nullptr);
    EXPECT_TRACE();
}

// All other tests lean on this: a line that is nearly right is not taken for right.
TEST(Log, RecorderRefusesWhatBreaksTheLayout)
{
    const char *const wrong[] = {
        "%s(%d): \033[0;31m* Critical * x\033[0;m\n",   "%s(%d):  \033[0;34m* Critical * x\033[0;m\n",
        "%s(%d):  \033[0;31m* Critical * x\033[0m\n",   "%s(%d):  \033[0;31m* Critical * x\033[0;m",
        "%s(%d):  \033[0;31m* Critical *x\033[0;m\n",   "%s (%d):  \033[0;31m* Critical * x\033[0;m\n",
        "%s(%d):  \033[0;36mBEGIN >>>>\033[0;m\n",      "%s(%d):  plain\n",
        "%s(%d):  \033[0;31m * Critical * x\033[0;m\n",
    };
    for (const char *format : wrong) {
        dlog_print(DLOG_ERROR, "QUILLO_COMMON", format, "f", 1);
        EXPECT_TRUE(take_trace().text.starts_with("MALFORMED")) << format;
    }
    dlog_print(DLOG_DEBUG, "QUILLO", "%s(%d): x\n", "f", 1);
    EXPECT_TRUE(take_trace().text.starts_with("MALFORMED")) << "wrong tag";
    dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): x\n", "f", 0);
    EXPECT_TRUE(take_trace().text.starts_with("MALFORMED")) << "no line number";
}
