#include "tools/progress.h"

#include <chrono>
#include <gtest/gtest.h>
#include <pty.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace Pavex::Tool {
namespace {

// While it lives, standard error is `file`.
class StandardErrorTo {
 public:
  explicit StandardErrorTo(int file) : mOld(dup(STDERR_FILENO)) { dup2(file, STDERR_FILENO); }
  ~StandardErrorTo() {
    dup2(mOld, STDERR_FILENO);
    close(mOld);
  }

 private:
  int mOld;
};

void ShowForAMoment() {
  Progress progress("reading");
  progress.Show(0.1);
  std::this_thread::sleep_for(std::chrono::milliseconds(350));
  progress.Show(0.5);
  progress.Show(0.6);
}

TEST(Progress, DrawsABarWithThePercentage) {
  EXPECT_EQ(Progress::Line("reading a.mtx", 0.2, 80),
            "reading a.mtx [######........................]  20%");
  EXPECT_EQ(Progress::Line("x", 1, 80), "x [##############################] 100%");
}

TEST(Progress, CutsTheLineToTheTerminal) {
  EXPECT_EQ(Progress::Line("reading a.mtx", 0.2, 10), "reading a.");
}

TEST(Progress, StaysBetweenNothingAndAll) {
  EXPECT_EQ(Progress::Line("x", -1, 80), "x [..............................]   0%");
  EXPECT_EQ(Progress::Line("x", 2, 80), "x [##############################] 100%");
}

TEST(Progress, WritesNothingIntoAPipe) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);

  {
    StandardErrorTo const redirected(ends[1]);
    ShowForAMoment();
    EXPECT_FALSE(Progress("reading").Function());
  }
  close(ends[1]);

  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  close(ends[0]);
}

TEST(Progress, DrawsOnATerminalAfterAMomentAndWipesItself) {
  int controller = -1;
  int terminal = -1;
  winsize size{};
  size.ws_col = 60;
  ASSERT_EQ(openpty(&controller, &terminal, nullptr, nullptr, &size), 0);

  {
    StandardErrorTo const redirected(terminal);
    ShowForAMoment();
  }

  close(terminal);
  // What was written may arrive in several parts; behind the last one the read fails.
  std::string text;
  char part[1000];
  for (ssize_t length; (length = read(controller, part, sizeof part)) > 0;)
    text.append(part, static_cast<std::size_t>(length));
  close(controller);

  EXPECT_EQ(text, "\rreading [###############...............]  50%\x1b[K\r\x1b[K");
}

}  // namespace
}  // namespace Pavex::Tool
