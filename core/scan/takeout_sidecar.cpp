#include "core/scan/takeout_sidecar.h"

#include <cstdint>

namespace quillmere {
namespace {

enum Flag : std::uint8_t { kFavorited = 1, kArchived = 2, kTrashed = 4 };

void putGeo(PackedWriter& out, const std::optional<TakeoutSidecar::Geo>& geo) {
  out.putByte(geo.has_value());
  if (!geo) return;
  out.putDouble(geo->latitude);
  out.putDouble(geo->longitude);
  out.putDouble(geo->altitude);
}

std::optional<TakeoutSidecar::Geo> geoFrom(PackedReader& in) {
  if (in.byte() == 0) return std::nullopt;
  TakeoutSidecar::Geo geo;
  geo.latitude = in.doubleValue();
  geo.longitude = in.doubleValue();
  geo.altitude = in.doubleValue();
  return geo;
}

}  // namespace

std::optional<TakeoutSidecar::Geo> TakeoutSidecar::bestGeo() const {
  if (geoData && geoData->isSet()) return geoData;
  if (geoDataExif && geoDataExif->isSet()) return geoDataExif;
  return std::nullopt;
}

TakeoutSidecar TakeoutSidecar::unpack(const PackedRecord& record) {
  PackedReader in(record);
  TakeoutSidecar value;
  const std::uint8_t flags = in.byte();
  value.favorited = (flags & kFavorited) != 0;
  value.archived = (flags & kArchived) != 0;
  value.trashed = (flags & kTrashed) != 0;
  value.title = in.optionalText();
  value.description = in.optionalText();
  value.photoTakenTime = in.optionalDouble();
  value.creationTime = in.optionalDouble();
  value.geoData = geoFrom(in);
  value.geoDataExif = geoFrom(in);
  value.url = in.optionalText();
  value.people = in.texts();
  return value;
}

PackedRecord TakeoutSidecar::pack() const {
  PackedWriter out;
  out.putByte(static_cast<std::uint8_t>((favorited ? kFavorited : 0) | (archived ? kArchived : 0) |
                                        (trashed ? kTrashed : 0)));
  out.putOptionalText(title);
  out.putOptionalText(description);
  out.putOptionalDouble(photoTakenTime);
  out.putOptionalDouble(creationTime);
  putGeo(out, geoData);
  putGeo(out, geoDataExif);
  out.putOptionalText(url);
  out.putTexts(people);
  return out.finish();
}

}  // namespace quillmere
