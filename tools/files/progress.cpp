#include "tools/files/progress.h"

#include "tools/files/progress_terminal.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace Pavex::Tool {

namespace {

constexpr auto kBeforeFirst = std::chrono::milliseconds(300);
constexpr auto kBetween = std::chrono::milliseconds(100);

int WidthOf(int terminal) {
  winsize size{};
  if (ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

// Ignores failures: the work can go on without a bar.
void Draw(int terminal, std::string const& text) {
  [[maybe_unused]] ssize_t const ignored = write(terminal, text.data(), text.size());
}

}  // namespace

Progress::Progress(std::string label)
    : mLabel(std::move(label)),
      mTerminal(OpenProgressTerminal()),
      mNext(Clock::now() + kBeforeFirst) {}

Progress::~Progress() {
  if (mDrawn) Draw(mTerminal, "\r\033[K");
  if (mTerminal >= 0) close(mTerminal);
}

void Progress::Show(double done) {
  if (mTerminal < 0 || Clock::now() < mNext) return;
  mNext = Clock::now() + kBetween;
  mDrawn = true;
  // The last column stays free: some terminals wrap when it is written.
  Draw(mTerminal, "\r" + Line(mLabel, done, WidthOf(mTerminal) - 1) + "\033[K");
}

ProgressFunction Progress::Function() {
  if (mTerminal < 0) return {};
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
