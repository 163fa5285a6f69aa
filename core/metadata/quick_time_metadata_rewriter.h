#ifndef QUILLMERE_CORE_METADATA_QUICK_TIME_METADATA_REWRITER_H_
#define QUILLMERE_CORE_METADATA_QUICK_TIME_METADATA_REWRITER_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/sources/byte_view.h"

namespace quillmere {

// What to change in a movie's metadata.
struct QuickTimeMetadataEdit {
  // A metadata item in the QuickTime key space ("mdta"), stored as UTF-8 text.
  struct Item {
    std::string key;  // "com.apple.quicktime.creationdate", ...
    std::string value;
    bool operator==(const Item&) const = default;
  };

  // Written, in this order, after the movie's other items in its mdta list (moov/meta, else the
  // one in moov/udta/meta that ffmpeg writes, else a new moov/meta right after the header).
  std::vector<Item> items;
  // Keys whose items are removed from every mdta list first; the items' own keys, and the
  // plain names ffmpeg gives the same facts, belong here.
  std::vector<std::string> removeKeys;
  // User-data item types ("\xA9" "day", "\xA9" "xyz", ...) that state the same facts in the
  // older key spaces: removed from moov/udta and from the iTunes item list inside it, so that
  // no reader is left to choose between an old and a new value.
  std::vector<std::uint32_t> removeUserData;
  // Stamped into the movie header (mvhd) as its creation time, seconds since the Unix epoch.
  std::optional<double> creationTime;

  bool operator==(const QuickTimeMetadataEdit&) const = default;
};

// Rewrites the metadata of a QuickTime or MPEG-4 movie without remuxing: only the movie atom
// (moov) changes; every other atom, the media data among them, is copied byte for byte, and
// inside moov everything the edit does not touch (tracks, edit lists, timed metadata, other
// items) keeps its bytes. When moov lies before the media data, the chunk offsets of every track
// move with it (32-bit tables become 64-bit ones where an offset would no longer fit).
// Anything malformed or unexpected (a size that lies, a file ending inside an atom, no movie
// header, keys and items that disagree, fragmented movies) is refused. Any thread.
namespace QuickTimeMetadataRewriter {

// The new movie atom for `movieAtom`, the whole moov atom (header included) as found at byte
// `movieStart` of its file. Offsets at or beyond its end move by the change in its size.
// Absent when the atom is refused. The movie header's creation time is not touched.
std::optional<Bytes> rewriteMovieAtom(std::span<const std::uint8_t> movieAtom,
                                      std::uint64_t movieStart, const QuickTimeMetadataEdit& edit);

// Writes the edited copy of `source` to `destination` through a temporary file in the same
// folder that is stamped with the creation time (where the header can hold it; otherwise left
// as it was) and then renamed into place. False, with nothing
// left at `destination` or beside it, when the movie is refused or the file system fails. The
// source is only read. Memory stays bounded by the movie atom (refused above 256 MiB).
bool rewrite(const QuickTimeMetadataEdit& edit, const std::filesystem::path& source,
             const std::filesystem::path& destination);

}  // namespace QuickTimeMetadataRewriter
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_QUICK_TIME_METADATA_REWRITER_H_
