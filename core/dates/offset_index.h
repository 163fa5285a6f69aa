#ifndef QUILLMERE_CORE_DATES_OFFSET_INDEX_H_
#define QUILLMERE_CORE_DATES_OFFSET_INDEX_H_

#include <cstddef>
#include <optional>
#include <vector>

#include "core/dates/date_decision.h"
#include "core/dates/time_zone.h"

namespace quillmere {

// The UTC offsets known for photos of one export, by capture instant: the witnesses a photo
// without a zone of its own borrows from. Filled once per repair with add(), sealed with
// finalize(), then only read (safe to share between threads from then on).
struct OffsetIndex {
  struct Sample {
    double utc = 0;  // seconds since the Unix epoch
    int offset = 0;  // seconds east of UTC
    bool operator==(const Sample&) const = default;
  };

  // Three days: photos further apart than this in time say nothing about each other's zone.
  static constexpr double kMaxDistance = 259'200;

  std::vector<Sample> samples;
  double maxDistance = kMaxDistance;
  // The machine's zone when the index was made; absent only without any readable tzdata, in
  // which case a guess is UTC.
  std::optional<TimeZone> fallbackZone = TimeZone::current();

  // Appends a sample; duplicates are kept.
  void add(double utc, int offset) { samples.push_back({utc, offset}); }

  // Sorts the samples by instant, keeping the order of addition among equal instants.
  // Required after the last add() and before any offset() call.
  void finalize();

  std::size_t count() const { return samples.size(); }

  // The offset of the sample nearest to `utc` (the earlier one on a tie) when it lies at most
  // maxDistance away, as `neighbor`; otherwise the fallback zone's offset at `utc`, as
  // `guessed`. Requires finalize().
  InferredOffset offset(double utc) const;

  bool operator==(const OffsetIndex&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_OFFSET_INDEX_H_
