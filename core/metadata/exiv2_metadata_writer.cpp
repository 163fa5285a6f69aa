#include "core/metadata/exiv2_metadata_writer.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <exception>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "core/metadata/exiv2_setup.h"
#include "core/metadata/iptc_digest.h"
#include "core/sources/unicode_text.h"

// Exiv2 0.27 hands images out as std::auto_ptr; its deprecation is not ours to fix.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace quillmere::Exiv2MetadataWriter {
namespace {

using Tags = MetadataWriter::PhotoTags;

// Exiv2's image types that it rewrites without touching the image data.
constexpr int kJpegType = 1;
constexpr int kTiffType = 4;  // also DNG and most TIFF-based camera raws
constexpr int kPngType = 6;
constexpr int kWebPType = 23;

// Whole files are rewritten in memory; beyond this a photo keeps its sidecar.
constexpr std::size_t kLargestRewrite = std::size_t{1} << 30;

constexpr std::uint16_t kApplicationRecord = 2;
constexpr char kUTF8Marker[] = "\x1B%G";

std::string lowerExtension(std::string_view fileName) {
  std::string extension = std::filesystem::path(fileName).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

// Exiv2 rewrites camera raws built on TIFF (NEF, ARW, PEF, ...) too, but relocates their
// maker notes and private blocks, which raw converters then may not find: only DNG, whose
// layout is public, and plain TIFF are written.
bool isWritable(const Exiv2::Image& image, std::string_view fileName) {
  switch (image.imageType()) {
    case kJpegType:
    case kPngType:
    case kWebPType:
      return true;
    case kTiffType: {
      const Exiv2::ExifData& exif = image.exifData();
      if (exif.findKey(Exiv2::ExifKey("Exif.Image.DNGVersion")) != exif.end()) return true;
      const std::string extension = lowerExtension(fileName);
      return extension == ".tif" || extension == ".tiff";
    }
    default:
      return false;
  }
}

// Maker-note tags holding file offsets of blocks that Exiv2 does not move along with the maker
// note: Canon's original decision data and Nikon's scan IFD. A rewrite would leave them
// pointing at other bytes.
bool hasUnmovableMakerNoteBlock(const Exiv2::ExifData& exif) {
  return std::any_of(exif.begin(), exif.end(), [](const Exiv2::Exifdatum& datum) {
    const std::string group = datum.groupName();
    return (group == "Canon" && datum.tag() == 0x0083 && datum.toLong() != 0) ||
           (group == "Nikon3" && datum.tag() == 0x0e10);
  });
}

// The bytes of every strip and tile of a TIFF structure, by directory, in order; absent when
// one lies outside the file (a damaged or cut file, which is not rewritten).
std::optional<std::map<std::string, std::vector<std::span<const std::uint8_t>>>> imageData(
    const Exiv2::ExifData& exif, std::span<const std::uint8_t> file) {
  std::map<std::string, std::vector<std::span<const std::uint8_t>>> blocks;
  for (const auto& [offsetsTag, countsTag] :
       {std::pair{0x0111, 0x0117}, std::pair{0x0144, 0x0145}}) {
    for (const Exiv2::Exifdatum& offsets : exif) {
      if (offsets.tag() != offsetsTag) continue;
      const auto counts = exif.findKey(Exiv2::ExifKey(countsTag, offsets.groupName()));
      if (counts == exif.end() || counts->count() != offsets.count()) return std::nullopt;
      auto& list = blocks[offsets.groupName() + std::to_string(offsetsTag)];
      for (long i = 0; i < offsets.count(); ++i) {
        const long start = offsets.toLong(i), length = counts->toLong(i);
        if (start < 0 || length < 0 || static_cast<std::size_t>(start) > file.size() ||
            static_cast<std::size_t>(length) > file.size() - static_cast<std::size_t>(start)) {
          return std::nullopt;
        }
        list.push_back(
            file.subspan(static_cast<std::size_t>(start), static_cast<std::size_t>(length)));
      }
    }
  }
  return blocks;
}

bool sameImageData(const std::map<std::string, std::vector<std::span<const std::uint8_t>>>& a,
                   const std::map<std::string, std::vector<std::span<const std::uint8_t>>>& b) {
  if (a.size() != b.size()) return false;
  for (const auto& [directory, blocks] : a) {
    const auto other = b.find(directory);
    if (other == b.end() || other->second.size() != blocks.size()) return false;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
      if (!std::equal(blocks[i].begin(), blocks[i].end(), other->second[i].begin(),
                      other->second[i].end())) {
        return false;
      }
    }
  }
  return true;
}

bool hasXmp(const Exiv2::XmpData& xmp, const char* key) {
  return xmp.findKey(Exiv2::XmpKey(key)) != xmp.end();
}

void setXmpText(Exiv2::XmpData& xmp, const char* key, const std::string& text) {
  const Exiv2::XmpTextValue value(text);
  xmp[key].setValue(&value);
}

void setAscii(Exiv2::ExifData& exif, const char* key, const std::string& text) {
  const Exiv2::AsciiValue value(text);
  exif[key].setValue(&value);
}

void setByte(Exiv2::ExifData& exif, const char* key, const char* bytes) {
  const Exiv2::Value::AutoPtr value = Exiv2::Value::create(Exiv2::unsignedByte);
  value->read(bytes);
  exif[key].setValue(value.get());
}

bool isUsablePosition(const GeoPoint& point) {
  return std::isfinite(point.latitude) && std::isfinite(point.longitude) &&
         std::fabs(point.latitude) <= 90 && std::fabs(point.longitude) <= 180;
}

// Degrees, minutes and seconds to the millionth of a second, summed in integers so that the
// parts never carry 60 seconds.
Exiv2::URationalValue exifDegrees(double degrees) {
  const auto micro = static_cast<std::uint64_t>(std::llround(std::fabs(degrees) * 3600e6));
  Exiv2::URationalValue value;
  value.value_.emplace_back(static_cast<std::uint32_t>(micro / 3'600'000'000), 1);
  value.value_.emplace_back(static_cast<std::uint32_t>(micro % 3'600'000'000 / 60'000'000), 1);
  value.value_.emplace_back(static_cast<std::uint32_t>(micro % 60'000'000), 1'000'000);
  return value;
}

Exiv2::URationalValue exifAltitude(double metres) {
  const double millimetres = std::round(std::fabs(metres) * 1000);
  Exiv2::URationalValue value;
  if (millimetres <= UINT32_MAX) {
    value.value_.emplace_back(static_cast<std::uint32_t>(millimetres), 1000);
  } else {
    value.value_.emplace_back(UINT32_MAX, 1);
  }
  return value;
}

// A number in the POSIX notation whatever the process locale.
std::string fixed(double value, int decimals) {
  char buffer[64];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
  return error == std::errc() ? std::string(buffer, end) : std::string();
}

// The XMP form of a GPS coordinate, "33,51.600000S".
std::string xmpDegrees(double degrees, char positive, char negative) {
  const double magnitude = std::fabs(degrees);
  const double whole = std::floor(magnitude);
  return std::to_string(static_cast<int>(whole)) + "," + fixed((magnitude - whole) * 60, 6) +
         (degrees < 0 ? negative : positive);
}

std::string xmpAltitude(double metres) {
  const double millimetres = std::min(std::round(std::fabs(metres) * 1000), 4e18);
  return std::to_string(static_cast<long long>(millimetres)) + "/1000";
}

void writeExifDate(const Tags& tags, Exiv2::ExifData& exif) {
  if (!tags.localDate) return;
  setAscii(exif, "Exif.Photo.DateTimeOriginal", *tags.localDate);
  setAscii(exif, "Exif.Photo.DateTimeDigitized", *tags.localDate);
  if (tags.offset) {
    setAscii(exif, "Exif.Photo.OffsetTimeOriginal", *tags.offset);
    setAscii(exif, "Exif.Photo.OffsetTimeDigitized", *tags.offset);
  }
}

void writeExifPosition(const GeoPoint& point, Exiv2::ExifData& exif) {
  if (exif.findKey(Exiv2::ExifKey("Exif.GPSInfo.GPSVersionID")) == exif.end()) {
    setByte(exif, "Exif.GPSInfo.GPSVersionID", "2 3 0 0");
  }
  setAscii(exif, "Exif.GPSInfo.GPSLatitudeRef", point.latitude < 0 ? "S" : "N");
  const Exiv2::URationalValue latitude = exifDegrees(point.latitude);
  exif["Exif.GPSInfo.GPSLatitude"].setValue(&latitude);
  setAscii(exif, "Exif.GPSInfo.GPSLongitudeRef", point.longitude < 0 ? "W" : "E");
  const Exiv2::URationalValue longitude = exifDegrees(point.longitude);
  exif["Exif.GPSInfo.GPSLongitude"].setValue(&longitude);
  if (point.altitude && *point.altitude != 0 && std::isfinite(*point.altitude)) {
    setByte(exif, "Exif.GPSInfo.GPSAltitudeRef", *point.altitude < 0 ? "1" : "0");
    const Exiv2::URationalValue altitude = exifAltitude(*point.altitude);
    exif["Exif.GPSInfo.GPSAltitude"].setValue(&altitude);
  }
}

void writeXmpPosition(const GeoPoint& point, Exiv2::XmpData& xmp, bool always) {
  if (always || hasXmp(xmp, "Xmp.exif.GPSLatitude")) {
    setXmpText(xmp, "Xmp.exif.GPSLatitude", xmpDegrees(point.latitude, 'N', 'S'));
  }
  if (always || hasXmp(xmp, "Xmp.exif.GPSLongitude")) {
    setXmpText(xmp, "Xmp.exif.GPSLongitude", xmpDegrees(point.longitude, 'E', 'W'));
  }
  if (!point.altitude || *point.altitude == 0 || !std::isfinite(*point.altitude)) return;
  if (always || hasXmp(xmp, "Xmp.exif.GPSAltitude")) {
    setXmpText(xmp, "Xmp.exif.GPSAltitude", xmpAltitude(*point.altitude));
    setXmpText(xmp, "Xmp.exif.GPSAltitudeRef", *point.altitude < 0 ? "1" : "0");
  }
}

void writeXmpCaption(const std::string& caption, Exiv2::XmpData& xmp) {
  Exiv2::LangAltValue value;
  const auto found = xmp.findKey(Exiv2::XmpKey("Xmp.dc.description"));
  if (found != xmp.end()) {
    if (const auto* old = dynamic_cast<const Exiv2::LangAltValue*>(&found->value())) value = *old;
  }
  value.value_["x-default"] = caption;
  xmp["Xmp.dc.description"].setValue(&value);
}

// The file's own dc:subject items first, then the keywords not among them.
void writeXmpKeywords(const std::vector<std::string>& keywords, Exiv2::XmpData& xmp) {
  std::vector<std::string> items;
  const auto found = xmp.findKey(Exiv2::XmpKey("Xmp.dc.subject"));
  if (found != xmp.end()) {
    for (long i = 0; i < found->count(); ++i) items.push_back(found->toString(i));
  }
  for (const std::string& keyword : keywords) {
    if (std::find(items.begin(), items.end(), keyword) == items.end()) items.push_back(keyword);
  }
  Exiv2::XmpArrayValue value(Exiv2::xmpBag);
  for (const std::string& item : items) value.read(item);
  xmp["Xmp.dc.subject"].setValue(&value);
}

// Writes the XMP counterparts; true when the XMP block changed.
bool writeXmp(const Tags& tags, Exiv2::XmpData& xmp, bool holdsTexts) {
  bool changed = false;
  if (tags.xmpDate) {
    setXmpText(xmp, "Xmp.photoshop.DateCreated", *tags.xmpDate);
    for (const char* key :
         {"Xmp.exif.DateTimeOriginal", "Xmp.exif.DateTimeDigitized", "Xmp.xmp.CreateDate"}) {
      if (hasXmp(xmp, key)) setXmpText(xmp, key, *tags.xmpDate);
    }
    changed = true;
  }
  if (tags.location &&
      (hasXmp(xmp, "Xmp.exif.GPSLatitude") || hasXmp(xmp, "Xmp.exif.GPSLongitude"))) {
    writeXmpPosition(*tags.location, xmp, /*always=*/false);
    changed = true;
  }
  if (tags.caption && (holdsTexts || hasXmp(xmp, "Xmp.dc.description"))) {
    writeXmpCaption(*tags.caption, xmp);
    changed = true;
  }
  if (tags.keywords && (holdsTexts || hasXmp(xmp, "Xmp.dc.subject"))) {
    writeXmpKeywords(*tags.keywords, xmp);
    changed = true;
  }
  return changed;
}

void eraseIptc(Exiv2::IptcData& iptc, const char* key) {
  const Exiv2::IptcKey wanted(key);
  for (auto it = iptc.begin(); it != iptc.end();) {
    it = it->tag() == wanted.tag() && it->record() == wanted.record() ? iptc.erase(it) : it + 1;
  }
}

void addIptc(Exiv2::IptcData& iptc, const char* key, const std::string& text) {
  Exiv2::Iptcdatum datum{Exiv2::IptcKey(key)};
  datum.setValue(text);
  iptc.add(datum);
}

// Declares the record UTF-8; texts written before under no declaration were read as UTF-8 when
// valid and as ISO 8859-1 otherwise, and are converted so that they keep reading the same.
void markUTF8(Exiv2::IptcData& iptc) {
  const auto found = iptc.findKey(Exiv2::IptcKey("Iptc.Envelope.CharacterSet"));
  if (found != iptc.end() && found->toString() == kUTF8Marker) return;
  for (Exiv2::Iptcdatum& datum : iptc) {
    if (datum.record() != kApplicationRecord || datum.typeId() != Exiv2::string) continue;
    const std::string bytes = datum.toString();
    if (UnicodeText::isValidUTF8(bytes)) continue;
    datum.setValue(UnicodeText::fromLatin1(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}));
  }
  eraseIptc(iptc, "Iptc.Envelope.CharacterSet");
  addIptc(iptc, "Iptc.Envelope.CharacterSet", kUTF8Marker);
}

void replaceIptc(Exiv2::IptcData& iptc, const char* key, const std::string& text) {
  eraseIptc(iptc, key);
  addIptc(iptc, key, text);
}

void writeIptc(const Tags& tags, Exiv2::IptcData& iptc) {
  const bool dated = tags.localDate && tags.xmpDate &&
                     iptc.findKey(Exiv2::IptcKey("Iptc.Application2.DateCreated")) != iptc.end();
  if (!tags.caption && !tags.keywords && !dated) return;
  markUTF8(iptc);
  if (dated) {
    // "2021-03-04T10:05:00+02:00": the date and the time with its offset.
    replaceIptc(iptc, "Iptc.Application2.DateCreated", tags.xmpDate->substr(0, 10));
    if (tags.xmpDate->size() > 11) {
      replaceIptc(iptc, "Iptc.Application2.TimeCreated", tags.xmpDate->substr(11));
    }
  }
  if (tags.caption) replaceIptc(iptc, "Iptc.Application2.Caption", *tags.caption);
  if (tags.keywords) {
    eraseIptc(iptc, "Iptc.Application2.Keywords");
    for (const std::string& keyword : *tags.keywords) {
      addIptc(iptc, "Iptc.Application2.Keywords", keyword);
    }
  }
}

// Applies the tags; true when the XMP block must be serialised anew.
bool apply(const Tags& tags, Exiv2::Image& image) {
  Exiv2::ExifData& exif = image.exifData();
  writeExifDate(tags, exif);
  const bool position = tags.location && isUsablePosition(*tags.location);
  if (position) writeExifPosition(*tags.location, exif);
  if (tags.caption) setAscii(exif, "Exif.Image.ImageDescription", *tags.caption);
  const bool holdsIptc = image.supportsMetadata(Exiv2::mdIptc);
  if (holdsIptc) writeIptc(tags, image.iptcData());
  Tags xmpTags = tags;
  if (!position) xmpTags.location.reset();
  return writeXmp(xmpTags, image.xmpData(), !holdsIptc);
}

// Every tag with a value; Exiv2 drops empty ones on writing, which loses nothing.
std::multiset<std::string> keysOf(const Exiv2::Image& image) {
  std::multiset<std::string> keys;
  for (const Exiv2::Exifdatum& datum : image.exifData()) keys.insert(datum.key());
  for (const Exiv2::Iptcdatum& datum : image.iptcData()) {
    if (datum.size() > 0) keys.insert(datum.key());
  }
  for (const Exiv2::Xmpdatum& datum : image.xmpData()) {
    if (datum.size() > 0 && !datum.toString().empty()) keys.insert(datum.key());
  }
  return keys;
}

Exiv2::Image::AutoPtr openInMemory(std::span<const std::uint8_t> bytes) {
  Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(Exiv2::BasicIo::AutoPtr(
      std::make_unique<Exiv2::MemIo>(bytes.data(), static_cast<long>(bytes.size())).release()));
  if (image.get() != nullptr) image->readMetadata();
  return image;
}

// True when every tag that was to be written is found again in `written`, and every strip and
// tile holds the same bytes as in `original`.
bool keepsEverything(const std::multiset<std::string>& expected, const Exiv2::ExifData& original,
                     std::span<const std::uint8_t> photo, std::span<const std::uint8_t> written) {
  const Exiv2::Image::AutoPtr image = openInMemory(written);
  if (image.get() == nullptr) return false;
  const std::multiset<std::string> found = keysOf(*image);
  if (!std::includes(found.begin(), found.end(), expected.begin(), expected.end())) return false;
  if (image->imageType() != kTiffType) return true;
  const auto before = imageData(original, photo);
  const auto after = imageData(image->exifData(), written);
  return before && after && sameImageData(*before, *after);
}

Bytes contentsOf(Exiv2::BasicIo& io) {
  const long size = io.size();
  if (size <= 0) return {};
  Bytes bytes(static_cast<std::size_t>(size));
  if (io.open() != 0) return {};
  io.seek(0, Exiv2::BasicIo::beg);
  const long read = io.read(bytes.data(), size);
  io.close();
  if (read != size) return {};
  return bytes;
}

}  // namespace

std::optional<Bytes> rewrite(std::span<const std::uint8_t> photo, std::string_view fileName,
                             const MetadataWriter::PhotoTags& tags) {
  Exiv2Setup::prepare();
  if (photo.empty() || photo.size() > kLargestRewrite) return std::nullopt;
  try {
    const Exiv2::Image::AutoPtr image = openInMemory(photo);
    if (image.get() == nullptr || !isWritable(*image, fileName)) return std::nullopt;
    if (hasUnmovableMakerNoteBlock(image->exifData())) return std::nullopt;
    const Exiv2::ExifData original = image->exifData();
    if (image->imageType() == kTiffType && !imageData(original, photo)) return std::nullopt;
    const bool xmpChanged = apply(tags, *image);
    image->writeXmpFromPacket(!xmpChanged);  // an untouched packet is kept byte for byte
    const std::multiset<std::string> expected = keysOf(*image);
    image->writeMetadata();
    Bytes written = contentsOf(image->io());
    if (image->imageType() == kJpegType) IptcDigest::refresh(written);
    if (written.empty() || !keepsEverything(expected, original, photo, written)) {
      return std::nullopt;
    }
    return written;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<std::string> sidecarPacket(const MetadataWriter::PhotoTags& tags) {
  Exiv2Setup::prepare();
  try {
    Exiv2::XmpData xmp;
    if (tags.xmpDate) {
      setXmpText(xmp, "Xmp.photoshop.DateCreated", *tags.xmpDate);
      setXmpText(xmp, "Xmp.exif.DateTimeOriginal", *tags.xmpDate);
    }
    if (tags.location && isUsablePosition(*tags.location)) {
      setXmpText(xmp, "Xmp.exif.GPSVersionID", "2.3.0.0");
      writeXmpPosition(*tags.location, xmp, /*always=*/true);
    }
    if (tags.caption) writeXmpCaption(*tags.caption, xmp);
    if (tags.keywords) writeXmpKeywords(*tags.keywords, xmp);
    if (xmp.empty()) return std::nullopt;
    std::string packet;
    if (Exiv2::XmpParser::encode(packet, xmp) != 0 || packet.empty()) return std::nullopt;
    return packet;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace quillmere::Exiv2MetadataWriter
