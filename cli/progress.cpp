#include "cli/progress.h"

#include <cinttypes>

#include "cli/console.h"
#include "cli/text.h"

namespace kzcli {

namespace {

// Code points in a UTF-8 string: close enough to columns for the names
// we show, which are already free of control characters.
size_t Columns(const std::string& s) {
  size_t n = 0;
  for (char c : s) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return n;
}

// The last `columns` code points of s, led by "..." when something was cut.
std::string Tail(const std::string& s, size_t columns) {
  if (Columns(s) <= columns) return s;
  if (columns <= 3) return std::string(columns, '.');
  size_t keep = columns - 3, pos = s.size();
  while (pos > 0 && keep > 0) {
    --pos;
    if ((static_cast<unsigned char>(s[pos]) & 0xC0) != 0x80) --keep;
  }
  return "..." + s.substr(pos);
}

std::string Duration(double seconds) {
  const auto s = static_cast<uint64_t>(seconds + 0.5);
  char buffer[32];
  if (s >= 3600) {
    std::snprintf(buffer, sizeof buffer, "%" PRIu64 ":%02u:%02u", s / 3600,
                  static_cast<unsigned>(s / 60 % 60), static_cast<unsigned>(s % 60));
  } else {
    std::snprintf(buffer, sizeof buffer, "%u:%02u", static_cast<unsigned>(s / 60),
                  static_cast<unsigned>(s % 60));
  }
  return buffer;
}

}  // namespace

std::string FormatBytes(uint64_t bytes) {
  static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  char buffer[32];
  if (bytes < 1024) {
    std::snprintf(buffer, sizeof buffer, "%" PRIu64 " B", bytes);
    return buffer;
  }
  double value = static_cast<double>(bytes);
  int unit = 0;
  while (value >= 1024.0 && unit < 4) value /= 1024.0, ++unit;
  std::snprintf(buffer, sizeof buffer, value < 10.0 ? "%.2f %s" : value < 100.0 ? "%.1f %s" : "%.0f %s",
                value, kUnits[unit]);
  return buffer;
}

std::string FormatProgressLine(const std::string& item, uint64_t done, uint64_t total,
                               double elapsedSeconds, int width) {
  if (done > total) total = done;
  const int percent = total == 0 ? 100 : static_cast<int>(done * 100 / total);
  // A shorter bar on narrow terminals leaves room for the member's name.
  const int barWidth = width >= 100 ? 20 : 10;
  const int filled = percent * barWidth / 100;
  std::string line = std::string("[") + std::string(static_cast<size_t>(filled), '#') +
                     std::string(static_cast<size_t>(barWidth - filled), '.') + "] ";
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%3d%% ", percent);
  line += buffer + FormatBytes(done) + " / " + FormatBytes(total);
  // Rate and time left only once there is enough history to mean something.
  if (elapsedSeconds >= 0.5 && done > 0) {
    const double rate = static_cast<double>(done) / elapsedSeconds;
    line += "  " + FormatBytes(static_cast<uint64_t>(rate)) + "/s";
    line += "  " + Duration(static_cast<double>(total - done) / rate) + " left";
  }
  const size_t used = Columns(line) + 2;
  const size_t room = width > 1 ? static_cast<size_t>(width - 1) : 0;  // never the last column
  if (!item.empty() && used + 8 <= room) line += "  " + Tail(item, room - used);
  return Columns(line) > room ? Tail(line, room) : line;
}

void ProgressDisplay::Update(const wchar_t* item, uint64_t done, uint64_t total) {
  if (!enabled_) return;
  const Clock::time_point now = Clock::now();
  if (!started_) {
    started_ = true;
    start_ = now;
  } else if (now - lastDraw_ < kRedrawInterval) {
    return;
  }
  lastDraw_ = now;
  const double elapsed = std::chrono::duration<double>(now - start_).count();
  const std::string line =
      FormatProgressLine(DisplayName(item), done, total, elapsed, TerminalColumns(out_));
  std::fprintf(out_, "\r\x1b[K%s", line.c_str());
  std::fflush(out_);
  drawn_ = true;
}

void ProgressDisplay::Clear() {
  if (!drawn_) return;
  std::fputs("\r\x1b[K", out_);
  std::fflush(out_);
  drawn_ = false;
}

}  // namespace kzcli
