#include "core/scan/scan_support.h"

#include <set>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "core/metadata/embedded_metadata_reader.h"
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
