#ifndef QUILLMERE_CORE_REPAIR_OUTPUT_NAMING_H_
#define QUILLMERE_CORE_REPAIR_OUTPUT_NAMING_H_

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/dates/date_decision.h"

namespace quillmere::RepairEngine {

// The longest file name the engine writes, in bytes: the common 255-byte limit of Linux file
// systems less room for the ".xmp" a sidecar appends to its copy's name.
inline constexpr std::size_t kMaxNameBytes = 251;

// Folder text → the lower-cased names already given out in it during one run.
using UsedNames = std::map<std::string, std::set<std::string>>;

// A file name split at its last dot (a leading dot starts no extension): "IMG.JPG" gives
// "IMG" and "JPG" with hasExtension; ".hidden" and "README" have none.
struct NameParts {
  std::string stem;
  std::string extension;
  bool hasExtension = false;
  bool operator==(const NameParts&) const = default;
};
NameParts splitName(std::string_view name);

// stem + suffix + ("." + extension when there is one), with the stem cut short (between two
// characters) where the whole would exceed kMaxNameBytes. The suffix and the extension are kept.
std::string fittedName(std::string_view stem, std::string_view suffix, const NameParts& rest);

// "" for 1, else " (n)": what tells apart copies that want the same name.
std::string numberSuffix(std::size_t n);

// The folder of an item inside the run folder, by the local date of its lead file's decision:
// "Photos/2019/2019-07" (the month in the decided zone, not in UTC), or "Photos/Undated" when
// the decision has no instant.
std::string datedFolder(const DateDecision& decision);

// Final names for the files of one item in `folder`: the wanted names themselves when free,
// else all of them with the same " (n)" before their extensions, n = 2, 3, ..., chosen so that
// none clashes, ignoring letter case, with a name given out earlier in that folder or with
// another of them. Files of one item whose names clash with each other whatever the number get
// a number each instead. Records the names returned in `used`.
std::vector<std::string> uniqueNames(const std::vector<std::string>& wanted,
                                     const std::string& folder, UsedNames& used);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_OUTPUT_NAMING_H_
