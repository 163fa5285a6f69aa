#include "core/repair/file_plan.h"

#include <algorithm>

#include "core/dates/date_planner.h"
#include "core/dates/exif_date.h"
#include "core/dates/time_zone.h"
#include "core/dates/time_zone_map.h"

namespace quillmere::RepairEngine {
namespace {

// Google edits a position only by moving it noticeably; closer than this it is the same place.
constexpr double kPositionEditMeters = 200;

GeoPoint pointOf(const TakeoutSidecar::Geo& geo, bool withAltitude) {
  GeoPoint point{geo.latitude, geo.longitude, std::nullopt};
  if (withAltitude) point.altitude = geo.altitude;
  return point;
}

std::optional<double> takeoutInstant(const std::optional<TakeoutSidecar>& sidecar) {
  return sidecar ? sidecar->photoTakenTime : std::nullopt;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::string text;
  for (const std::string& part : parts) {
    if (!text.empty()) text += separator;
    text += part;
  }
  return text;
}

// Position: only Google's may be added, and only Google's own edit (geoData, clearly elsewhere)
// may replace the file's.
void planPosition(const TakeoutSidecar& sidecar, const std::optional<EmbeddedMetadata>& embedded,
                  FilePlan& plan) {
  const auto candidate = sidecar.bestGeo();
  if (!candidate) return;
  const std::optional<GeoPoint> own = embedded ? embedded->location : std::nullopt;
  if (!own) {
    plan.patch.location = pointOf(*candidate, true);
    plan.locationWritten = true;
  } else if (sidecar.geoData && sidecar.geoData->isSet() &&
             pointOf(*sidecar.geoData, false).distanceMeters(*own) > kPositionEditMeters) {
    plan.patch.location = pointOf(*sidecar.geoData, true);
    plan.notes.emplace_back("Location edited in Google Photos replaced the file's");
    plan.locationWritten = true;
  }
}

// bestLocation() for callers that hold the unpacked sidecar already.
std::optional<GeoPoint> placeOf(const std::optional<TakeoutSidecar>& sidecar,
                                const std::optional<EmbeddedMetadata>& embedded) {
  if (sidecar && sidecar->geoData && sidecar->geoData->isSet()) {
    return pointOf(*sidecar->geoData, false);
  }
  if (embedded && embedded->location) return embedded->location;
  if (sidecar && sidecar->geoDataExif && sidecar->geoDataExif->isSet()) {
    return pointOf(*sidecar->geoDataExif, false);
  }
  return std::nullopt;
}

}  // namespace

RepairRow FilePlan::row(const MediaUnit& unit, const MediaFile& file,
                        const std::string& output) const {
  RepairRow row;
  row.item = static_cast<std::int64_t>(unit.id) + 1;
  row.itemKind = unit.kind;
  row.source = file.source->displayLocation();
  row.output = output;
  if (date.dateSource == DateSource::none) {
    row.status = RepairRow::Status::couldntFix;
  } else if (!patch.dateUTC && !patch.location && !patch.caption) {
    row.status = RepairRow::Status::unchanged;
  } else {
    row.status = RepairRow::Status::fixed;
  }
  row.dateBefore = before;
  row.dateAfter = date.localString().value_or("");
  row.dateSource = date.dateSource;
  if (date.offsetSeconds) row.timeZone = "UTC" + ExifDate::formatOffset(*date.offsetSeconds);
  row.timeZoneSource = date.offsetSource;
  row.locationWritten = locationWritten;
  row.captionWritten = captionWritten;
  row.albums = file.albums;
  row.notes = notes;
  row.captureUTC = date.utc;
  row.location = location;
  return row;
}

std::optional<GeoPoint> bestLocation(const MediaFile& file,
                                     const std::optional<EmbeddedMetadata>& embedded) {
  return placeOf(file.sidecar(), embedded);
}

std::string describe(const std::optional<EmbeddedMetadata::CaptureDate>& date) {
  if (!date) return "";
  if (const auto* local = date->asLocal()) {
    if (!local->offsetSeconds) return local->text;
    return local->text + " " + ExifDate::formatOffset(*local->offsetSeconds);
  }
  const auto& absolute = *date->asAbsolute();
  const int offset = absolute.offsetSeconds.value_or(0);
  return ExifDate::format(absolute.date, offset) + " " + ExifDate::formatOffset(offset);
}

OffsetIndex buildOffsetIndex(const ScanResult& scan) {
  OffsetIndex index;
  const TimeZoneMap* map = TimeZoneMap::shared();
  for (const MediaFilePtr& file : scan.files) {
    const std::optional<TakeoutSidecar> sidecar = file->sidecar();
    const std::optional<double> takeout = takeoutInstant(sidecar);
    const std::optional<EmbeddedMetadata> embedded = file->embedded();
    const auto captureDate = embedded ? embedded->captureDate : std::nullopt;
    const auto resolved = DatePlanner::resolveEmbedded(captureDate, takeout);
    if (resolved && resolved->offsetSeconds) {
      index.add(resolved->utc, *resolved->offsetSeconds);
      continue;
    }
    if (!takeout || map == nullptr) continue;
    const auto position = placeOf(sidecar, embedded);
    if (!position) continue;
    if (const auto zone = map->timeZone(position->latitude, position->longitude)) {
      index.add(*takeout, zone->offsetSeconds(*takeout));
    }
  }
  index.finalize();
  return index;
}

FilePlan plan(const MediaFile& file, const std::optional<EmbeddedMetadata>& embedded,
              const OffsetIndex& offsets, const RepairOptions& options) {
  FilePlan plan;
  const std::optional<TakeoutSidecar> sidecar = file.sidecar();
  const std::optional<std::string> matchNote = file.matchNote();
  if (!sidecar) {
    plan.notes.emplace_back(!file.overlay && !matchNote
                                ? "No Google metadata file found for this item"
                                : "No export metadata for this item");
  }
  if (matchNote) plan.notes.push_back(*matchNote);

  const auto captureDate = embedded ? embedded->captureDate : std::nullopt;
  plan.location = placeOf(sidecar, embedded);
  plan.date = DatePlanner::decide(captureDate, takeoutInstant(sidecar), plan.location, offsets);
  if (plan.date.note) plan.notes.push_back(*plan.date.note);
  if (plan.date.write) {
    plan.patch.dateUTC = plan.date.utc;
    plan.patch.offsetSeconds = plan.date.offsetSeconds;
    if (const auto note = zoneNote(plan.date.offsetSource)) plan.notes.emplace_back(*note);
  }

  if (sidecar) {
    planPosition(*sidecar, embedded, plan);
    const auto& description = sidecar->description;
    if (description && !(embedded && embedded->caption == description)) {
      plan.patch.caption = description;
      plan.captionWritten = true;
    }
  }

  if (embedded) plan.existingKeywords = embedded->keywords;
  if (options.albumsAsKeywords) {
    for (const std::string& album : file.albums) {
      if (std::find(plan.existingKeywords.begin(), plan.existingKeywords.end(), album) ==
          plan.existingKeywords.end()) {
        plan.patch.addKeywords.push_back(album);
      }
    }
  }
  if (const std::vector<std::string> folders = file.specialFolders(); !folders.empty()) {
    plan.notes.push_back("Was in: " + joined(folders, ", "));
  }
  if (sidecar && sidecar->trashed) plan.notes.emplace_back("Marked as in trash by Google");
  plan.before = describe(captureDate);
  return plan;
}

}  // namespace quillmere::RepairEngine
