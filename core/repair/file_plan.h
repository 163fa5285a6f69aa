#ifndef QUILLMERE_CORE_REPAIR_FILE_PLAN_H_
#define QUILLMERE_CORE_REPAIR_FILE_PLAN_H_

#include <optional>
#include <string>
#include <vector>

#include "core/dates/date_decision.h"
#include "core/dates/geo_point.h"
#include "core/dates/offset_index.h"
#include "core/metadata/embedded_metadata.h"
#include "core/metadata/metadata_patch.h"
#include "core/repair/repair_engine.h"
#include "core/repair/repair_row.h"
#include "core/scan/media_file.h"
#include "core/scan/media_unit.h"
#include "core/scan/scan_result.h"

namespace quillmere::RepairEngine {

// What the engine decided for one file. The default value is the empty plan: no instant, no
// offset, date source none, nothing to write, no notes.
struct FilePlan {
  DateDecision date;
  MetadataPatch patch;
  std::string before;                         // the file's own date as text (describe)
  std::vector<std::string> existingKeywords;  // kept by the writer
  bool locationWritten = false;
  bool captionWritten = false;
  std::vector<std::string> notes;
  std::optional<GeoPoint> location;  // best known position

  // The report row for `file` of `unit` copied to `output` (relative to the run folder):
  // status couldn't fix without any date, unchanged when the patch holds no date, position or
  // caption (keywords alone change nothing a person would call a fix), fixed otherwise. The
  // method is left empty for the writer's outcome.
  RepairRow row(const MediaUnit& unit, const MediaFile& file, const std::string& output) const;

  bool operator==(const FilePlan&) const = default;
};

// The one order in which a file's position is chosen: Google's geoData when set (without
// altitude), else the file's own position (with its altitude), else Google's geoDataExif when
// set (without altitude), else none.
std::optional<GeoPoint> bestLocation(const MediaFile& file,
                                     const std::optional<EmbeddedMetadata>& embedded);

// The dateBefore text of a report row: empty without a date; a wall clock as read, with
// " +02:00" when the file gave an offset; an instant as its wall clock and offset (+00:00 when
// the file gave none).
std::string describe(const std::optional<EmbeddedMetadata::CaptureDate>& date);

// The offsets known for the whole export, from every media file's own date or, failing that,
// from Google's instant and the zone at the file's position; finalized. Reads no file.
OffsetIndex buildOffsetIndex(const ScanResult& scan);

// Decides date, zone, position, caption and keywords for one file whose own metadata is
// `embedded` (as read from the working copy), and the notes that explain them.
FilePlan plan(const MediaFile& file, const std::optional<EmbeddedMetadata>& embedded,
              const OffsetIndex& offsets, const RepairOptions& options);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_FILE_PLAN_H_
