// Feeds arbitrary bytes to TakeoutJSON::parse: it must never throw or crash, and whatever it
// returns must keep the record's promises.
#include <cmath>
#include <cstdlib>

#include "core/scan/takeout_json.h"
#include "core/sources/unicode_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using quillmere::TakeoutJSON;
  namespace UnicodeText = quillmere::UnicodeText;
  const auto check = [](bool ok) { ok ? void() : std::abort(); };
  const auto finite = [](const auto& geo) {
    return !geo || (std::isfinite(geo->latitude) && std::isfinite(geo->longitude) &&
                    std::isfinite(geo->altitude));
  };
  const auto positive = [](std::optional<double> t) { return !t || (std::isfinite(*t) && *t > 0); };
  const auto notBlank = [](const auto& text) { return !text || !UnicodeText::isBlank(*text); };
  const TakeoutJSON parsed = TakeoutJSON::parse(std::span(data, size));
  if (const auto* sidecar = parsed.photo()) {
    check(positive(sidecar->photoTakenTime) && positive(sidecar->creationTime));
    check(finite(sidecar->geoData) && finite(sidecar->geoDataExif) &&
          notBlank(sidecar->description));
    if (const auto best = sidecar->bestGeo()) check(best->isSet());
  } else if (const auto* album = parsed.album()) {
    check(notBlank(album->description));
  }
  check(TakeoutJSON::parse(std::span(data, size)) == parsed);
  return 0;
}
