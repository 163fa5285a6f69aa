#include "cli/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "cli/number_format.h"

namespace quillmere::cli {
namespace {

constexpr auto kTerminalInterval = std::chrono::milliseconds(100);
constexpr auto kPlainInterval = std::chrono::seconds(5);
constexpr int kBarWidth = 24;

std::string formatCount(std::int64_t value, ProgressBar::Unit unit) {
  return unit == ProgressBar::Unit::bytes ? formatBytes(value) : groupedCount(value);
}

}  // namespace

std::string formatBytes(std::int64_t bytes) {
  static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB"};
  if (bytes < 1000) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  double value = static_cast<double>(bytes);
  int unit = -1;
  while (value >= 1000 && unit < 3) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, value < 10 ? "%.1f %s" : "%.0f %s", value, kUnits[unit]);
  return text;
}

ProgressBar::ProgressBar(bool quiet, std::FILE* out)
    : quiet_(quiet), terminal_(isatty(fileno(out)) != 0), out_(out) {}

ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::update(const std::string& phase, std::int64_t done, std::int64_t total,
                         Unit unit) {
  if (quiet_) return;
  const auto now = Clock::now();
  const bool newPhase = phase != phase_;
  if (newPhase) {
    flushPending();
    phase_ = phase;
    phaseStart_ = now;
  }
  const bool last = total > 0 && done >= total;
  const auto interval = terminal_ ? std::chrono::duration_cast<Clock::duration>(kTerminalInterval)
                                  : std::chrono::duration_cast<Clock::duration>(kPlainInterval);
  const std::string line = render(done, total, unit, now);
  if (!(newPhase || now - lastDraw_ >= interval || (terminal_ && last))) {
    // On a pipe, the phase's last report is printed when the phase ends, whichever it was.
    pending_ = line;
    return;
  }
  pending_.reset();
  lastDraw_ = now;
  draw(line);
}

void ProgressBar::draw(const std::string& line) {
  drawn_ = true;
  if (terminal_) {
    std::fprintf(out_, "\r\033[2K%s", line.c_str());
  } else {
    std::fprintf(out_, "%s\n", line.c_str());
  }
  std::fflush(out_);
}

void ProgressBar::flushPending() {
  if (pending_ && !terminal_) draw(*pending_);
  pending_.reset();
}

std::string ProgressBar::render(std::int64_t done, std::int64_t total, Unit unit,
                                Clock::time_point now) const {
  std::string line = phase_;
  if (total > 0) {
    const double fraction =
        std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0);
    if (terminal_) {
      const int filled = static_cast<int>(std::lround(fraction * kBarWidth));
      line.append(" [").append(static_cast<std::size_t>(filled), '#');
      line.append(static_cast<std::size_t>(kBarWidth - filled), '-').append("]");
    }
    line += " " + formatCount(done, unit) + " of " + formatCount(total, unit);
  }
  const double seconds = std::chrono::duration<double>(now - phaseStart_).count();
  if (seconds >= 1 && done > 0) {
    const auto rate = static_cast<std::int64_t>(static_cast<double>(done) / seconds);
    line += ", " + formatCount(rate, unit) + (unit == Unit::bytes ? "/s" : " per second");
  }
  return line;
}

void ProgressBar::finish() {
  if (quiet_) return;
  flushPending();
  if (!terminal_ || !drawn_) return;
  std::fputs("\r\033[2K", out_);
  std::fflush(out_);
  drawn_ = false;
}

}  // namespace quillmere::cli
