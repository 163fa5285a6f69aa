// The in-memory half of the QuickTime metadata rewriter: edits of the movie atom.
#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>

#include "core/metadata/quick_time_atom_tree.h"
#include "core/metadata/quick_time_metadata_rewriter.h"

namespace quillmere::QuickTimeMetadataRewriter {
namespace {

constexpr std::uint32_t kMdta = fourCC("mdta");
constexpr std::uint32_t kMdir = fourCC("mdir");
constexpr std::uint32_t kMeta = fourCC("meta");
constexpr std::uint32_t kHdlr = fourCC("hdlr");
constexpr std::uint32_t kKeys = fourCC("keys");
constexpr std::uint32_t kIlst = fourCC("ilst");
constexpr std::uint32_t kStco = fourCC("stco");
constexpr std::uint32_t kCo64 = fourCC("co64");
// The well-known type of a UTF-8 text in a "data" atom.
constexpr std::uint32_t kUTF8Type = 1;

// Thrown inside this unit for anything refused; never escapes it.
struct Refused {};

void require(bool condition) {
  if (!condition) throw Refused{};
}

void expandOrRefuse(AtomNode& node, std::size_t preambleLength = 0) {
  require(node.expand(preambleLength));
}

// QuickTime writes "meta" as a plain container, ISO files as a full box with 4 bytes of
// version and flags before the children. Either way its first child is the handler.
std::optional<std::size_t> metaPreamble(const AtomNode& meta) {
  const std::span<const std::uint8_t> body = meta.payload();
  if (body.size() >= 8 && readBigEndian(body, 4, 4) == kHdlr) return 0;
  if (body.size() >= 12 && readBigEndian(body, 8, 4) == kHdlr) return 4;
  return std::nullopt;
}

// The handler type of an expanded meta atom (0 when it has no readable handler).
std::uint32_t handlerType(AtomNode& meta) {
  const AtomNode* handler = meta.child(kHdlr);
  if (handler == nullptr || handler->expanded || handler->payload().size() < 12) return 0;
  return static_cast<std::uint32_t>(readBigEndian(handler->payload(), 8, 4));
}

// Expands a meta atom whose layout is recognised; false leaves an unknown one alone.
bool expandMeta(AtomNode& meta) {
  const std::optional<std::size_t> preamble = metaPreamble(meta);
  if (!preamble) return false;
  expandOrRefuse(meta, *preamble);
  return true;
}

struct Key {
  std::uint32_t nameSpace = 0;
  Bytes name;
};

AtomNode makeDataItem(std::uint32_t index, std::string_view value) {
  Bytes data;
  appendU32(data, kUTF8Type);
  appendU32(data, 0);  // no locale
  data.insert(data.end(), value.begin(), value.end());
  Bytes item;
  makeAtom(fourCC("data"), data).appendTo(item);
  return makeAtom(index, item);
}

// Removes the items under `removedKeys` from an mdta key list and its item list, renumbers the
// items that stay, and appends `added`. Refuses lists that disagree.
void editKeyedItems(AtomNode& meta, const std::set<std::string, std::less<>>& removedKeys,
                    const std::vector<QuickTimeMetadataEdit::Item>& added) {
  require(meta.count(kKeys) <= 1 && meta.count(kIlst) <= 1);
  AtomNode* keysAtom = meta.child(kKeys);
  AtomNode* itemsAtom = meta.child(kIlst);
  std::uint32_t keysFlags = 0;
  std::vector<Key> keys;
  if (keysAtom != nullptr) {
    const std::span<const std::uint8_t> body = keysAtom->payload();
    require(!keysAtom->expanded && body.size() >= 8);
    keysFlags = static_cast<std::uint32_t>(readBigEndian(body, 0, 4));
    const std::uint64_t count = readBigEndian(body, 4, 4);
    std::size_t position = 8;
    for (std::uint64_t i = 0; i < count; ++i) {
      require(body.size() - position >= 8);
      const std::uint64_t size = readBigEndian(body, position, 4);
      require(size >= 8 && size <= body.size() - position);
      keys.push_back({static_cast<std::uint32_t>(readBigEndian(body, position + 4, 4)),
                      Bytes(body.begin() + static_cast<std::ptrdiff_t>(position + 8),
                            body.begin() + static_cast<std::ptrdiff_t>(position + size))});
      position += static_cast<std::size_t>(size);
    }
    require(position == body.size());
  }
  if (itemsAtom != nullptr) {
    expandOrRefuse(*itemsAtom);
    for (const AtomNode& item : itemsAtom->children) {
      require(item.type >= 1 && item.type <= keys.size());
    }
  }
  // New numbers of the keys that stay (1-based; 0: removed).
  std::vector<std::uint32_t> renumbered(keys.size() + 1, 0);
  std::vector<Key> kept;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const std::string_view name(reinterpret_cast<const char*>(keys[i].name.data()),
                                keys[i].name.size());
    if (keys[i].nameSpace == kMdta && removedKeys.contains(name)) continue;
    kept.push_back(keys[i]);
    renumbered[i + 1] = static_cast<std::uint32_t>(kept.size());
  }
  if (kept.size() == keys.size() && added.empty()) return;
  std::vector<AtomNode> items;
  if (itemsAtom != nullptr) {
    for (AtomNode& item : itemsAtom->children) {
      const std::uint32_t index = renumbered[item.type];
      if (index == 0) continue;
      if (index != item.type) {
        require(!item.expanded && item.raw.size() >= 8);
        item.type = index;
        for (int i = 0; i < 4; ++i)
          item.raw[4 + i] = static_cast<std::uint8_t>(index >> (24 - 8 * i));
      }
      items.push_back(std::move(item));
    }
  }
  for (const QuickTimeMetadataEdit::Item& item : added) {
    kept.push_back({kMdta, Bytes(item.key.begin(), item.key.end())});
    items.push_back(makeDataItem(static_cast<std::uint32_t>(kept.size()), item.value));
  }
  require(kept.size() <= std::numeric_limits<std::uint32_t>::max());
  Bytes keysBody;
  appendU32(keysBody, keysFlags);
  appendU32(keysBody, static_cast<std::uint32_t>(kept.size()));
  for (const Key& key : kept) {
    require(key.name.size() <= std::numeric_limits<std::uint32_t>::max() - 8);
    appendU32(keysBody, static_cast<std::uint32_t>(key.name.size() + 8));
    appendU32(keysBody, key.nameSpace);
    keysBody.insert(keysBody.end(), key.name.begin(), key.name.end());
  }
  AtomNode newKeys = makeAtom(kKeys, keysBody);
  if (keysAtom != nullptr) {
    *keysAtom = std::move(newKeys);
  } else {
    meta.children.push_back(std::move(newKeys));
  }
  if (itemsAtom == nullptr) {
    meta.children.push_back(makeAtom(kIlst, {}));
    itemsAtom = &meta.children.back();
    expandOrRefuse(*itemsAtom);
  }
  itemsAtom->children = std::move(items);
}

AtomNode makeMetadataAtom() {
  // A QuickTime handler: version and flags, component type, subtype "mdta", 12 reserved bytes
  // and an empty name.
  Bytes handler(4 + 4, 0);
  appendU32(handler, kMdta);
  handler.insert(handler.end(), 13, 0);
  AtomNode meta = makeAtom(kMeta, {});
  expandOrRefuse(meta);
  meta.children.push_back(makeAtom(kHdlr, handler));
  return meta;
}

// Returns the user data's own mdta key list, if it has one (ffmpeg writes its keys there).
AtomNode* removeUserData(AtomNode& userData, const QuickTimeMetadataEdit& edit,
                         const std::set<std::string, std::less<>>& removedKeys) {
  AtomNode* keyed = nullptr;
  if (edit.removeUserData.empty() && removedKeys.empty()) return keyed;
  expandOrRefuse(userData);
  std::erase_if(userData.children, [&](const AtomNode& node) {
    return std::find(edit.removeUserData.begin(), edit.removeUserData.end(), node.type) !=
           edit.removeUserData.end();
  });
  for (AtomNode& node : userData.children) {
    if (node.type != kMeta || !expandMeta(node)) continue;
    const std::uint32_t handler = handlerType(node);
    if (handler == kMdta) {
      editKeyedItems(node, removedKeys, {});
      require(keyed == nullptr);
      keyed = &node;
    } else if (handler == kMdir && node.count(kIlst) == 1) {
      AtomNode* items = node.child(kIlst);
      expandOrRefuse(*items);
      std::erase_if(items->children, [&](const AtomNode& item) {
        return std::find(edit.removeUserData.begin(), edit.removeUserData.end(), item.type) !=
               edit.removeUserData.end();
      });
    }
  }
  return keyed;
}

// One chunk offset table of a track, decoded.
struct ChunkOffsets {
  AtomNode* atom = nullptr;
  std::uint32_t flags = 0;
  bool wide = false;  // co64
  std::vector<std::uint64_t> offsets;
  Bytes padding;  // bytes after the last entry, kept as found
};

ChunkOffsets readChunkOffsets(AtomNode& atom) {
  ChunkOffsets table{&atom, 0, atom.type == kCo64, {}, {}};
  const std::span<const std::uint8_t> body = atom.payload();
  require(!atom.expanded && body.size() >= 8);
  table.flags = static_cast<std::uint32_t>(readBigEndian(body, 0, 4));
  const std::uint64_t count = readBigEndian(body, 4, 4);
  const int width = table.wide ? 8 : 4;
  // Some editors empty a table without shrinking it: extra bytes are kept, missing ones refused.
  require((body.size() - 8) / width >= count);
  table.offsets.reserve(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    table.offsets.push_back(readBigEndian(body, 8 + i * width, width));
  }
  table.padding.assign(body.begin() + static_cast<std::ptrdiff_t>(8 + count * width), body.end());
  return table;
}

void collectChunkOffsets(AtomNode& track, std::vector<ChunkOffsets>& tables,
                         bool& auxiliaryOffsets) {
  expandOrRefuse(track);
  AtomNode* media = track.child(fourCC("mdia"));
  if (media == nullptr) return;
  expandOrRefuse(*media);
  AtomNode* information = media->child(fourCC("minf"));
  if (information == nullptr) return;
  expandOrRefuse(*information);
  AtomNode* samples = information->child(fourCC("stbl"));
  if (samples == nullptr) return;
  expandOrRefuse(*samples);
  for (AtomNode& node : samples->children) {
    if (node.type == kStco || node.type == kCo64) tables.push_back(readChunkOffsets(node));
    // Sample auxiliary information points into the file too; not worth moving by hand.
    if (node.type == fourCC("saio")) auxiliaryOffsets = true;
  }
}

// Moves every offset past the old movie atom by the change in its size, widening 32-bit
// tables that would overflow (which grows the atom again, hence the loop).
void moveChunkOffsets(AtomNode& movie, std::vector<ChunkOffsets>& tables, std::uint64_t oldStart,
                      std::uint64_t oldSize, bool auxiliaryOffsets) {
  const std::uint64_t oldEnd = oldStart + oldSize;
  for (const ChunkOffsets& table : tables) {
    for (const std::uint64_t offset : table.offsets) require(offset < oldStart || offset >= oldEnd);
  }
  std::vector<bool> widened(tables.size(), false);
  std::int64_t delta = 0;
  for (bool changed = true; changed;) {
    changed = false;
    std::uint64_t newSize = movie.size();
    for (std::size_t i = 0; i < tables.size(); ++i) {
      if (widened[i]) newSize += 4 * tables[i].offsets.size();
    }
    require(newSize <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
    delta = static_cast<std::int64_t>(newSize) - static_cast<std::int64_t>(oldSize);
    for (std::size_t i = 0; i < tables.size(); ++i) {
      if (tables[i].wide || widened[i]) continue;
      for (const std::uint64_t offset : tables[i].offsets) {
        if (offset >= oldEnd && offset + delta > std::numeric_limits<std::uint32_t>::max()) {
          widened[i] = changed = true;
          break;
        }
      }
    }
  }
  if (delta == 0) return;
  require(!auxiliaryOffsets);
  for (std::size_t i = 0; i < tables.size(); ++i) {
    ChunkOffsets& table = tables[i];
    const bool wide = table.wide || widened[i];
    Bytes body;
    appendU32(body, table.flags);
    appendU32(body, static_cast<std::uint32_t>(table.offsets.size()));
    for (const std::uint64_t offset : table.offsets) {
      const std::uint64_t moved = offset >= oldEnd ? offset + delta : offset;
      if (wide) {
        appendU64(body, moved);
      } else {
        appendU32(body, static_cast<std::uint32_t>(moved));
      }
    }
    body.insert(body.end(), table.padding.begin(), table.padding.end());
    *table.atom = makeAtom(wide ? kCo64 : kStco, body);
  }
}

Bytes rewriteOrThrow(std::span<const std::uint8_t> movieAtom, std::uint64_t movieStart,
                     const QuickTimeMetadataEdit& edit) {
  std::optional<std::vector<AtomNode>> top = parseAtoms(movieAtom, nullptr);
  require(top && top->size() == 1 && top->front().type == fourCC("moov"));
  AtomNode movie = std::move(top->front());
  const std::uint64_t oldSize = movie.size();
  expandOrRefuse(movie);
  require(movie.count(fourCC("mvhd")) == 1 && movie.count(fourCC("mvex")) == 0);

  std::set<std::string, std::less<>> removedKeys;
  for (const QuickTimeMetadataEdit::Item& item : edit.items) removedKeys.insert(item.key);
  removedKeys.insert(edit.removeKeys.begin(), edit.removeKeys.end());
  std::vector<ChunkOffsets> tables;
  bool auxiliaryOffsets = false;
  AtomNode* target = nullptr;
  AtomNode* userDataKeyed = nullptr;
  for (AtomNode& node : movie.children) {
    if (node.type == fourCC("trak")) {
      collectChunkOffsets(node, tables, auxiliaryOffsets);
    } else if (node.type == fourCC("udta")) {
      if (AtomNode* keyed = removeUserData(node, edit, removedKeys)) userDataKeyed = keyed;
    } else if (node.type == kMeta && expandMeta(node) && handlerType(node) == kMdta) {
      require(target == nullptr);
      target = &node;
    }
  }
  // Readers keep one key list at a time, so a movie whose keys live in its user data gets the new
  // items there rather than a second list.
  if (target == nullptr) target = userDataKeyed;
  if (target != nullptr) {
    editKeyedItems(*target, removedKeys, edit.items);
  } else if (!edit.items.empty()) {
    // Right after the movie header, so readers that keep the first value they meet see ours.
    const auto header =
        std::find_if(movie.children.begin(), movie.children.end(),
                     [](const AtomNode& node) { return node.type == fourCC("mvhd"); });
    const auto inserted = movie.children.insert(header + 1, makeMetadataAtom());
    editKeyedItems(*inserted, removedKeys, edit.items);
    // The insertion moved the children; the tables point into them again after a new pass.
    tables.clear();
    for (AtomNode& node : movie.children) {
      if (node.type == fourCC("trak")) collectChunkOffsets(node, tables, auxiliaryOffsets);
    }
  }
  moveChunkOffsets(movie, tables, movieStart, oldSize, auxiliaryOffsets);
  Bytes out;
  out.reserve(movie.size());
  movie.appendTo(out);
  return out;
}

}  // namespace

std::optional<Bytes> rewriteMovieAtom(std::span<const std::uint8_t> movieAtom,
                                      std::uint64_t movieStart, const QuickTimeMetadataEdit& edit) {
  try {
    return rewriteOrThrow(movieAtom, movieStart, edit);
  } catch (const Refused&) {
    return std::nullopt;
  } catch (const std::out_of_range&) {
    return std::nullopt;
  } catch (const std::length_error&) {
    return std::nullopt;
  }
}

}  // namespace quillmere::QuickTimeMetadataRewriter
