#include "tests/support/capture.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {

namespace {

void Require(bool condition, char const* what) {
  if (!condition) throw std::runtime_error(what);
}

// Redirects standard output to a temporary file while an object of this class lives.
class Redirection {
 public:
  Redirection() : mFile(std::tmpfile()) {
    Require(mFile != nullptr, "no temporary file for standard output");
    std::fflush(stdout);
    mSaved = dup(STDOUT_FILENO);
    dup2(fileno(mFile), STDOUT_FILENO);
  }
  ~Redirection() {
    std::fflush(stdout);
    dup2(mSaved, STDOUT_FILENO);
    close(mSaved);
    std::fclose(mFile);
  }
  Redirection(Redirection const&) = delete;
  Redirection& operator=(Redirection const&) = delete;

  std::string Written() {
    std::fflush(stdout);
    std::string text;
    std::rewind(mFile);
    for (int c = std::fgetc(mFile); c != EOF; c = std::fgetc(mFile))
      text.push_back(static_cast<char>(c));
    return text;
  }

 private:
  std::FILE* mFile;
  int mSaved = -1;
};

[[noreturn]] void RunAsChild(std::function<void()> const& function, int output) {
  rlimit const noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  dup2(output, STDOUT_FILENO);
  close(output);
  std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  int code = 0;
  try {
    function();
    code = ::testing::Test::HasFailure() ? 1 : 0;
  } catch (std::exception const& error) {
    std::printf("exception: %s\n", error.what());
    code = 1;
  }
  std::fflush(stdout);
  std::_Exit(code);
}

std::string ReadAll(int input) {
  std::string text;
  char chunk[4096];
  for (ssize_t n = read(input, chunk, sizeof chunk); n > 0;
       n = read(input, chunk, sizeof chunk))
    text.append(chunk, static_cast<std::size_t>(n));
  return text;
}

}  // namespace

std::string CaptureStdout(std::function<void()> const& function) {
  Redirection redirection;
  function();
  return redirection.Written();
}

ChildResult RunInChild(std::function<void()> const& function) {
  int ends[2];
  Require(pipe(ends) == 0, "no pipe for the child's output");
  std::fflush(stdout);
  pid_t const child = fork();
  Require(child >= 0, "fork failed");
  if (child == 0) {
    close(ends[0]);
    RunAsChild(function, ends[1]);
  }
  close(ends[1]);
  ChildResult result;
  result.output = ReadAll(ends[0]);
  close(ends[0]);
  int status = 0;
  Require(waitpid(child, &status, 0) == child, "the child was lost");
  if (WIFEXITED(status))
    result.exitCode = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
  return result;
}

}  // namespace Pavex
