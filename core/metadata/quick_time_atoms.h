#ifndef QUILLMERE_CORE_METADATA_QUICK_TIME_ATOMS_H_
#define QUILLMERE_CORE_METADATA_QUICK_TIME_ATOMS_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace quillmere {

// Finds atoms (boxes) of a QuickTime / ISO base media file and stamps the movie header's
// creation time in place. Plain file reads and writes; any thread.
namespace QuickTimeAtoms {

// One atom: its payload runs from start + headerLength to start + size.
struct Atom {
  std::uint64_t start = 0;
  std::uint64_t size = 0;
  std::uint32_t headerLength = 0;  // 8, or 16 with a 64-bit size

  std::uint64_t payloadStart() const { return start + headerLength; }
  std::uint64_t end() const { return start + size; }
  bool operator==(const Atom&) const = default;
};

// Seconds from 1904-01-01 (the QuickTime epoch) to 1970-01-01.
inline constexpr std::uint64_t kSecondsFrom1904To1970 = 2'082'844'800;

// The first atom of `type` (four characters) among the atoms that lie one after another between
// byte offsets `from` and `to` of the open file `descriptor`, without descending into children.
// A size of 0 runs to `to`; a size of 1 is followed by a 64-bit size. Absent when the search
// meets no such atom, or an atom that is too short or runs past `to` (which ends the search).
// Throws std::system_error when the file cannot be read.
std::optional<Atom> find(std::string_view type, int descriptor, std::uint64_t from,
                         std::uint64_t to);

// Writes `date` (seconds since the Unix epoch) as the creation time of the movie header
// (moov/mvhd) of `file`, in place: 4 bytes in a version-0 header, 8 in a version-1 header.
// Changes nothing when there is no moov or mvhd, the structure is malformed, the date lies
// before 1904, or a version-0 header cannot hold it (from 2040-02-06 06:28:15 UTC on). Nothing
// else in the file is touched. Throws std::system_error when the file cannot be opened, read
// or written.
void setMovieCreationTime(double date, const std::filesystem::path& file);

}  // namespace QuickTimeAtoms
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_QUICK_TIME_ATOMS_H_
