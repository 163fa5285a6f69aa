#include "core/metadata/exiv2_tag_writer.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <memory>

#include "core/sources/unicode_text.h"

// Exiv2 0.27 hands values out as std::auto_ptr; its deprecation is not ours to fix.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace quillmere::Exiv2TagWriter {
namespace {

using Tags = MetadataWriter::PhotoTags;

constexpr std::uint16_t kApplicationRecord = 2;
constexpr char kUTF8Marker[] = "\x1B%G";

bool hasXmp(const Exiv2::XmpData& xmp, const char* key) {
  return xmp.findKey(Exiv2::XmpKey(key)) != xmp.end();
}

void setXmpText(Exiv2::XmpData& xmp, const char* key, const std::string& text) {
  const Exiv2::XmpTextValue value(text);
  xmp[key].setValue(&value);
}

void setAscii(Exiv2::ExifData& exif, const char* key, const std::string& text) {
  // read() ends the text with the NUL that Exif counts ("N" is 2 bytes); the constructor
  // doesn't, which readers flag on tags of a fixed count such as GPSLatitudeRef.
  Exiv2::AsciiValue value;
  value.read(text);
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

// The XMP form of a GPS coordinate, "33,51.600000S": degrees and minutes to the millionth,
// counted in integers so that the minutes never round up to 60 (and no locale decides the
// decimal point).
std::string xmpDegrees(double degrees, char positive, char negative) {
  const auto micro = static_cast<unsigned long long>(std::llround(std::fabs(degrees) * 60e6));
  char text[64];
  std::snprintf(text, sizeof text, "%llu,%llu.%06llu%c", micro / 60'000'000,
                micro % 60'000'000 / 1'000'000, micro % 1'000'000,
                degrees < 0 ? negative : positive);
  return text;
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

}  // namespace

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

void fillSidecar(const MetadataWriter::PhotoTags& tags, Exiv2::XmpData& xmp) {
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
}

BlockChanges applyWithoutIptc(const Tags& tags, Exiv2::ExifData& exif, Exiv2::XmpData& xmp) {
  BlockChanges changes;
  const bool position = tags.location && isUsablePosition(*tags.location);
  if (tags.localDate || position || tags.caption) {
    writeExifDate(tags, exif);
    if (position) writeExifPosition(*tags.location, exif);
    if (tags.caption) setAscii(exif, "Exif.Image.ImageDescription", *tags.caption);
    changes.exif = true;
  }
  Tags xmpTags = tags;
  if (!position) xmpTags.location.reset();
  changes.xmp = writeXmp(xmpTags, xmp, /*holdsTexts=*/true);
  return changes;
}

}  // namespace quillmere::Exiv2TagWriter
