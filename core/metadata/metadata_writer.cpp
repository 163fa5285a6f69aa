#include "core/metadata/metadata_writer.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <system_error>

#include "core/dates/date_planner.h"
#include "core/dates/exif_date.h"
#include "core/dates/iso_date.h"
#include "core/metadata/exiv2_metadata_writer.h"
#include "core/metadata/heif_container.h"
#include "core/metadata/heif_metadata_rewriter.h"
#include "core/sources/byte_view.h"
#include "core/sources/file_io.h"

namespace quillmere::MetadataWriter {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kExifDateLength = 19;
constexpr double kDateTolerance = 2.0;       // seconds
constexpr double kLocationTolerance = 50.0;  // metres
constexpr std::uintmax_t kLargestPhoto = std::uintmax_t{1} << 30;

// The whole file, or nothing when it cannot be read or is too large to rewrite in memory.
std::optional<Bytes> readWhole(const fs::path& file) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  if (error || size == 0 || size > kLargestPhoto) return std::nullopt;
  std::ifstream in(file, std::ios::binary);
  Bytes bytes(static_cast<std::size_t>(size));
  if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size))) {
    return std::nullopt;
  }
  return bytes;
}

// The HEIF items that carry `tags`, merged into those a file has.
HeifMetadataRewriter::Merge heifMerge(const PhotoTags& tags) {
  return [&tags](const HeifMetadataRewriter::Items& items) {
    return Exiv2MetadataWriter::rewriteBlocks(items, tags);
  };
}

// HEIC, HEIF and AVIF: the Exif and XMP items are replaced, every other byte kept. Throws only
// when the file system fails to move an unchanged copy.
bool embedHeif(const PhotoTags& tags, const fs::path& source, const fs::path& destination) {
  switch (HeifMetadataRewriter::rewrite(source, destination, heifMerge(tags))) {
    case HeifMetadataRewriter::Outcome::written:
      return true;
    case HeifMetadataRewriter::Outcome::nothingToWrite:
      // Nothing the file can hold (a position off the globe).
      FileIO::moveFile(source, destination);
      return true;
    case HeifMetadataRewriter::Outcome::refused:
      break;
  }
  return false;
}

// Writes the rewritten `photo` to `destination`; false, with nothing new there, when Exiv2
// refuses the photo. Throws the file system's error.
bool embedPhotoBytes(const PhotoTags& tags, std::span<const std::uint8_t> photo,
                     const fs::path& destination) {
  const std::optional<Bytes> written =
      Exiv2MetadataWriter::rewrite(photo, destination.filename().string(), tags);
  if (!written) return false;
  FileIO::writeFile(destination, *written, /*exclusive=*/false);
  return true;
}

void writeBytes(const fs::path& destination, std::span<const std::uint8_t> bytes) {
  FileIO::writeFile(destination, bytes, /*exclusive=*/false);
}

// After an attempt to write the tags inside: when it failed, `placeCopy` puts the unchanged copy
// at `destination` and the sidecar goes beside it. Then the file's times become the capture date.
WriteMethod settle(bool embedded, const MetadataPatch& patch, const fs::path& destination,
                   const std::vector<std::string>& existingKeywords,
                   const std::function<void()>& placeCopy) {
  WriteMethod method = WriteMethod::embedded;
  if (!embedded) {
    placeCopy();
    writeXMPSidecar(patch, destination, existingKeywords);
    method = WriteMethod::xmpSidecar;
  }
  if (patch.dateUTC) FileIO::setFileTimes(destination, *patch.dateUTC, *patch.dateUTC);
  return method;
}

// Writes the photo's copy with the tags inside; false, with `source` untouched and nothing new
// at `destination`, when the format or the file system does not allow it.
bool embedPhoto(const PhotoTags& tags, const fs::path& source, const fs::path& destination) {
  try {
    if (tags.isEmpty()) {
      // Nothing to put inside (a date whose offset is unknown reaches only the file times).
      FileIO::moveFile(source, destination);
      return true;
    }
    if (HeifMetadataRewriter::isHeif(source)) return embedHeif(tags, source, destination);
    const std::optional<Bytes> photo = readWhole(source);
    return photo && embedPhotoBytes(tags, *photo, destination);
  } catch (const std::exception&) {
    // A full disk or a folder that refuses files: the fallback meets the same folder and
    // reports what it finds.
    return false;
  }
}

}  // namespace

PhotoTags buildMetadata(const MetadataPatch& patch,
                        const std::vector<std::string>& existingKeywords) {
  PhotoTags tags;
  if (patch.dateUTC && patch.offsetSeconds) {
    tags.localDate = ExifDate::format(*patch.dateUTC, *patch.offsetSeconds);
    tags.offset = ExifDate::formatOffset(*patch.offsetSeconds);
    tags.xmpDate = ISODate::formatXMP(*patch.dateUTC, *patch.offsetSeconds);
  }
  if (patch.location) {
    tags.location = patch.location;
    if (tags.location->altitude == 0.0) tags.location->altitude.reset();
  }
  tags.caption = patch.caption;
  if (!patch.addKeywords.empty()) {
    std::vector<std::string> keywords = existingKeywords;
    for (const std::string& keyword : patch.addKeywords) {
      if (std::find(keywords.begin(), keywords.end(), keyword) == keywords.end()) {
        keywords.push_back(keyword);
      }
    }
    tags.keywords = std::move(keywords);
  }
  return tags;
}

WriteMethod write(const MetadataPatch& patch, MediaKind kind, const fs::path& source,
                  const fs::path& destination, const std::vector<std::string>& existingKeywords) {
  if (patch.isEmpty()) {
    FileIO::moveFile(source, destination);
    return WriteMethod::unchanged;
  }
  bool embedded = false;
  if (kind == MediaKind::photo) {
    embedded = embedPhoto(buildMetadata(patch, existingKeywords), source, destination);
  } else if (kind == MediaKind::video) {
    embedded = writeVideo(patch, source, destination);
  }
  if (embedded) fs::remove(source);
  return settle(embedded, patch, destination, existingKeywords, [&] {
    std::error_code ignored;  // usually nothing is there
    fs::remove(destination, ignored);
    FileIO::moveFile(source, destination);
  });
}

WriteMethod writeInPlace(const MetadataPatch& patch, MediaKind kind, const fs::path& file,
                         const fs::path& destination,
                         const std::vector<std::string>& existingKeywords) {
  if (patch.isEmpty() || kind != MediaKind::photo || !HeifMetadataRewriter::isHeif(file)) {
    return write(patch, kind, file, destination, existingKeywords);
  }
  const PhotoTags tags = buildMetadata(patch, existingKeywords);
  if (tags.isEmpty() || HeifMetadataRewriter::rewriteInPlace(file, heifMerge(tags)) ==
                            HeifMetadataRewriter::Outcome::refused) {
    return write(patch, kind, file, destination, existingKeywords);
  }
  FileIO::moveFile(file, destination);
  return settle(true, patch, destination, existingKeywords, [] {});
}

bool writesFromMemory(MediaKind kind, std::span<const std::uint8_t> content) {
  // The same look at the brands as the file writer takes.
  return kind == MediaKind::photo &&
         !HeifContainer::isHeif(content.first(std::min<std::size_t>(content.size(), 4096)));
}

PreparedPhoto prepare(const MetadataPatch& patch, std::span<const std::uint8_t> photo,
                      std::string_view fileName, const std::vector<std::string>& existingKeywords) {
  PreparedPhoto prepared;
  if (patch.isEmpty()) {
    prepared.unchanged = true;
    return prepared;
  }
  const PhotoTags tags = buildMetadata(patch, existingKeywords);
  if (tags.isEmpty()) {
    prepared.embedded = true;
  } else if (!photo.empty() && photo.size() <= kLargestPhoto) {
    try {
      prepared.rewritten = Exiv2MetadataWriter::rewrite(photo, fileName, tags);
    } catch (const std::exception&) {
      // Out of memory for the new bytes: the photo takes the fallback like any it refuses.
    }
    prepared.embedded = prepared.rewritten.has_value();
  }
  return prepared;
}

WriteMethod writePrepared(const PreparedPhoto& prepared, const MetadataPatch& patch,
                          std::span<const std::uint8_t> photo, const fs::path& destination,
                          const std::vector<std::string>& existingKeywords) {
  if (prepared.unchanged) {
    writeBytes(destination, photo);
    return WriteMethod::unchanged;
  }
  bool embedded = false;
  try {
    if (prepared.embedded) {
      writeBytes(destination, prepared.rewritten ? *prepared.rewritten : photo);
      embedded = true;
    }
  } catch (const std::exception&) {
    // As for a file: the fallback meets the same folder and reports what it finds.
  }
  return settle(embedded, patch, destination, existingKeywords,
                [&] { writeBytes(destination, photo); });
}

void writeXMPSidecar(const MetadataPatch& patch, const fs::path& file,
                     const std::vector<std::string>& existingKeywords) {
  const std::optional<std::string> packet =
      Exiv2MetadataWriter::sidecarPacket(buildMetadata(patch, existingKeywords));
  if (!packet) return;
  FileIO::writeFile(fs::path(file.string() + ".xmp"),
                    {reinterpret_cast<const std::uint8_t*>(packet->data()), packet->size()},
                    /*exclusive=*/true);
}

Verification verify(const MetadataPatch& patch, const std::optional<EmbeddedMetadata>& reread) {
  if (!reread) return {"Couldn't re-read the written file", std::nullopt};
  Verification result;
  if (patch.dateUTC) {
    const auto* local = reread->captureDate ? reread->captureDate->asLocal() : nullptr;
    if (local != nullptr && !local->offsetSeconds && patch.offsetSeconds) {
      if (local->text.substr(0, kExifDateLength) !=
          ExifDate::format(*patch.dateUTC, *patch.offsetSeconds)) {
        return {"Date didn't verify after writing", std::nullopt};
      }
      result.note = "This file type can't store a time zone; the local time is correct";
    } else {
      const std::optional<DatePlanner::ResolvedDate> resolved =
          DatePlanner::resolveEmbedded(reread->captureDate, std::nullopt);
      if (!resolved || !(std::fabs(resolved->utc - *patch.dateUTC) <= kDateTolerance)) {
        return {"Date didn't verify after writing", std::nullopt};
      }
    }
  }
  if (patch.location && !(reread->location &&
                          reread->location->distanceMeters(*patch.location) < kLocationTolerance)) {
    result.problem = "Location didn't verify after writing";
  }
  return result;
}

}  // namespace quillmere::MetadataWriter
