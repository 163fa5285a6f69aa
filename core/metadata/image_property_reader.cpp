#include <algorithm>
#include <climits>
#include <cmath>
#include <exception>
#include <exiv2/exiv2.hpp>
#include <memory>

#include "core/metadata/exiv2_setup.h"
#include "core/metadata/heif_container.h"
#include "core/metadata/image_properties.h"
#include "core/metadata/random_access_bytes.h"
#include "core/sources/unicode_text.h"

// Exiv2 0.27 hands images out as std::auto_ptr; its deprecation is not ours to fix.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace quillmere::ImagePropertyReader {
namespace {

constexpr std::size_t kHeadLength = 64;

// Exiv2's movie types, whose headers can't be included on their own.
constexpr int kRiffType = 20;
constexpr int kMatroskaType = 21;
constexpr int kQuickTimeType = 22;
constexpr int kAsfType = 24;
// Canon's CRW raw format, from before 2004: not among the photo extensions a scan reads, and
// Exiv2 0.27's parser of it reads past the end of damaged files.
constexpr int kCrwType = 3;

// IPTC record and dataset numbers (IIM 4.2).
constexpr std::uint16_t kEnvelopeRecord = 1;
constexpr std::uint16_t kCodedCharacterSet = 90;
constexpr std::uint16_t kApplicationRecord = 2;
constexpr std::uint16_t kKeywords = 25;
constexpr std::uint16_t kCaption = 120;

// Text as found in a file, as UTF-8: kept when it already is, else read as ISO 8859-1, which
// older cameras and editors used.
std::string asUTF8(const std::string& bytes) {
  return UnicodeText::isValidUTF8(bytes)
             ? bytes
             : UnicodeText::fromLatin1(
                   {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::optional<ImagePropertyValue> text(const Exiv2::Exifdatum& datum) {
  if (datum.typeId() != Exiv2::asciiString) return std::nullopt;
  return asUTF8(datum.toString());
}

// One component of a numeric value; absent for other types and for a zero denominator.
std::optional<double> component(const Exiv2::Exifdatum& datum, long index) {
  if (index >= datum.count()) return std::nullopt;
  switch (datum.typeId()) {
    case Exiv2::unsignedRational: {
      const auto* value = dynamic_cast<const Exiv2::URationalValue*>(&datum.value());
      if (value == nullptr) return std::nullopt;
      const Exiv2::URational rational = value->value_.at(static_cast<std::size_t>(index));
      if (rational.second == 0) return std::nullopt;
      return static_cast<double>(rational.first) / rational.second;
    }
    case Exiv2::signedRational: {
      const auto* value = dynamic_cast<const Exiv2::RationalValue*>(&datum.value());
      if (value == nullptr) return std::nullopt;
      const Exiv2::Rational rational = value->value_.at(static_cast<std::size_t>(index));
      if (rational.second == 0) return std::nullopt;
      return static_cast<double>(rational.first) / rational.second;
    }
    case Exiv2::unsignedByte:
    case Exiv2::unsignedShort:
    case Exiv2::unsignedLong:
    case Exiv2::signedByte:
    case Exiv2::signedShort:
    case Exiv2::signedLong:
      return static_cast<double>(datum.toLong(index));
    case Exiv2::tiffFloat:
    case Exiv2::tiffDouble: {
      const double value = datum.toFloat(index);
      if (!std::isfinite(value)) return std::nullopt;
      return value;
    }
    default:
      return std::nullopt;
  }
}

std::optional<ImagePropertyValue> number(const Exiv2::Exifdatum& datum) {
  const std::optional<double> value = component(datum, 0);
  if (!value) return std::nullopt;
  return *value;
}

// Degrees, minutes and seconds (as many as are given, up to three) as decimal degrees. Summed
// in seconds and divided once, so 151 11 60 gives 151.2 and not 151.20000000000002.
std::optional<ImagePropertyValue> degrees(const Exiv2::Exifdatum& datum) {
  const long count = std::min<long>(datum.count(), 3);
  if (count < 1) return std::nullopt;
  double seconds = 0;
  double unit = 3600;
  for (long i = 0; i < count; ++i, unit /= 60) {
    const std::optional<double> part = component(datum, i);
    if (!part) return std::nullopt;
    seconds += *part * unit;
  }
  return seconds / 3600;
}

void put(ImagePropertyDictionary& dictionary, const char* key,
         std::optional<ImagePropertyValue> value) {
  if (value) dictionary.emplace(key, std::move(*value));  // the first one found stays
}

void addExif(const Exiv2::ExifData& exif, ImageProperties& properties) {
  for (const Exiv2::Exifdatum& datum : exif) {
    const std::string group = datum.groupName();
    const std::uint16_t tag = datum.tag();
    if (group == "Photo") {
      if (tag == 0x9003) put(properties.exif, "DateTimeOriginal", text(datum));
      if (tag == 0x9011) put(properties.exif, "OffsetTimeOriginal", text(datum));
    } else if (group == "Image") {
      if (tag == 0x010E) put(properties.tiff, "ImageDescription", text(datum));
    } else if (group == "GPSInfo") {
      switch (tag) {
        case 1:
          put(properties.gps, "LatitudeRef", text(datum));
          break;
        case 2:
          put(properties.gps, "Latitude", degrees(datum));
          break;
        case 3:
          put(properties.gps, "LongitudeRef", text(datum));
          break;
        case 4:
          put(properties.gps, "Longitude", degrees(datum));
          break;
        case 5:
          put(properties.gps, "AltitudeRef", number(datum));
          break;
        case 6:
          put(properties.gps, "Altitude", number(datum));
          break;
        default:
          break;
      }
    }
  }
}

void addIptc(const Exiv2::IptcData& iptc, ImageProperties& properties) {
  bool declaredUTF8 = false;
  for (const Exiv2::Iptcdatum& datum : iptc) {
    if (datum.record() == kEnvelopeRecord && datum.tag() == kCodedCharacterSet) {
      declaredUTF8 = datum.toString() == "\x1B%G";
    }
  }
  const auto decode = [declaredUTF8](const std::string& bytes) {
    if (!declaredUTF8) return asUTF8(bytes);
    return UnicodeText::repairUTF8(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  };
  std::vector<std::string> keywords;
  for (const Exiv2::Iptcdatum& datum : iptc) {
    if (datum.record() != kApplicationRecord || datum.typeId() != Exiv2::string) continue;
    if (datum.tag() == kCaption) put(properties.iptc, "Caption/Abstract", decode(datum.toString()));
    if (datum.tag() == kKeywords) keywords.push_back(decode(datum.toString()));
  }
  if (!keywords.empty()) properties.iptc.emplace("Keywords", std::move(keywords));
}

void addXmp(const Exiv2::XmpData& xmp, ImageProperties& properties) {
  if (xmp.empty()) return;
  properties.xmp.emplace();
  for (const Exiv2::Xmpdatum& datum : xmp) {
    if (datum.typeId() == Exiv2::xmpText && datum.key() == "Xmp.photoshop.DateCreated") {
      properties.xmp->emplace("photoshop:DateCreated", asUTF8(datum.toString()));
    }
  }
}

std::optional<std::int64_t> positive(long value) {
  if (value <= 0) return std::nullopt;
  return value;
}

// Exiv2 also opens metadata-only and movie files; none of them is a photo. Nor is CRW read.
bool isStillImage(int type) {
  switch (type) {
    case Exiv2::ImageType::none:
    case Exiv2::ImageType::exv:
    case Exiv2::ImageType::xmp:
    case Exiv2::ImageType::eps:
    case kRiffType:
    case kMatroskaType:
    case kQuickTimeType:
    case kAsfType:
    case kCrwType:
      return false;
    default:
      return true;
  }
}

std::optional<ImageProperties> readWithExiv2(Exiv2::BasicIo::AutoPtr io) {
  try {
    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(io);
    if (image.get() == nullptr || !isStillImage(image->imageType())) return std::nullopt;
    bool damaged = false;
    try {
      image->readMetadata();
    } catch (const std::exception&) {
      // A damaged or cut-off file: what was read before the damage still counts.
      damaged = true;
    }
    ImageProperties properties;
    properties.pixelWidth = positive(image->pixelWidth());
    properties.pixelHeight = positive(image->pixelHeight());
    addExif(image->exifData(), properties);
    addIptc(image->iptcData(), properties);
    addXmp(image->xmpData(), properties);
    // Damage before anything at all could be read: only the first bytes looked like an image.
    if (damaged && !properties.pixelWidth && image->exifData().empty() &&
        image->iptcData().empty() && image->xmpData().empty()) {
      return std::nullopt;
    }
    return properties;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<ImageProperties> readHeif(const RandomAccessBytes& bytes) {
  const std::optional<HeifContainer::Contents> contents = HeifContainer::read(bytes);
  if (!contents) return std::nullopt;
  ImageProperties properties;
  if (contents->pixelWidth && *contents->pixelWidth > 0)
    properties.pixelWidth = *contents->pixelWidth;
  if (contents->pixelHeight && *contents->pixelHeight > 0)
    properties.pixelHeight = *contents->pixelHeight;
  try {
    if (contents->exif && !contents->exif->empty()) {
      Exiv2::ExifData exif;
      Exiv2::ExifParser::decode(exif, contents->exif->data(),
                                static_cast<std::uint32_t>(contents->exif->size()));
      addExif(exif, properties);
    }
  } catch (const std::exception&) {
    // Unreadable Exif: the photo simply has none.
  }
  try {
    if (contents->xmp) {
      Exiv2::XmpData xmp;
      if (Exiv2::XmpParser::decode(xmp, *contents->xmp) == 0) addXmp(xmp, properties);
    }
  } catch (const std::exception&) {
  }
  return properties;
}

}  // namespace

std::optional<ImageProperties> readFile(const std::filesystem::path& file) {
  Exiv2Setup::prepare();
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(file);
  if (bytes == nullptr) return std::nullopt;
  const std::optional<Bytes> head =
      bytes->read(0, static_cast<std::size_t>(std::min<std::uint64_t>(kHeadLength, bytes->size())));
  if (head && HeifContainer::isHeif(*head)) {
    if (std::optional<ImageProperties> properties = readHeif(*bytes)) return properties;
  }
  try {
    // A FileIo of our own: ImageFactory would take names like "-" or "http://..." as stdin or
    // the network.
    return readWithExiv2(
        Exiv2::BasicIo::AutoPtr(std::make_unique<Exiv2::FileIo>(file.string()).release()));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<ImageProperties> readBytes(std::span<const std::uint8_t> bytes) {
  Exiv2Setup::prepare();
  if (HeifContainer::isHeif(bytes.first(std::min(kHeadLength, bytes.size())))) {
    const std::unique_ptr<RandomAccessBytes> memory = RandomAccessBytes::inMemory(bytes);
    if (std::optional<ImageProperties> properties = readHeif(*memory)) return properties;
  }
  if (bytes.empty() || bytes.size() > static_cast<std::size_t>(LONG_MAX)) return std::nullopt;
  try {
    // MemIo reads the caller's bytes in place, without a copy.
    return readWithExiv2(Exiv2::BasicIo::AutoPtr(
        std::make_unique<Exiv2::MemIo>(bytes.data(), static_cast<long>(bytes.size())).release()));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace quillmere::ImagePropertyReader
