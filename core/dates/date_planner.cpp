#include "core/dates/date_planner.h"

#include <cmath>
#include <string>

#include "core/dates/exif_date.h"

namespace quillmere::DatePlanner {
namespace {

// Two witnesses of the same moment may differ by this much (clock drift, rounding).
constexpr double kAgreementSeconds = 120;
// Offsets are whole quarter hours, at most 14 hours from UTC.
constexpr double kOffsetStep = 900;
constexpr double kLargestOffset = 50'400;

constexpr const char* kOverrideNoteEnd =
    " differed from Google Photos; used Google's (likely edited there)";

bool agree(double a, double b) { return std::fabs(a - b) <= kAgreementSeconds; }

// The offset a bare wall clock shows against the export's instant, when the difference is a
// plausible zone.
std::optional<int> derivedOffset(double wallClockAsUTC, double takeoutUTC) {
  const double difference = wallClockAsUTC - takeoutUTC;
  const double rounded = std::round(difference / kOffsetStep) * kOffsetStep;
  if (std::fabs(rounded) > kLargestOffset || !agree(difference, rounded)) return std::nullopt;
  return static_cast<int>(rounded);
}

std::optional<double> finite(std::optional<double> instant) {
  return instant && std::isfinite(*instant) ? instant : std::nullopt;
}

DateDecision written(double utc, InferredOffset offset, DateSource source,
                     std::optional<std::string> note) {
  return {utc, offset.seconds, source, offset.source, true, std::move(note)};
}

}  // namespace

std::optional<ResolvedDate> resolveEmbedded(const std::optional<CaptureDate>& captureDate,
                                            std::optional<double> takeoutUTC) {
  if (!captureDate) return std::nullopt;
  if (const CaptureDate::Absolute* absolute = captureDate->asAbsolute()) {
    const OffsetSource source =
        absolute->offsetSeconds ? OffsetSource::file : OffsetSource::unknown;
    return ResolvedDate{absolute->date, absolute->offsetSeconds, source};
  }
  const CaptureDate::Local& local = *captureDate->asLocal();
  const std::optional<double> wallClock = ExifDate::wallClockAsUTC(local.text);
  if (!wallClock) return std::nullopt;
  if (local.offsetSeconds) {
    return ResolvedDate{*wallClock - *local.offsetSeconds, local.offsetSeconds, OffsetSource::file};
  }
  takeoutUTC = finite(takeoutUTC);
  if (!takeoutUTC) return std::nullopt;
  const std::optional<int> offset = derivedOffset(*wallClock, *takeoutUTC);
  if (!offset) return std::nullopt;
  return ResolvedDate{*wallClock - *offset, offset, OffsetSource::derived};
}

InferredOffset inferOffset(double utc, const std::optional<GeoPoint>& location,
                           const OffsetIndex& offsets, const TimeZoneMap* map) {
  if (location && map != nullptr) {
    if (const std::optional<TimeZone> zone =
            map->timeZone(location->latitude, location->longitude)) {
      return {zone->offsetSeconds(utc), OffsetSource::location};
    }
  }
  return offsets.offset(utc);
}

InferredOffset inferOffset(double utc, const std::optional<GeoPoint>& location,
                           const OffsetIndex& offsets) {
  // Only a position needs the map; loading it for nothing would cost every run its first use.
  return inferOffset(utc, location, offsets, location ? TimeZoneMap::shared() : nullptr);
}

DateDecision decide(const std::optional<CaptureDate>& embedded, std::optional<double> takeoutUTC,
                    const std::optional<GeoPoint>& location, const OffsetIndex& offsets,
                    const TimeZoneMap* map) {
  takeoutUTC = finite(takeoutUTC);
  if (const std::optional<ResolvedDate> resolved = resolveEmbedded(embedded, takeoutUTC)) {
    if (!takeoutUTC || agree(resolved->utc, *takeoutUTC)) {
      return {
          resolved->utc, resolved->offsetSeconds, DateSource::file, resolved->offsetSource, false,
          std::nullopt};
    }
    const InferredOffset offset =
        resolved->offsetSeconds ? InferredOffset{*resolved->offsetSeconds, resolved->offsetSource}
                                : inferOffset(*takeoutUTC, location, offsets, map);
    return written(*takeoutUTC, offset, DateSource::takeoutOverride,
                   std::string("File date") + kOverrideNoteEnd);
  }
  const CaptureDate::Local* local = embedded ? embedded->asLocal() : nullptr;
  if (local != nullptr && !local->offsetSeconds) {
    if (!takeoutUTC) {
      return {std::nullopt,          std::nullopt, DateSource::file,
              OffsetSource::unknown, false,        std::nullopt};
    }
    return written(*takeoutUTC, inferOffset(*takeoutUTC, location, offsets, map),
                   DateSource::takeoutOverride, "File date " + local->text + kOverrideNoteEnd);
  }
  if (takeoutUTC) {
    return written(*takeoutUTC, inferOffset(*takeoutUTC, location, offsets, map),
                   DateSource::takeout, std::nullopt);
  }
  return {
      std::nullopt,          std::nullopt, DateSource::none,
      OffsetSource::unknown, false,        "No capture date in the file or in Google's metadata"};
}

DateDecision decide(const std::optional<CaptureDate>& embedded, std::optional<double> takeoutUTC,
                    const std::optional<GeoPoint>& location, const OffsetIndex& offsets) {
  return decide(embedded, takeoutUTC, location, offsets,
                location ? TimeZoneMap::shared() : nullptr);
}

}  // namespace quillmere::DatePlanner
