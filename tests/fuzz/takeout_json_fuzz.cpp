// Feeds arbitrary bytes to TakeoutJSON::parse: it must never throw or crash, and whatever it
// returns must keep the record's promises.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "core/scan/takeout_json.h"
#include "core/sources/unicode_text.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

void checkGeo(const std::optional<quillmere::TakeoutSidecar::Geo>& geo) {
  if (!geo) return;
  check(std::isfinite(geo->latitude) && std::isfinite(geo->longitude) &&
        std::isfinite(geo->altitude));
}

void checkInstant(const std::optional<double>& instant) {
  if (instant) check(std::isfinite(*instant) && *instant > 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using quillmere::TakeoutJSON;
  const TakeoutJSON parsed = TakeoutJSON::parse(std::span(data, size));
  if (const auto* sidecar = parsed.photo()) {
    checkInstant(sidecar->photoTakenTime);
    checkInstant(sidecar->creationTime);
    checkGeo(sidecar->geoData);
    checkGeo(sidecar->geoDataExif);
    if (const auto best = sidecar->bestGeo()) check(best->isSet());
    if (sidecar->description) check(!quillmere::UnicodeText::isBlank(*sidecar->description));
  } else if (const auto* album = parsed.album()) {
    if (album->description) check(!quillmere::UnicodeText::isBlank(*album->description));
  }
  check(TakeoutJSON::parse(std::span(data, size)) == parsed);
  return 0;
}
