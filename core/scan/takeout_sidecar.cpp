#include "core/scan/takeout_sidecar.h"

namespace quillmere {

std::optional<TakeoutSidecar::Geo> TakeoutSidecar::bestGeo() const {
  if (geoData && geoData->isSet()) return geoData;
  if (geoDataExif && geoDataExif->isSet()) return geoDataExif;
  return std::nullopt;
}

}  // namespace quillmere
