#ifndef QUILLMERE_CORE_SCAN_SCAN_SUPPORT_H_
#define QUILLMERE_CORE_SCAN_SCAN_SUPPORT_H_

#include <cstddef>
#include <optional>
#include <vector>

#include "core/metadata/embedded_metadata.h"
#include "core/scan/media_file.h"
#include "core/scan/scan_summary.h"
#include "core/scan/work_progress.h"
#include "core/sources/source_file.h"

namespace quillmere::ScanSupport {

// How much of a photo inside a zip is inflated to read its metadata.
inline constexpr std::size_t kPhotoPrefixBytes = 1'048'576;

// Distinct zip parts (by path) that contributed at least one of `files`.
std::int64_t countZipParts(const std::vector<SourceFilePtr>& files);

// A photo's own metadata: by path for a plain file, from the first mebibyte for a zip entry.
// Absent when it can't be read or isn't an image.
std::optional<EmbeddedMetadata> readPhotoMetadata(const SourceFile& source);

// Sets every photo's embedded metadata among `files` from readPhotoMetadata, reading on
// several threads, and reports the phase checkingFiles (file index of `files.size()`) on the
// calling thread now and then. Other files are left as they are.
void readPhotosMetadata(const std::vector<MediaFilePtr>& files, const ProgressCallback& progress);

// For a photo: counts a missing embedded date or place, and whether the service's metadata
// can supply it.
void countPhotoGaps(const MediaFile& photo, ScanSummary& summary);

// Hands the pages of memory freed by a scan's working tables back to the system, so the
// holes they leave among what the scan keeps don't stay counted against the process.
void returnFreedMemory();

}  // namespace quillmere::ScanSupport

#endif  // QUILLMERE_CORE_SCAN_SCAN_SUPPORT_H_
