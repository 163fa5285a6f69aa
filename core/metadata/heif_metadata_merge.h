#ifndef QUILLMERE_CORE_METADATA_HEIF_METADATA_MERGE_H_
#define QUILLMERE_CORE_METADATA_HEIF_METADATA_MERGE_H_

#include <optional>
#include <string>
#include <vector>

#include "core/dates/geo_point.h"
#include "core/metadata/heif_metadata_rewriter.h"

namespace quillmere {

// The Exif and XMP a HEIF file should carry after a repair: what it has, with the repair's
// date, place, caption and keywords merged in, the same fields a JPEG gets. Every Exif tag and
// XMP property not named below is kept. Uses Exiv2; any thread.
namespace HeifMetadataMerge {

struct Fields {
  std::optional<double> dateUTC;     // capture instant; written only with an offset
  std::optional<int> offsetSeconds;  // east of UTC
  std::optional<GeoPoint> location;  // altitude written only when present and not 0
  std::optional<std::string> caption;
  std::vector<std::string> addKeywords;  // appended to the XMP subjects that aren't there yet

  bool operator==(const Fields&) const = default;
};

// New Exif TIFF bytes when an Exif field changes (date and offset: DateTimeOriginal,
// DateTimeDigitized, OffsetTimeOriginal, OffsetTimeDigitized; GPS position; ImageDescription),
// and a new XMP packet when an XMP one does (photoshop:DateCreated, and exif:DateTimeOriginal
// where present; dc:description; dc:subject); each absent when nothing of it changes. The
// whole result is absent when existing Exif or XMP can't be parsed or the result can't be
// encoded: the caller then leaves the file alone. New Exif is big-endian, existing Exif keeps
// its byte order.
std::optional<HeifMetadataRewriter::Existing> merge(const HeifMetadataRewriter::Existing& existing,
                                                    const Fields& fields);

}  // namespace HeifMetadataMerge
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_HEIF_METADATA_MERGE_H_
