// The progress bar on a terminal: bytes done of total, rate, time left and
// the current member, redrawn at most ten times a second and erased at the
// end. Silent when the stream is not a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace kzcli {

// "1.2 MiB", "734 B": the unit that keeps three significant digits.
std::string FormatBytes(uint64_t bytes);
// One bar line fitted into width columns (no escapes; item already safe).
std::string FormatProgressLine(const std::string& item, uint64_t done, uint64_t total,
                               double elapsedSeconds, int width);

class ProgressDisplay {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kRedrawInterval{100};

  ProgressDisplay(std::FILE* out, bool enabled) : out_(out), enabled_(enabled) {}
  ~ProgressDisplay() { Clear(); }
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  void Update(const wchar_t* item, uint64_t done, uint64_t total);
  // Erases the bar, before other output and at the end.
  void Clear();

 private:
  std::FILE* out_;
  bool enabled_;
  bool drawn_ = false;
  bool started_ = false;
  Clock::time_point start_{};
  Clock::time_point lastDraw_{};
};

}  // namespace kzcli
