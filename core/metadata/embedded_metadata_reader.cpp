#include "core/metadata/embedded_metadata_reader.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <regex>
#include <string>

#include "core/dates/exif_date.h"
#include "core/dates/iso6709.h"
#include "core/dates/iso_date.h"
#include "core/dates/text_trimming.h"

namespace quillmere::EmbeddedMetadataReader {
namespace {

constexpr std::size_t kExifDateLength = 19;
// A movie header time this close to the epoch is a writer's zero, not a capture date.
constexpr double kEarliestMovieCreation = 31'622'400;  // 366 days

const std::string* textValue(const ImagePropertyDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : std::get_if<std::string>(&found->second);
}

std::optional<double> numberValue(const ImagePropertyDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end()) return std::nullopt;
  const double* number = std::get_if<double>(&found->second);
  if (number == nullptr) return std::nullopt;
  return *number;
}

std::optional<int> pixelCount(const std::optional<std::int64_t>& value) {
  if (!value || *value <= 0 || *value > INT_MAX) return std::nullopt;
  return static_cast<int>(*value);
}

bool isRealExifDate(const std::string& text) {
  // The shape is at most 19 characters long; searching just those keeps a huge text cheap.
  const std::string head = text.substr(0, kExifDateLength);
  return std::regex_search(head, ExifDate::pattern()) && !text.starts_with("0000");
}

std::optional<EmbeddedMetadata::CaptureDate> captureDate(const ImageProperties& source) {
  const std::string* text = textValue(source.exif, "DateTimeOriginal");
  if (text == nullptr || !isRealExifDate(*text)) return std::nullopt;
  std::optional<int> offset;
  if (const std::string* offsetText = textValue(source.exif, "OffsetTimeOriginal")) {
    offset = ExifDate::parseOffset(*offsetText);
  }
  if (!offset) offset = xmpOffset(*text, source);
  return EmbeddedMetadata::CaptureDate::local(*text, offset);
}

std::optional<GeoPoint> location(const ImagePropertyDictionary& gps) {
  std::optional<double> latitude = numberValue(gps, "Latitude");
  std::optional<double> longitude = numberValue(gps, "Longitude");
  if (!latitude || !longitude) return std::nullopt;
  const std::string* latitudeRef = textValue(gps, "LatitudeRef");
  const std::string* longitudeRef = textValue(gps, "LongitudeRef");
  std::optional<double> altitude = numberValue(gps, "Altitude");
  if (altitude && numberValue(gps, "AltitudeRef") == 1.0) altitude = -*altitude;
  if (latitudeRef != nullptr && *latitudeRef == "S") latitude = -*latitude;
  if (longitudeRef != nullptr && *longitudeRef == "W") longitude = -*longitude;
  // Cameras without a fix write zeros; the Gulf of Guinea is not where the photo was taken.
  if (*latitude == 0 && *longitude == 0) return std::nullopt;
  return GeoPoint{*latitude, *longitude, altitude};
}

std::optional<std::string> caption(const ImageProperties& source) {
  const std::string* text = textValue(source.tiff, "ImageDescription");
  if (text == nullptr) text = textValue(source.iptc, "Caption/Abstract");
  if (text == nullptr) return std::nullopt;
  const std::string_view trimmed = trimWhiteSpaceAndLineBreaks(*text);
  if (trimmed.empty()) return std::nullopt;
  return std::string(trimmed);
}

bool isIn(std::string_view identifier, std::initializer_list<std::string_view> group) {
  return std::find(group.begin(), group.end(), identifier) != group.end();
}

}  // namespace

EmbeddedMetadata fromImageSource(const ImageProperties& source) {
  EmbeddedMetadata metadata;
  metadata.pixelWidth = pixelCount(source.pixelWidth);
  metadata.pixelHeight = pixelCount(source.pixelHeight);
  metadata.captureDate = captureDate(source);
  metadata.location = location(source.gps);
  metadata.caption = caption(source);
  if (const auto found = source.iptc.find("Keywords"); found != source.iptc.end()) {
    if (const auto* keywords = std::get_if<std::vector<std::string>>(&found->second)) {
      metadata.keywords = *keywords;
    }
  }
  return metadata;
}

std::optional<int> xmpOffset(std::string_view exifDate, const ImageProperties& source) {
  if (!source.xmp) return std::nullopt;
  const auto found = source.xmp->find("photoshop:DateCreated");
  if (found == source.xmp->end()) return std::nullopt;
  const std::string& xmpDate = found->second;
  // A date and time plus something after the seconds; the 19 characters compared are ASCII
  // whenever they can match, so bytes count as characters here.
  if (xmpDate.size() <= kExifDateLength || exifDate.size() < kExifDateLength) return std::nullopt;
  std::string wallClock = xmpDate.substr(0, kExifDateLength);
  std::replace(wallClock.begin(), wallClock.end(), '-', ':');
  std::replace(wallClock.begin(), wallClock.end(), 'T', ' ');
  if (wallClock != exifDate.substr(0, kExifDateLength)) return std::nullopt;
  const std::optional<ISODate::Parsed> parsed = ISODate::parse(xmpDate);
  if (!parsed) return std::nullopt;
  return parsed->offsetSeconds;
}

EmbeddedMetadata fromMovie(const MovieProperties& movie) {
  EmbeddedMetadata metadata;
  for (const MovieProperties::Item& item : movie.items) {
    if (item.identifier.empty()) continue;
    if (isIn(item.identifier, {"com.apple.quicktime.creationdate", "date"})) {
      if (metadata.captureDate) continue;
      if (const std::optional<ISODate::Parsed> parsed = ISODate::parse(item.stringValue)) {
        metadata.captureDate =
            EmbeddedMetadata::CaptureDate::absolute(parsed->date, parsed->offsetSeconds);
      }
    } else if (isIn(item.identifier, {"com.apple.quicktime.location.ISO6709", "location"})) {
      if (!metadata.location) metadata.location = ISO6709::parse(item.stringValue);
    } else if (isIn(item.identifier, {"com.apple.quicktime.description", "description"})) {
      // Unlike dates and places, a later description replaces an earlier one.
      if (!item.stringValue.empty()) metadata.caption = item.stringValue;
    }
  }
  if (!metadata.captureDate && movie.creationDate && *movie.creationDate > kEarliestMovieCreation) {
    metadata.captureDate = EmbeddedMetadata::CaptureDate::absolute(*movie.creationDate, {});
  }
  if (movie.videoSize && std::isfinite(movie.videoSize->width) &&
      std::isfinite(movie.videoSize->height) && movie.videoSize->width >= 0 &&
      movie.videoSize->height >= 0 && movie.videoSize->width <= INT_MAX &&
      movie.videoSize->height <= INT_MAX) {
    metadata.pixelWidth = static_cast<int>(movie.videoSize->width);
    metadata.pixelHeight = static_cast<int>(movie.videoSize->height);
  }
  return metadata;
}

std::optional<EmbeddedMetadata> read(const std::filesystem::path& file, MediaKind kind) {
  switch (kind) {
    case MediaKind::photo:
      return readPhoto(file);
    case MediaKind::video:
      return readVideo(file);
    case MediaKind::other:
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<EmbeddedMetadata> readPhoto(const std::filesystem::path& file) {
  const std::optional<ImageProperties> properties = ImagePropertyReader::readFile(file);
  if (!properties) return std::nullopt;
  return fromImageSource(*properties);
}

std::optional<EmbeddedMetadata> readImage(std::span<const std::uint8_t> prefix) {
  const std::optional<ImageProperties> properties = ImagePropertyReader::readBytes(prefix);
  if (!properties) return std::nullopt;
  return fromImageSource(*properties);
}

std::optional<EmbeddedMetadata> readVideo(const std::filesystem::path& file) {
  const std::optional<MovieProperties> properties = MoviePropertyReader::readFile(file);
  if (!properties) return std::nullopt;
  return fromMovie(*properties);
}

}  // namespace quillmere::EmbeddedMetadataReader
