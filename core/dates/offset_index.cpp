#include "core/dates/offset_index.h"

#include <algorithm>
#include <cmath>

namespace quillmere {

void OffsetIndex::finalize() {
  std::stable_sort(samples.begin(), samples.end(),
                   [](const Sample& a, const Sample& b) { return a.utc < b.utc; });
}

InferredOffset OffsetIndex::offset(double utc) const {
  const auto after =
      std::lower_bound(samples.begin(), samples.end(), utc,
                       [](const Sample& s, double instant) { return s.utc < instant; });
  const Sample* nearest = nullptr;
  if (after != samples.begin()) nearest = &*std::prev(after);
  if (after != samples.end() &&
      (nearest == nullptr || std::fabs(after->utc - utc) < std::fabs(nearest->utc - utc))) {
    nearest = &*after;
  }
  if (nearest != nullptr && std::fabs(nearest->utc - utc) <= maxDistance) {
    return {nearest->offset, OffsetSource::neighbor};
  }
  return {fallbackZone ? fallbackZone->offsetSeconds(utc) : 0, OffsetSource::guessed};
}

}  // namespace quillmere
