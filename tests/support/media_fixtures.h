#ifndef QUILLMERE_TESTS_SUPPORT_MEDIA_FIXTURES_H_
#define QUILLMERE_TESTS_SUPPORT_MEDIA_FIXTURES_H_

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

// Photos and movies made by real tools (ImageMagick, libheif's heif-enc, ffmpeg), tags written
// by exiftool, and exiftool's reading of them: the independent reader the tests compare with.
// Every function throws std::runtime_error, with the tool's own message, when a tool fails.
namespace quillmere::testing {

enum class PhotoFormat { jpeg, heic, png, tiff, webp };

// A photo of `width` x `height` pixels: a smooth gradient (a few kilobytes), or, when `noisy`,
// random pixels that no encoder can shrink much (a JPEG at quality 92 takes about 0.75 bytes a
// pixel).
// The same arguments always give the same pixels.
void makePhoto(const std::filesystem::path& path, PhotoFormat format, int width, int height,
               bool noisy = false);

// A one-second movie of `width` x `height` pixels by ffmpeg, in the container its extension
// names (.mp4, .mov, ...). `metadata` are ffmpeg's -metadata pairs ("creation_time", "date",
// "location", "description"); `fastStart` puts the movie header before the frames.
void makeMovie(const std::filesystem::path& path, int width, int height,
               const std::vector<std::pair<std::string, std::string>>& metadata = {},
               bool fastStart = false);

// Tags to write into one file with exiftool: arguments such as "-DateTimeOriginal=...".
struct TagEdit {
  std::filesystem::path file;
  std::vector<std::string> arguments;
};

// Applies the edit in place with exiftool (-m: minor problems, such as a raw value that breaks
// the standard on purpose, are not errors).
void writeTags(const TagEdit& edit);

// The format tags ffprobe lists for `file`, in the order it lists them (libavformat's own).
std::vector<std::pair<std::string, std::string>> movieTags(const std::filesystem::path& file);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_MEDIA_FIXTURES_H_
