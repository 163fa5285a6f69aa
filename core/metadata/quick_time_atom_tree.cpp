#include "core/metadata/quick_time_atom_tree.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace quillmere {

std::span<const std::uint8_t> AtomNode::payload() const {
  return std::span<const std::uint8_t>(raw).subspan(
      std::min<std::size_t>(headerLength(), raw.size()));
}

std::uint64_t AtomNode::size() const {
  if (!expanded) return raw.size();
  std::uint64_t total = preamble.size() + trailer.size();
  for (const AtomNode& node : children) total += node.size();
  // The header grows to 16 bytes when the size no longer fits 32 bits.
  if (largeHeader || total + 8 > std::numeric_limits<std::uint32_t>::max()) return total + 16;
  return total + 8;
}

void AtomNode::appendTo(Bytes& out) const {
  if (!expanded) {
    out.insert(out.end(), raw.begin(), raw.end());
    return;
  }
  const std::uint64_t total = size();
  if (largeHeader || total > std::numeric_limits<std::uint32_t>::max()) {
    appendU32(out, 1);
    appendU32(out, type);
    appendU64(out, total);
  } else {
    appendU32(out, static_cast<std::uint32_t>(total));
    appendU32(out, type);
  }
  out.insert(out.end(), preamble.begin(), preamble.end());
  for (const AtomNode& node : children) node.appendTo(out);
  out.insert(out.end(), trailer.begin(), trailer.end());
}

bool AtomNode::expand(std::size_t preambleLength) {
  if (expanded) return true;
  const std::span<const std::uint8_t> body = payload();
  if (raw.size() < headerLength() || body.size() < preambleLength) return false;
  Bytes padding;
  std::optional<std::vector<AtomNode>> parsed = parseAtoms(body.subspan(preambleLength), &padding);
  if (!parsed) return false;
  preamble.assign(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(preambleLength));
  children = std::move(*parsed);
  trailer = std::move(padding);
  expanded = true;
  raw.clear();
  raw.shrink_to_fit();
  return true;
}

AtomNode* AtomNode::child(std::uint32_t childType) {
  const auto found =
      std::find_if(children.begin(), children.end(),
                   [childType](const AtomNode& node) { return node.type == childType; });
  return found == children.end() ? nullptr : &*found;
}

std::size_t AtomNode::count(std::uint32_t childType) const {
  return static_cast<std::size_t>(
      std::count_if(children.begin(), children.end(),
                    [childType](const AtomNode& node) { return node.type == childType; }));
}

std::optional<std::vector<AtomNode>> parseAtoms(std::span<const std::uint8_t> bytes,
                                                Bytes* trailer) {
  std::vector<AtomNode> atoms;
  std::size_t position = 0;
  while (position < bytes.size()) {
    const std::size_t left = bytes.size() - position;
    const auto rest = bytes.subspan(position);
    if (left < 8) {
      // Only zero padding may follow the last atom.
      if (trailer == nullptr ||
          !std::all_of(rest.begin(), rest.end(), [](std::uint8_t byte) { return byte == 0; })) {
        return std::nullopt;
      }
      trailer->assign(rest.begin(), rest.end());
      return atoms;
    }
    AtomNode node;
    node.type = static_cast<std::uint32_t>(readBigEndian(rest, 4, 4));
    std::uint64_t size = readBigEndian(rest, 0, 4);
    if (size == 0) {
      // "Runs to the end" is only honoured where nothing can be appended after it.
      if (trailer != nullptr) return std::nullopt;
      size = left;
    } else if (size == 1) {
      if (left < 16) return std::nullopt;
      size = readBigEndian(rest, 8, 8);
      node.largeHeader = true;
      if (size < 16) return std::nullopt;
    } else if (size < 8) {
      return std::nullopt;
    }
    if (size > left) return std::nullopt;
    node.raw.assign(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(size));
    atoms.push_back(std::move(node));
    position += static_cast<std::size_t>(size);
  }
  return atoms;
}

AtomNode makeAtom(std::uint32_t type, std::span<const std::uint8_t> payload) {
  AtomNode node;
  node.type = type;
  node.largeHeader = payload.size() + 8 > std::numeric_limits<std::uint32_t>::max();
  if (node.largeHeader) {
    appendU32(node.raw, 1);
    appendU32(node.raw, type);
    appendU64(node.raw, payload.size() + 16);
  } else {
    appendU32(node.raw, static_cast<std::uint32_t>(payload.size() + 8));
    appendU32(node.raw, type);
  }
  node.raw.insert(node.raw.end(), payload.begin(), payload.end());
  return node;
}

void appendU32(Bytes& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendU64(Bytes& out, std::uint64_t value) {
  for (int shift = 56; shift >= 0; shift -= 8)
    out.push_back(static_cast<std::uint8_t>(value >> shift));
}

std::uint64_t readBigEndian(std::span<const std::uint8_t> bytes, std::size_t offset, int width) {
  if (offset > bytes.size() || static_cast<std::size_t>(width) > bytes.size() - offset) {
    throw std::out_of_range("read past the end of an atom");
  }
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = (value << 8) | bytes[offset + i];
  return value;
}

}  // namespace quillmere
