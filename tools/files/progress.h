// A progress bar for long work: reading a file, generating a matrix.

#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace Pavex::Tool {

// A long operation calls it from time to time with the share that is done, 0 to 1. It may be
// empty.
using ProgressFunction = std::function<void(double done)>;

// Draws one line on the terminal that standard error goes to, also through the launcher of an
// MPI job (see progress_terminal.h). It writes nothing into pipes and files. Of the processes
// of an MPI job, only process 0 draws. The line appears after a moment, so short work shows
// none. It is drawn at most ten times a second, and the destructor removes it. Not shared
// between threads.
//
//   Progress progress("reading west0479.mtx");
//   Triplets matrix = ReadMatrixMarket(path, progress.Function());
class Progress {
 public:
  explicit Progress(std::string label);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress();

  void Show(double done);

  // Calls Show on this object, which must outlive the function. Empty if there is no terminal,
  // so that the caller computes nothing for it.
  ProgressFunction Function();

  // What is drawn, cut to `width` columns: the label, a bar of 30 marks and the percentage, as
  // in "reading a.mtx [######........................]  20%".
  static std::string Line(std::string const& label, double done, int width);

 private:
  using Clock = std::chrono::steady_clock;

  std::string mLabel;
  int mTerminal;  // -1: none
  bool mDrawn = false;
  Clock::time_point mNext;  // no redraw before
};

}  // namespace Pavex::Tool
