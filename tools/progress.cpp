#include "tools/progress.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace Pavex::Tool {

namespace {

constexpr auto kBeforeFirst = std::chrono::milliseconds(300);
constexpr auto kBetween = std::chrono::milliseconds(100);

int TerminalWidth() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

}  // namespace

Progress::Progress(std::string label)
    : mLabel(std::move(label)),
      mTerminal(isatty(STDERR_FILENO) == 1),
      mNext(Clock::now() + kBeforeFirst) {}

Progress::~Progress() {
  if (mDrawn) std::fputs("\r\033[K", stderr);
}

void Progress::Show(double done) {
  if (!mTerminal || Clock::now() < mNext) return;
  mNext = Clock::now() + kBetween;
  mDrawn = true;
  // The last column stays free: some terminals wrap when it is written.
  std::fprintf(stderr, "\r%s\033[K", Line(mLabel, done, TerminalWidth() - 1).c_str());
  std::fflush(stderr);
}

ProgressFunction Progress::Function() {
  if (!mTerminal) return {};
  return [this](double done) { Show(done); };
}

std::string Progress::Line(std::string const& label, double done, int width) {
  constexpr std::size_t kBar = 30;
  double const share = std::clamp(done, 0.0, 1.0);
  auto const filled = static_cast<std::size_t>(share * kBar);
  std::string percent = std::to_string(static_cast<int>(share * 100));
  percent.insert(0, 3 - percent.size(), ' ');
  std::string const line = label + " [" + std::string(filled, '#') +
                           std::string(kBar - filled, '.') + "] " + percent + "%";
  return line.substr(0, static_cast<std::size_t>(std::max(width, 0)));
}

}  // namespace Pavex::Tool
