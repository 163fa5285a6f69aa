#include "core/metadata/exiv2_metadata_writer.h"

#include <algorithm>
#include <exception>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "core/metadata/exiv2_setup.h"
#include "core/metadata/exiv2_tag_writer.h"
#include "core/metadata/iptc_digest.h"

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

std::string lowerExtension(std::string_view fileName) {
  std::string extension = std::filesystem::path(fileName).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

// Exiv2 rewrites camera raws built on TIFF (NEF, ARW, PEF, ...) too, but relocates their
// maker notes without the private blocks they point at (a rewritten NEF loses its preview and
// its JPEG from the raw for other readers): only DNG, whose layout is public, and plain TIFF
// are written. CR2, ORF and the others have image types of their own and are not written.
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

// True when a text holds more than white space and NULs.
bool saysSomething(const std::string& text) {
  return text.find_first_not_of(std::string_view(" \t\r\n\0", 5)) != std::string::npos;
}

// Every tag with a value; Exiv2 drops empty ones on writing, which loses nothing.
std::multiset<std::string> keysOf(const Exiv2::Image& image) {
  std::multiset<std::string> keys;
  for (const Exiv2::Exifdatum& datum : image.exifData()) keys.insert(datum.key());
  for (const Exiv2::Iptcdatum& datum : image.iptcData()) {
    if (saysSomething(datum.toString())) keys.insert(datum.key());
  }
  for (const Exiv2::Xmpdatum& datum : image.xmpData()) {
    // The first item of a list or a language alternative, or the text itself.
    if (datum.count() > 0 && saysSomething(datum.toString(0))) keys.insert(datum.key());
  }
  return keys;
}

// The image in `bytes` with its metadata read, when it is of a type that is rewritten; null
// otherwise. The type is told before any metadata is read, so that Exiv2's readers of other
// types (its movie readers are not safe on damaged files) never see the bytes.
Exiv2::Image::AutoPtr openInMemory(std::span<const std::uint8_t> bytes) {
  Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(Exiv2::BasicIo::AutoPtr(
      std::make_unique<Exiv2::MemIo>(bytes.data(), static_cast<long>(bytes.size())).release()));
  if (image.get() == nullptr) return image;
  switch (image->imageType()) {
    case kJpegType:
    case kPngType:
    case kWebPType:
    case kTiffType:
      image->readMetadata();
      return image;
    default:
      return Exiv2::Image::AutoPtr();
  }
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
    const bool xmpChanged = Exiv2TagWriter::apply(tags, *image);
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
    Exiv2TagWriter::fillSidecar(tags, xmp);
    if (xmp.empty()) return std::nullopt;
    std::string packet;
    if (Exiv2::XmpParser::encode(packet, xmp) != 0 || packet.empty()) return std::nullopt;
    return packet;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace quillmere::Exiv2MetadataWriter
