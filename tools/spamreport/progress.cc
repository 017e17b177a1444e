// Shows the progress of a run to whoever watches it. It never writes to anything but a terminal.

#include "tools/spamreport/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Velmar::Tool {
namespace {

constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kShortestBar = 5;
constexpr std::size_t kLongestBar = 50;
constexpr auto kPause = std::chrono::milliseconds(100);
constexpr char kWipe[] = "\r\x1b[K";

std::size_t terminalWidth() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

std::string bar(std::size_t done, std::size_t total, std::size_t length) {
  const std::size_t full = total == 0 ? length : done * length / total;
  return "[" + std::string(full, '#') + std::string(length - full, '.') + "]  ";
}

}  // namespace

std::string progressLine(std::size_t done, std::size_t total, std::size_t failed, const std::string& label,
                         std::size_t width) {
  const std::string text = std::to_string(done) + " of " + std::to_string(total) + (label.empty() ? "" : "  ") + label +
                           (failed == 0 ? "" : "  (" + std::to_string(failed) + " failed)");
  constexpr std::size_t kFrame = 4;  // brackets and blanks
  if (text.size() + kFrame + kShortestBar > width) return text.substr(0, width);
  return bar(std::min(done, total), total, std::min(width - text.size() - kFrame, kLongestBar)) + text;
}

bool canShowProgress() { return ::isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool shown, std::size_t total, std::string label)
    : shown_(shown), total_(total), label_(std::move(label)) {}

Progress::~Progress() {
  if (shown_) std::fputs(kWipe, stderr);
}

void Progress::step(bool failed) {
  if (!shown_) return;
  const std::lock_guard lock(mutex_);
  ++done_;
  if (failed) ++failed_;
  const auto now = std::chrono::steady_clock::now();
  if (now - drawn_ < kPause) return;
  drawn_ = now;
  draw();
}

void Progress::draw() const {
  const std::string line = progressLine(done_, total_, failed_, label_, terminalWidth() - 1);
  std::fprintf(stderr, "%s%s", kWipe, line.c_str());
}

}  // namespace Velmar::Tool
