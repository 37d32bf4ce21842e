#include "recording_platform.h"
#include "zel_common_log.h"
#include "zel_common_log_internal.h"

using namespace zel_test;

TEST(Log, EveryKindHasItsExactLayout)
{
    constexpr log_site f = {"f", 12};
    ZEL_BEGIN_AT(f);
    ZEL_CRITICAL_AT(f, "bad %d", 1);
    ZEL_WARNING_AT(f, "odd %d", 2);
    ZEL_INFO_AT(f, "value %d", 3);
    ZEL_PLAIN_AT(f, "query [%s]", "x");
    ZEL_DEBUG_AT(f, "step %d", 4);
    ZEL_END_AT(f);
    EXPECT_TRACE(begin("f"), critical("f", "bad 1"), warning("f", "odd 2"), info("f", "value 3"),
                 plain("f", "query [x]"), debug("f", "step 4"), end("f"));
    zel_service_log("file.c", "function", 1, "TAG", "%d %s", 1, "x");
    zel_service_log(nullptr, nullptr, -1, nullptr, nullptr);
    EXPECT_TRACE() << "the entry point of clients writes nothing";
}

// All other tests lean on this: a line that is nearly right is not taken for right.
TEST(Log, RecorderRefusesWhatBreaksTheLayout)
{
    const auto recorded = [](log_priority priority, const char *tag, const char *format, int number = 1) {
        dlog_print(priority, tag, format, "f", number);
        return take_trace().text;
    };
    const char *tag = "QUILLO_COMMON";
    for (const char *format :
         {"%s(%d): \033[0;31m* Critical * x\033[0;m\n", "%s(%d):  \033[0;34m* Critical * x\033[0;m\n",
          "%s(%d):  \033[0;31m* Critical * x\033[0m\n", "%s(%d):  \033[0;31m* Critical * x\033[0;m",
          "%s(%d):  \033[0;31m* Critical *x\033[0;m\n", "%s (%d):  \033[0;31m* Critical * x\033[0;m\n"})
        EXPECT_NE(recorded(DLOG_ERROR, tag, format), critical("f", "x").text) << format;
    EXPECT_NE(recorded(DLOG_ERROR, tag, "%s(%d):  \033[0;36mBEGIN >>>>\033[0;m\n"), begin("f").text);
    EXPECT_NE(recorded(DLOG_INFO, tag, "%s(%d):  \033[0;36mBEGIN >>>>\033[0;m \n"), begin("f").text);
    EXPECT_NE(recorded(DLOG_INFO, tag, "%s(%d): x\n"), plain("f", "x").text);
    EXPECT_NE(recorded(DLOG_DEBUG, "QUILLO", "%s(%d): x\n"), debug("f", "x").text);
    EXPECT_NE(recorded(DLOG_DEBUG, tag, "%s(%d): x\n", 0), debug("f", "x").text);
}
