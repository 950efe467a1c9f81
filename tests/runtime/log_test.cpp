#include "pavex/runtime/log.h"

#include "tests/support/capture.h"
#include "tests/support/log_level.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace Pavex {
namespace {

std::string LinesAt(std::int32_t level) {
  LogLevel const gate(level);
  return CaptureStdout([] {
    Log::Error("Rank %d of %s", 3, "five");
    Log::Debug("Step %d", 7);
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

TEST(Log, WritesPrefixTextAndNewlineAtOnce) {
  LogLevel const gate(LOG_DEBUG);

  ChildResult const result = RunInChild([] {
    // A packet of the socket is one write, because the stream has no buffer.
    int ends[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    ASSERT_NE(dup2(ends[1], STDOUT_FILENO), -1);
    ASSERT_EQ(std::setvbuf(stdout, nullptr, _IONBF, 0), 0);
    char packet[64] = "";
    Log::Error("Rank %d of %s", 3, "five");
    ASSERT_GT(read(ends[0], packet, sizeof(packet) - 1), 0);
    EXPECT_STREQ(packet, "[ERROR] Rank 3 of five\n");
  });

  EXPECT_EQ(result.exitCode, 0);
}

TEST(Log, PrintsALineOfAnyLength) {
  LogLevel const gate(LOG_ERROR);
  std::string const text(5000, 'x');

  EXPECT_EQ(CaptureStdout([&text] { Log::Error("%s", text.c_str()); }),
            "[ERROR] " + text + "\n");
}

TEST(Log, TakesAFormatOfTheGreatestLengthAndNoLonger) {
  LogLevel const gate(LOG_ERROR);
  std::string const most(Log::kMostFormat, 'x');
  std::string const more(Log::kMostFormat + 1, 'x');
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  EXPECT_EQ(CaptureStdout([&most] { Log::Error(most.c_str()); }), "[ERROR] " + most + "\n");
  EXPECT_EQ(RunInChild([&more] { Log::Error(more.c_str()); }).signal, SIGABRT);
#pragma GCC diagnostic pop
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
