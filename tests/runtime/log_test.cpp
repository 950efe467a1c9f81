#include "pavex/runtime/log.h"

#include "tests/support/capture.h"
#include "tests/support/log_level.h"

#include <csignal>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

std::string LinesAt(std::int32_t level) {
  LogLevel const gate(level);
  return CaptureStdout([] {
    Log::Error("[%s] Rank %d of %s\n", 3, "five");
    Log::Debug("[%s] Step %d\n", 7);
  });
}

ChildResult NeverBeenHereAt(std::int32_t level) {
  LogLevel const gate(level);
  return RunInChild([] { Log::NeverBeenHere(); });
}

TEST(Log, StartsAtTheErrorLevel) {
  EXPECT_EQ(Log::mMaxLogLevel, LOG_ERROR);
}

TEST(Log, NumbersItsLevels) {
  EXPECT_EQ(LOG_FATAL, 0);
  EXPECT_EQ(LOG_ERROR, 1);
  EXPECT_EQ(LOG_DEBUG, 4);
  EXPECT_EQ(sizeof(Log::mMaxLogLevel), 4U);
}

TEST(Log, PrintsNothingBelowTheErrorLevel) {
  EXPECT_EQ(LinesAt(-1), "");
  EXPECT_EQ(LinesAt(0), "");
}

TEST(Log, PrintsErrorsFromTheirLevelOn) {
  EXPECT_EQ(LinesAt(1), "[ERROR] Rank 3 of five\n");
  EXPECT_EQ(LinesAt(3), "[ERROR] Rank 3 of five\n");
}

TEST(Log, PrintsDebugLinesFromTheirLevelOn) {
  EXPECT_EQ(LinesAt(4), "[ERROR] Rank 3 of five\n[DEBUG] Step 7\n");
}

TEST(LogReport, IsSilentAboutSuccess) {
  LogLevel const gate(LOG_DEBUG);
  PavexStatus returned = 1;

  std::string const text = CaptureStdout([&returned] { returned = Log::Report(STATUS_OK); });

  EXPECT_EQ(text, "");
  EXPECT_EQ(returned, STATUS_OK);
}

TEST(LogReport, PrintsTheTextOfAFailedStatusAndReturnsIt) {
  LogLevel const gate(LOG_ERROR);
  PavexStatus returned = 0;

  std::string const text = CaptureStdout([&returned] { returned = Log::Report(-9); });

  EXPECT_EQ(text, "[ERROR] Matrix does not match the gathered one\n");
  EXPECT_EQ(returned, -9);
}

TEST(LogReport, PassesForeignStatusesThrough) {
  LogLevel const gate(LOG_ERROR);
  PavexStatus returned = 0;

  std::string const text = CaptureStdout([&returned] { returned = Log::Report(4711); });

  EXPECT_EQ(text, "[ERROR] Unknown status\n");
  EXPECT_EQ(returned, 4711);
}

TEST(LogReport, ReturnsTheStatusAlsoWhenSilent) {
  LogLevel const gate(0);
  PavexStatus returned = 0;

  std::string const text = CaptureStdout([&returned] { returned = Log::Report(-9); });

  EXPECT_EQ(text, "");
  EXPECT_EQ(returned, -9);
}

TEST(LogNeverBeenHere, BringsTheFatalLineToAPipeBeforeItAborts) {
  for (std::int32_t const level : {0, 1, 4}) {
    ChildResult const result = NeverBeenHereAt(level);

    EXPECT_EQ(result.output, "[FATAL] Never been here\n") << level;
    EXPECT_EQ(result.signal, SIGABRT) << level;
  }
}

TEST(LogNeverBeenHere, AbortsSilentlyAtANegativeLevel) {
  ChildResult const result = NeverBeenHereAt(-1);

  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.signal, SIGABRT);
}

TEST(LogNeverBeenHere, PrintsTheFatalLineAtALevelThatHidesErrors) {
  LogLevel const gate(0);

  ChildResult const result = RunInChild([] {
    Log::Report(-2);
    Log::NeverBeenHere();
  });

  EXPECT_EQ(result.output, "[FATAL] Never been here\n");
}

}  // namespace
}  // namespace Pavex
