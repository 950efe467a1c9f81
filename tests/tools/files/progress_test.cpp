#include "tools/files/progress.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
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

// A terminal of 60 columns, and all that is written into it.
class Terminal {
 public:
  Terminal() {
    winsize size{};
    size.ws_col = 60;
    if (openpty(&mController, &mFile, nullptr, nullptr, &size) != 0)
      throw std::runtime_error("no terminal");
  }
  Terminal(Terminal const&) = delete;
  Terminal& operator=(Terminal const&) = delete;
  ~Terminal() { close(mController); }

  int File() const { return mFile; }

  // Closes the terminal and returns what was written. It may arrive in several parts; after the
  // last one, reading fails.
  std::string Text() {
    close(mFile);
    std::string text;
    char part[1000];
    for (ssize_t length; (length = read(mController, part, sizeof part)) > 0;)
      text.append(part, static_cast<std::size_t>(length));
    return text;
  }

 private:
  int mController = -1;
  int mFile = -1;
};

constexpr char const* kDrawnAndWiped =
    "\rreading [###############...............]  50%\x1b[K\r\x1b[K";

TEST(Progress, DrawsOnATerminalAfterAMomentAndWipesItself) {
  Terminal terminal;

  {
    StandardErrorTo const redirected(terminal.File());
    ShowForAMoment();
  }

  EXPECT_EQ(terminal.Text(), kDrawnAndWiped);
}

// Runs `body` in a process of its own with this name and standard error.
template <typename Body>
void InProcess(char const* name, int standardError, Body const& body) {
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    prctl(PR_SET_NAME, name);
    dup2(standardError, STDERR_FILENO);
    body();
    _exit(0);
  }
  int ending = 0;
  ASSERT_EQ(waitpid(child, &ending, 0), child);
  EXPECT_EQ(ending, 0);
}

// The text that process `rank` of a job of two shows on the terminal. `launcher`, whose
// standard error is the terminal, starts a helper, which starts the process and reads its
// standard error.
std::string ShownUnder(char const* launcher, char const* rank, bool intoPipe) {
  Terminal terminal;
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  int const file = open("/dev/null", O_WRONLY);
  InProcess(launcher, terminal.File(), [&] {
    InProcess("helper", ends[1], [&] {
      setenv("PMI_SIZE", "2", 1);
      setenv("PMI_RANK", rank, 1);
      InProcess("pavex", intoPipe ? ends[1] : file, ShowForAMoment);
    });
  });
  close(file);
  close(ends[1]);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 0) << "nothing goes into the pipe";
  close(ends[0]);
  return terminal.Text();
}

TEST(Progress, DrawsOnTheTerminalOfTheLauncherOfAnMpiJob) {
  EXPECT_EQ(ShownUnder("mpiexec.any", "0", true), kDrawnAndWiped);
  EXPECT_EQ(ShownUnder("mpirun", "0", true), kDrawnAndWiped);
}

TEST(Progress, OfAnMpiJobIsThatOfProcess0) {
  EXPECT_EQ(ShownUnder("mpirun", "1", true), "");
}

TEST(Progress, DoesNotTakeTheTerminalOfAnyOtherProcess) {
  EXPECT_EQ(ShownUnder("shell", "0", true), "");
}

TEST(Progress, IsNotShownWhereStandardErrorGoesToAFile) {
  EXPECT_EQ(ShownUnder("mpirun", "0", false), "");
}

}  // namespace
}  // namespace Pavex::Tool
