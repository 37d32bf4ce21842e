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
    constexpr log_site f = {"f", 12};
#define EXPECT_LINE(statement, text)                                                                                   \
    statement;                                                                                                         \
    EXPECT_EQ(platform.last_line, text)
    EXPECT_LINE(ZEL_BEGIN_AT(f), "4 QUILLO_COMMON f(12):  \033[0;36mBEGIN >>>>\033[0;m\n");
    EXPECT_LINE(ZEL_END_AT(f), "4 QUILLO_COMMON f(12):  \033[0;36mEND <<<<\033[0;m\n");
    EXPECT_LINE(ZEL_CRITICAL_AT(f, "bad %d", 1), "6 QUILLO_COMMON f(12):  \033[0;31m* Critical * bad 1\033[0;m\n");
    EXPECT_LINE(ZEL_WARNING_AT(f, "odd %d", 2), "5 QUILLO_COMMON f(12):  \033[0;34m* Warning * odd 2\033[0;m\n");
    EXPECT_LINE(ZEL_INFO_AT(f, "value %d", 3), "4 QUILLO_COMMON f(12):  * Info * value 3\n");
    EXPECT_LINE(ZEL_PLAIN_AT(f, "query [%s]", "x"), "4 QUILLO_COMMON f(12):  query [x]\n");
    EXPECT_LINE(ZEL_DEBUG_AT(f, "step %d", 4), "3 QUILLO_COMMON f(12): step 4\n");
    EXPECT_TRACE(begin("f"), end("f"), critical("f", "bad 1"), warning("f", "odd 2"), info("f", "value 3"),
                 plain("f", "query [x]"), debug("f", "step 4"));
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
    const auto expect_malformed = [](log_priority priority, const char *tag, const char *format, int line) {
        dlog_print(priority, tag, format, "f", line);
        EXPECT_TRUE(take_trace().text.starts_with("MALFORMED")) << priority << tag << format << line;
    };
    for (const char *format :
         {"%s(%d): \033[0;31m* Critical * x\033[0;m\n", "%s(%d):  \033[0;34m* Critical * x\033[0;m\n",
          "%s(%d):  \033[0;31m* Critical * x\033[0m\n", "%s(%d):  \033[0;31m* Critical * x\033[0;m",
          "%s(%d):  \033[0;31m* Critical *x\033[0;m\n", "%s (%d):  \033[0;31m* Critical * x\033[0;m\n",
          "%s(%d):  \033[0;36mBEGIN >>>>\033[0;m\n", "%s(%d):  plain\n"})
        expect_malformed(DLOG_ERROR, "QUILLO_COMMON", format, 1);
    expect_malformed(DLOG_INFO, "QUILLO_COMMON", "%s(%d):  \033[0;36mBEGIN >>>>\033[0;m \n", 1);
    expect_malformed(DLOG_INFO, "QUILLO_COMMON", "%s(%d): no second blank\n", 1);
    expect_malformed(DLOG_DEBUG, "QUILLO", "%s(%d): wrong tag\n", 1);
    expect_malformed(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): no line\n", 0);
}
