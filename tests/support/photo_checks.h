#ifndef QUILLMERE_TESTS_SUPPORT_PHOTO_CHECKS_H_
#define QUILLMERE_TESTS_SUPPORT_PHOTO_CHECKS_H_

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

// Independent checks of a rewritten photo: exiftool's reading of its tags, and hashes of its
// decoded pixels and of the image data its TIFF structure points at.
namespace quillmere::testing {

// The shared real samples: $QUILLMERE_SAMPLES when set (a worktree lies elsewhere than the
// main checkout), else QUILLMERE_SOURCE_DIR/../shared/samples.
std::filesystem::path sharedSamples();

// The HEIC, HEIF and AVIF samples in sharedSamples() / "heif", by name.
inline constexpr const char* kHeifSamples[] = {"Canon.HIF",
                                               "HMD_Nokia_8.3_5G_hdr.heif",
                                               "IMG_2927.HEIC",
                                               "Irvine_CA.avif",
                                               "Issue_487.heic",
                                               "Issue_649.avif",
                                               "QuickTime.heic",
                                               "Sony.HIF",
                                               "alpha_1440x960.heic",
                                               "bird_burst.heic",
                                               "exif-at-eof.heic",
                                               "grid_960x640.heic",
                                               "heic-iphone7.heic",
                                               "iphone_13_pro_max.HEIC",
                                               "issue_9292_sony_6_right_top.HIF",
                                               "random_collection_1440x960.heic",
                                               "stereo_1200x800.heic"};

// `name` as a test's name: letters and digits kept, anything else "_".
std::string testName(std::string name);

// exiftool -a -G1 -n -json of one file: every tag as "Group:Name", duplicates included.
nlohmann::json exiftoolTags(const std::filesystem::path& file);

// The tags whose value differs between two readings, or that only one of them has, leaving out
// the groups that describe the file rather than its content (System, File), the positions of
// blocks (…Offset, …Offsets, …Start), empty texts that are gone, and every tag whose name
// (after the group) is in `written`. exiftool's warnings count: a new one means damage.
std::vector<std::string> changedTags(const nlohmann::json& before, const nlohmann::json& after,
                                     const std::set<std::string>& written);

// What writing a patch into a photo may change, by exiftool's tag names: the written tags, their
// counterparts in the other blocks, what exiftool derives from them, the XMP toolkit name of a
// packet written anew, and the WebP flags that announce the Exif and XMP chunks.
const std::set<std::string>& writtenTagNames();

// SHA-256 of the pixels ImageMagick decodes, as 8-bit RGBA; empty when it cannot decode them.
std::string pixelHash(const std::filesystem::path& file);

// SHA-256 of every top-level image libheif decodes from a HEIF file (heif-convert writes one PNG
// per image, with alpha and depth beside them): their names and pixel chunks, without the
// metadata heif-convert copies into them. "not decoded: " and libheif's message when it can't.
std::string heifPixels(const std::filesystem::path& file);

// SHA-256 of the bytes every image directory's strips, tiles, thumbnails and previews cover (by
// exiftool's offsets and lengths), by group; for raws, which ImageMagick cannot decode here.
std::map<std::string, std::string> imageDataHashes(const std::filesystem::path& file);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_PHOTO_CHECKS_H_
