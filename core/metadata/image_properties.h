#ifndef QUILLMERE_CORE_METADATA_IMAGE_PROPERTIES_H_
#define QUILLMERE_CORE_METADATA_IMAGE_PROPERTIES_H_

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace quillmere {

// One property of an image as the image library typed it. The reading rules accept a value only
// in the type they expect (a date must be text, a latitude a number), so a file that stores a
// number where text belongs simply lacks that property.
using ImagePropertyValue = std::variant<std::string, double, std::vector<std::string>>;
using ImagePropertyDictionary = std::map<std::string, ImagePropertyValue, std::less<>>;

// The properties of image 0 of a file that the embedded-metadata rules consult, grouped like the
// file's own metadata blocks. Texts are UTF-8. GPS coordinates are decimal degrees, unsigned as
// stored (the references say which hemisphere).
struct ImageProperties {
  std::optional<std::int64_t> pixelWidth;
  std::optional<std::int64_t> pixelHeight;
  ImagePropertyDictionary exif;  // keys "DateTimeOriginal", "OffsetTimeOriginal"
  ImagePropertyDictionary tiff;  // key "ImageDescription"
  ImagePropertyDictionary iptc;  // keys "Caption/Abstract" (text), "Keywords" (list of texts)
  ImagePropertyDictionary gps;   // keys "Latitude", "LatitudeRef", "Longitude", "LongitudeRef",
                                 // "Altitude", "AltitudeRef"
  // The XMP packet's properties as texts by path ("photoshop:DateCreated"); absent when the
  // image has no XMP packet at all.
  std::optional<std::map<std::string, std::string, std::less<>>> xmp;

  bool operator==(const ImageProperties&) const = default;
};

// Reads image properties with Exiv2 (and, for HEIF and AVIF, with our own reader of the
// container, which locates the Exif and XMP items that Exiv2 0.27 misses in many files). Never
// throws and never logs: absent when the bytes are not an image of a known type.
namespace ImagePropertyReader {

// From a file on disk; reads only the parts that hold metadata, not the whole image.
std::optional<ImageProperties> readFile(const std::filesystem::path& file);

// From bytes in memory, which may be only the beginning of the file: whatever lies inside them
// is read, and a cut-off image still yields the metadata before the cut.
std::optional<ImageProperties> readBytes(std::span<const std::uint8_t> bytes);

}  // namespace ImagePropertyReader
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_IMAGE_PROPERTIES_H_
