#include "tests/support/capture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <unistd.h>

namespace Pavex {
namespace {

TEST(CaptureStdout, ReturnsWhatTheFunctionPrints) {
  std::string const text = CaptureStdout([] {
    std::printf("[%s] %d\n", "ERROR", 3);
    std::fflush(stdout);
    (void)!write(STDOUT_FILENO, "raw", 3);
  });

  EXPECT_EQ(text, "[ERROR] 3\nraw");
}

TEST(CaptureStdout, IsEmptyForASilentFunction) {
  EXPECT_EQ(CaptureStdout([] {}), "");
}

TEST(CaptureStdout, GivesStandardOutputBackWhenTheFunctionThrows) {
  std::string const text = CaptureStdout([] {
    EXPECT_THROW(CaptureStdout([] { throw std::runtime_error("x"); }), std::runtime_error);
    std::printf("outer");
  });

  EXPECT_EQ(text, "outer");
}

TEST(RunInChild, TellsOutputAndExitCode) {
  ChildResult const result = RunInChild([] { std::printf("hello\n"); });

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.signal, 0);
  EXPECT_EQ(result.output, "hello\n");
}

TEST(RunInChild, TellsTheSignal) {
  ChildResult const result = RunInChild([] { std::abort(); });

  EXPECT_EQ(result.exitCode, -1);
  EXPECT_EQ(result.signal, SIGABRT);
}

TEST(RunInChild, LosesOutputThatWasNotFlushedBeforeAnAbort) {
  ChildResult const result = RunInChild([] {
    std::printf("lost\n");
    std::abort();
  });

  EXPECT_EQ(result.output, "");
}

TEST(RunInChild, ExitsWith1WhenATestFailureWasAdded) {
  ChildResult const result = RunInChild([] { ADD_FAILURE() << "in the child"; });

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("in the child"), std::string::npos);
}

TEST(RunInChild, ExitsWith1WhenTheFunctionThrows) {
  ChildResult const result = RunInChild([] { throw std::runtime_error("broken"); });

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output, "exception: broken\n");
}

}  // namespace
}  // namespace Pavex
