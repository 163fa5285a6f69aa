#ifndef QUILLMERE_CLI_PROGRESS_BAR_H_
#define QUILLMERE_CLI_PROGRESS_BAR_H_

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace quillmere::cli {

// Progress on stderr for long work. On a terminal: one line redrawn in place with the phase,
// a bar, done of total and the rate. Otherwise: a plain line for each phase's first and last
// report, and in between at most every few seconds. Quiet: nothing.
class ProgressBar {
 public:
  enum class Unit { items, bytes };

  explicit ProgressBar(bool quiet, std::FILE* out = stderr);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Cheap to call often: redraws are throttled.
  void update(const std::string& phase, std::int64_t done, std::int64_t total,
              Unit unit = Unit::items);
  // Prints a phase's last report still held back (on a pipe) or clears the terminal line, so
  // normal output can follow.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;
  std::string render(std::int64_t done, std::int64_t total, Unit unit, Clock::time_point now) const;
  void draw(const std::string& line);
  void flushPending();

  bool quiet_;
  bool terminal_;
  std::FILE* out_;
  std::string phase_;
  Clock::time_point phaseStart_;
  Clock::time_point lastDraw_;
  bool drawn_ = false;
  std::optional<std::string> pending_;  // a report not printed yet: the latest of its phase
};

// "1.5 GB", "312 KB", "17 bytes": decimal units, as file browsers show sizes.
std::string formatBytes(std::int64_t bytes);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_PROGRESS_BAR_H_
