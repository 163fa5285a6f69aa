#include "core/metadata/heif_metadata_merge.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exiv2/exiv2.hpp>

#include "core/dates/exif_date.h"
#include "core/dates/iso_date.h"
#include "core/metadata/exiv2_setup.h"

namespace quillmere::HeifMetadataMerge {
namespace {

bool hasDate(const Fields& fields) { return fields.dateUTC && fields.offsetSeconds; }

// Values are set as values: assigning one converts it to text first, which splits nothing.

// Degrees as degrees, minutes and seconds to a millionth of a second of arc.
Exiv2::URationalValue degreesMinutesSeconds(double degrees) {
  constexpr std::int64_t kPerSecond = 1000000;
  const std::int64_t total = std::llround(std::fabs(degrees) * 3600.0 * kPerSecond);
  Exiv2::URationalValue value;
  value.value_.push_back({static_cast<std::uint32_t>(total / (3600 * kPerSecond)), 1});
  value.value_.push_back({static_cast<std::uint32_t>(total / (60 * kPerSecond) % 60), 1});
  value.value_.push_back({static_cast<std::uint32_t>(total % (60 * kPerSecond)),
                          static_cast<std::uint32_t>(kPerSecond)});
  return value;
}

void setPosition(Exiv2::ExifData& exif, const GeoPoint& point) {
  if (exif.findKey(Exiv2::ExifKey("Exif.GPSInfo.GPSVersionID")) == exif.end()) {
    exif["Exif.GPSInfo.GPSVersionID"] = std::string("2 2 0 0");
  }
  exif["Exif.GPSInfo.GPSLatitudeRef"] = std::string(point.latitude < 0 ? "S" : "N");
  const Exiv2::URationalValue latitude = degreesMinutesSeconds(point.latitude);
  exif["Exif.GPSInfo.GPSLatitude"].setValue(&latitude);
  exif["Exif.GPSInfo.GPSLongitudeRef"] = std::string(point.longitude < 0 ? "W" : "E");
  const Exiv2::URationalValue longitude = degreesMinutesSeconds(point.longitude);
  exif["Exif.GPSInfo.GPSLongitude"].setValue(&longitude);
  if (point.altitude && *point.altitude != 0) {
    Exiv2::URationalValue altitude;
    altitude.value_.push_back(
        {static_cast<std::uint32_t>(std::llround(std::fabs(*point.altitude) * 1000)), 1000});
    exif["Exif.GPSInfo.GPSAltitude"].setValue(&altitude);
    exif["Exif.GPSInfo.GPSAltitudeRef"] = std::string(*point.altitude < 0 ? "1" : "0");
  }
}

std::optional<Bytes> mergeExif(const std::optional<Bytes>& tiff, const Fields& fields) {
  Exiv2::ExifData exif;
  Exiv2::ByteOrder order = Exiv2::bigEndian;
  if (tiff) {
    order = Exiv2::ExifParser::decode(exif, tiff->data(), static_cast<std::uint32_t>(tiff->size()));
    if (order == Exiv2::invalidByteOrder) return std::nullopt;
  }
  if (hasDate(fields)) {
    const std::string local = ExifDate::format(*fields.dateUTC, *fields.offsetSeconds);
    const std::string zone = ExifDate::formatOffset(*fields.offsetSeconds);
    exif["Exif.Photo.DateTimeOriginal"] = local;
    exif["Exif.Photo.DateTimeDigitized"] = local;
    exif["Exif.Photo.OffsetTimeOriginal"] = zone;
    exif["Exif.Photo.OffsetTimeDigitized"] = zone;
  }
  if (fields.location) setPosition(exif, *fields.location);
  if (fields.caption) exif["Exif.Image.ImageDescription"] = *fields.caption;
  Exiv2::Blob blob;
  if (!tiff) {
    Exiv2::ExifParser::encode(blob, order, exif);
  } else {
    // Without new tags Exiv2 patches the given bytes in place and leaves the blob empty.
    Bytes patched = *tiff;
    if (Exiv2::ExifParser::encode(blob, patched.data(), static_cast<std::uint32_t>(patched.size()),
                                  order, exif) == Exiv2::wmNonIntrusive) {
      return patched;
    }
  }
  if (blob.empty()) return std::nullopt;
  return Bytes(blob.begin(), blob.end());
}

std::vector<std::string> subjects(const Exiv2::XmpData& xmp) {
  std::vector<std::string> found;
  const auto datum = xmp.findKey(Exiv2::XmpKey("Xmp.dc.subject"));
  if (datum == xmp.end()) return found;
  for (long i = 0; i < datum->count(); ++i) found.push_back(datum->toString(i));
  return found;
}

std::optional<std::string> mergeXmp(const std::optional<std::string>& packet,
                                    const Fields& fields) {
  Exiv2::XmpData xmp;
  if (packet && Exiv2::XmpParser::decode(xmp, *packet) != 0) return std::nullopt;
  if (hasDate(fields)) {
    const std::string date = ISODate::formatXMP(*fields.dateUTC, *fields.offsetSeconds);
    xmp["Xmp.photoshop.DateCreated"] = date;
    if (xmp.findKey(Exiv2::XmpKey("Xmp.exif.DateTimeOriginal")) != xmp.end()) {
      xmp["Xmp.exif.DateTimeOriginal"] = date;
    }
  }
  if (fields.caption) {
    Exiv2::LangAltValue description;
    description.value_["x-default"] = *fields.caption;
    xmp["Xmp.dc.description"].setValue(&description);
  }
  if (!fields.addKeywords.empty()) {
    std::vector<std::string> keywords = subjects(xmp);
    for (const std::string& keyword : fields.addKeywords) {
      if (std::find(keywords.begin(), keywords.end(), keyword) == keywords.end()) {
        keywords.push_back(keyword);
      }
    }
    Exiv2::XmpArrayValue bag(Exiv2::xmpBag);
    for (const std::string& keyword : keywords) bag.read(keyword);
    xmp["Xmp.dc.subject"].setValue(&bag);
  }
  std::string encoded;
  if (Exiv2::XmpParser::encode(encoded, xmp, Exiv2::XmpParser::useCompactFormat) != 0 ||
      encoded.empty()) {
    return std::nullopt;
  }
  return encoded;
}

}  // namespace

std::optional<HeifMetadataRewriter::Existing> merge(const HeifMetadataRewriter::Existing& existing,
                                                    const Fields& fields) {
  Exiv2Setup::prepare();
  HeifMetadataRewriter::Existing merged;
  try {
    if (hasDate(fields) || fields.location || fields.caption) {
      merged.exifTiff = mergeExif(existing.exifTiff, fields);
      if (!merged.exifTiff) return std::nullopt;
    }
    if (hasDate(fields) || fields.caption || !fields.addKeywords.empty()) {
      merged.xmp = mergeXmp(existing.xmp, fields);
      if (!merged.xmp) return std::nullopt;
    }
  } catch (const std::exception&) {  // Exiv2's errors, and allocation failures
    return std::nullopt;
  }
  return merged;
}

}  // namespace quillmere::HeifMetadataMerge
