#pragma once

// A line on the terminal that says how far a run is.

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace Velmar::Tool {

/// "[#####.....]  5 of 10  example.org  (1 failed)", at most `width` columns; the bar takes what room the texts leave,
/// and is left out where that is too little.
std::string progressLine(std::size_t done, std::size_t total, std::size_t failed, const std::string& label,
                         std::size_t width);

/// Whether standard error is a terminal.
bool canShowProgress();

/// Draws the line on standard error, at most ten times a second, and wipes it away at its end.
class Progress {
 public:
  Progress(bool shown, std::size_t total, std::string label);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// One more is done. Any thread.
  void step(bool failed);

 private:
  void draw() const;

  const bool shown_;
  const std::size_t total_;
  const std::string label_;
  std::mutex mutex_;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  std::chrono::steady_clock::time_point drawn_{};
};

}  // namespace Velmar::Tool
