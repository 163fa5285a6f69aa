#ifndef QUILLMERE_CORE_DATES_DATE_PLANNER_H_
#define QUILLMERE_CORE_DATES_DATE_PLANNER_H_

#include <optional>

#include "core/dates/date_decision.h"
#include "core/dates/geo_point.h"
#include "core/dates/offset_index.h"
#include "core/dates/time_zone_map.h"
#include "core/metadata/embedded_metadata.h"

namespace quillmere {

// Weighs a file's own capture date against the export's capture instant and decides which
// instant and UTC offset the repair writes, and why. Pure functions; they never fail: every
// lack of information ends in one of decide()'s outcomes.
namespace DatePlanner {

using CaptureDate = EmbeddedMetadata::CaptureDate;

// A file's own date turned into an instant.
struct ResolvedDate {
  double utc = 0;
  std::optional<int> offsetSeconds;
  OffsetSource offsetSource = OffsetSource::unknown;  // file, derived or unknown

  bool operator==(const ResolvedDate&) const = default;
};

// The instant a file's own date names, if it names one:
//  - an absolute date always resolves, with its offset (`file`) or without (`unknown`);
//  - a wall clock with an offset resolves when its text reads as "yyyy:MM:dd HH:mm:ss";
//  - a bare wall clock resolves only against `takeoutUTC`: when the two lie a whole number of
//    quarter hours apart (give or take 120 seconds), at most 14 hours, the difference is
//    taken as the file's offset (`derived`).
std::optional<ResolvedDate> resolveEmbedded(const std::optional<CaptureDate>& captureDate,
                                            std::optional<double> takeoutUTC);

// The offset at `utc` for a file without one: the zone at `location` in `map` when both are
// known, else the nearest sample of `offsets` (or the fallback guess). The second form uses
// TimeZoneMap::shared(); a null map just skips the location.
InferredOffset inferOffset(double utc, const std::optional<GeoPoint>& location,
                           const OffsetIndex& offsets, const TimeZoneMap* map);
InferredOffset inferOffset(double utc, const std::optional<GeoPoint>& location,
                           const OffsetIndex& offsets);

// The date the repair writes for a file: `embedded` is the file's own date, `takeoutUTC` the
// export's instant for it, `location` the position chosen for it, `offsets` the run's finalized
// index. The file's date stands (write false) when it agrees with the export's within 120
// seconds or there is nothing to compare; otherwise the export's instant is written with the
// file's offset or an inferred one, and the note says what happened. `map` as in inferOffset.
DateDecision decide(const std::optional<CaptureDate>& embedded, std::optional<double> takeoutUTC,
                    const std::optional<GeoPoint>& location, const OffsetIndex& offsets,
                    const TimeZoneMap* map);
DateDecision decide(const std::optional<CaptureDate>& embedded, std::optional<double> takeoutUTC,
                    const std::optional<GeoPoint>& location, const OffsetIndex& offsets);

}  // namespace DatePlanner
}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_DATE_PLANNER_H_
