#ifndef QUILLMERE_CORE_METADATA_QUICK_TIME_ATOM_TREE_H_
#define QUILLMERE_CORE_METADATA_QUICK_TIME_ATOM_TREE_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "core/sources/byte_view.h"

namespace quillmere {

// The four-character type of an atom as a big-endian number ("moov", "\xA9" "day", ...).
constexpr std::uint32_t fourCC(std::string_view type) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    value = (value << 8) | (i < type.size() ? static_cast<std::uint8_t>(type[i]) : 0);
  }
  return value;
}

// An atom held in memory for editing. Until it is expanded it is kept as the exact bytes it was
// read from, so whatever is not edited is written back byte for byte.
struct AtomNode {
  std::uint32_t type = 0;
  bool largeHeader = false;  // was (and will be) written with a 64-bit size
  bool expanded = false;
  Bytes raw;       // the whole atom, header included, while not expanded
  Bytes preamble;  // expanded: bytes before the first child (a full box's version)
  std::vector<AtomNode> children;
  Bytes trailer;  // expanded: zero padding after the last child

  std::uint32_t headerLength() const { return largeHeader ? 16 : 8; }
  // The payload of an atom that is not expanded.
  std::span<const std::uint8_t> payload() const;
  // Total size as it would be written now.
  std::uint64_t size() const;
  void appendTo(Bytes& out) const;

  // Turns the payload after `preambleLength` bytes into child atoms. False, leaving the node as
  // it was, when the payload is not a clean run of atoms.
  bool expand(std::size_t preambleLength = 0);

  AtomNode* child(std::uint32_t childType);
  std::size_t count(std::uint32_t childType) const;
};

// The atoms that fill `bytes` one after another, each kept raw. Without `trailer` (the top
// level), a size of 0 runs to the end; with it (children), at most 7 trailing zero bytes (the
// terminator QuickTime puts after user data) go to `trailer` and a size of 0 is refused.
// Absent when an atom is too short or runs past the end, or other bytes trail.
std::optional<std::vector<AtomNode>> parseAtoms(std::span<const std::uint8_t> bytes,
                                                Bytes* trailer);

// A leaf atom of `type` around `payload`.
AtomNode makeAtom(std::uint32_t type, std::span<const std::uint8_t> payload);

void appendU32(Bytes& out, std::uint32_t value);
void appendU64(Bytes& out, std::uint64_t value);
std::uint64_t readBigEndian(std::span<const std::uint8_t> bytes, std::size_t offset, int width);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_QUICK_TIME_ATOM_TREE_H_
