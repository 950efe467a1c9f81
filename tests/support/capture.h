// Captures what a function writes to standard output, for tests.

#pragma once

#include <functional>
#include <string>

namespace Pavex {

// Runs `function` and returns what it wrote to standard output, buffered or not. Redirects the
// descriptor of the whole process meanwhile, so no other thread may write there, except threads
// that `function` starts and ends.
std::string CaptureStdout(std::function<void()> const& function);

// How a forked child ended.
struct ChildResult {
  int exitCode = -1;   // -1 if a signal ended the child
  int signal = 0;      // the signal that ended the child; 0 if it exited
  std::string output;  // what reached the pipe that was the child's standard output
};

// Runs `function` in a forked child whose standard output is a fully buffered pipe, as it is
// for a program whose output is piped. The child exits with 0 when `function` returns, with 1
// if it added a test failure or threw (the output then says so); buffered output is flushed
// then. Call it while the process has no other thread.
ChildResult RunInChild(std::function<void()> const& function);

}  // namespace Pavex
