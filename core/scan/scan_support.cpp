#include "core/scan/scan_support.h"

#include <set>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "core/metadata/embedded_metadata_reader.h"
#include "core/sources/parallel_loop.h"
#include "core/sources/zip_entry_file.h"

namespace quillmere::ScanSupport {

std::int64_t countZipParts(const std::vector<SourceFilePtr>& files) {
  std::set<std::filesystem::path> parts;
  for (const SourceFilePtr& file : files) {
    if (const auto* entry = dynamic_cast<const ZipEntryFile*>(file.get())) {
      parts.insert(entry->archive().url());
    }
  }
  return static_cast<std::int64_t>(parts.size());
}

std::optional<EmbeddedMetadata> readPhotoMetadata(const SourceFile& source) {
  if (const auto path = source.localURL()) return EmbeddedMetadataReader::readPhoto(*path);
  try {
    return EmbeddedMetadataReader::readImage(source.readPrefix(kPhotoPrefixBytes));
  } catch (const std::exception&) {
    return std::nullopt;  // counted as missing date and place
  }
}

// Each read is of one file into its own record, and on an export of small photos the reads are
// the bulk of a scan's work: they run side by side.
void readPhotosMetadata(const std::vector<MediaFilePtr>& files, const ProgressCallback& progress) {
  std::vector<std::size_t> photos;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i]->kind == MediaKind::photo) photos.push_back(i);
  }
  const auto total = static_cast<std::int64_t>(files.size());
  ParallelLoop::run(
      photos.size(),
      [&](std::size_t n) {
        MediaFile& photo = *files[photos[n]];
        photo.setEmbedded(readPhotoMetadata(*photo.source));
      },
      [&](std::size_t started) {
        const auto at = static_cast<std::int64_t>(photos[started]);
        if (progress) progress({std::string(ScanPhase::checkingFiles), at, total});
      });
}

void countPhotoGaps(const MediaFile& photo, ScanSummary& summary) {
  const std::optional<TakeoutSidecar> sidecar = photo.sidecar();
  const std::optional<EmbeddedMetadata> embedded = photo.embedded();
  if (!embedded || !embedded->captureDate) {
    ++summary.photosMissingDate;
    if (sidecar && sidecar->photoTakenTime) ++summary.datesRecoverable;
  }
  if (!embedded || !embedded->location) {
    ++summary.photosMissingLocation;
    const bool placeKnown = sidecar && ((sidecar->geoData && sidecar->geoData->isSet()) ||
                                        (sidecar->geoDataExif && sidecar->geoDataExif->isSet()));
    if (placeKnown) ++summary.locationsRecoverable;
  }
}

void returnFreedMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace quillmere::ScanSupport
