#include "core/sources/media_kind.h"

#include <nlohmann/json.hpp>

namespace quillmere {

const ExtensionSet& photoExtensions() {
  static const ExtensionSet extensions = {
      "jpg",  "jpeg", "jpe",  "heic", "heif", "hif", "png", "gif", "webp", "tif",
      "tiff", "bmp",  "avif", "jxl",  "dng",  "cr2", "cr3", "nef", "nrw",  "arw",
      "orf",  "rw2",  "raf",  "srw",  "pef",  "raw", "rwl", "3fr", "erf"};
  return extensions;
}

const ExtensionSet& videoExtensions() {
  static const ExtensionSet extensions = {"mp4", "mov",  "m4v", "3gp",  "3g2", "avi",  "mkv",
                                          "mts", "m2ts", "mpg", "mpeg", "wmv", "webm", "flv"};
  return extensions;
}

MediaKind mediaKindOf(std::string_view fileName) {
  const std::size_t slash = fileName.rfind('/');
  if (slash != std::string_view::npos) fileName.remove_prefix(slash + 1);
  const std::size_t dot = fileName.rfind('.');
  if (dot == std::string_view::npos) return MediaKind::other;
  // Every known extension is ASCII, so folding ASCII letters is enough to compare.
  std::string extension(fileName.substr(dot + 1));
  for (char& c : extension) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (photoExtensions().contains(extension)) return MediaKind::photo;
  if (videoExtensions().contains(extension)) return MediaKind::video;
  // Motion-photo movies split out of Google's "MVIMG"/"PXL" stills.
  if (extension == "mp") return MediaKind::video;
  return MediaKind::other;
}

std::string_view rawValue(MediaKind kind) {
  switch (kind) {
    case MediaKind::photo:
      return "photo";
    case MediaKind::video:
      return "video";
    case MediaKind::other:
      return "other";
  }
  return "other";
}

template <>
std::optional<MediaKind> fromRawValue<MediaKind>(std::string_view raw) {
  return findRawValue({MediaKind::photo, MediaKind::video, MediaKind::other}, raw);
}

void to_json(nlohmann::json& json, MediaKind kind) { json = rawValue(kind); }

void from_json(const nlohmann::json& json, MediaKind& kind) {
  readRawValue(json, kind, "not a media kind");
}

}  // namespace quillmere
