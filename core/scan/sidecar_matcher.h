#ifndef QUILLMERE_CORE_SCAN_SIDECAR_MATCHER_H_
#define QUILLMERE_CORE_SCAN_SIDECAR_MATCHER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere {

// Decides, from names alone, which JSON file of a Takeout folder holds the metadata of a media
// file. Google names them inconsistently: the JSON name is the media name plus
// ".supplemental-metadata.json" or ".json", possibly without the media extension, possibly cut
// short; the duplicate marker "(n)" moves to the end of the JSON name; edited copies share their
// original's JSON; the movie of a Live Photo shares its still's. Every candidate is scored and
// the best kept. Pure functions: no state, no file access, safe on any thread.
//
// Names are compared without regard to letter case (in any script) or Unicode normalisation,
// and lengths are counted in user-perceived characters, so a Japanese or Korean name behaves
// like its Latin twin.
namespace SidecarMatcher {

// A media file name taken apart.
struct Media {
  std::string stem;               // without extension and without a trailing duplicate marker
  std::string ext;                // text after the last ".", case kept; empty if none
  std::optional<std::int64_t> n;  // the duplicate marker's number
  std::string base;               // stem + "." + ext, or stem alone when ext is empty

  bool operator==(const Media&) const = default;
};

// A JSON file name taken apart; see candidate().
struct Candidate {
  std::string name;               // exactly as given
  std::string stem;               // without ".json" and without a trailing duplicate marker
  std::optional<std::int64_t> n;  // the duplicate marker's number
  std::string foldedStem;         // UnicodeText::lowercased(stem), what the rules compare

  bool operator==(const Candidate&) const = default;
};

// Suffixes by which Google marks an edited copy, in the order they are tried.
inline constexpr std::array<std::string_view, 14> editedSuffixes = {
    "-edited",    "-bearbeitet", "-modifié",   "-editado",  "-modificato", "-bewerkt", "-redigerad",
    "-redigeret", "-muokattu",   "-edytowane", "-編集済み", "-편집됨",     "-已编辑",  "-已編輯"};

// Still-image extensions whose JSON a Live Photo's movie may share, in the order tried.
inline constexpr std::array<std::string_view, 10> livePhotoStillExtensions = {
    "heic", "HEIC", "jpg", "JPG", "jpeg", "JPEG", "heif", "HEIF", "dng", "DNG"};

// A number in parentheses at the very end of a text.
struct StrippedMarker {
  std::string_view text;          // everything before the "(", exactly as written
  std::optional<std::int64_t> n;  // nullopt when there is no marker (text is then all of it)

  bool operator==(const StrippedMarker&) const = default;
};

// Splits off a trailing "(digits)" whose digits parse as a 64-bit decimal integer:
// "IMG_1234(1)" gives ("IMG_1234", 1), "IMG_1234 (12)" gives ("IMG_1234 ", 12); "IMG_1234()",
// "IMG_(a)" and a number too large for 64 bits have no marker.
StrippedMarker stripDuplicateMarker(std::string_view text);

// Takes a media file name (no folder part) apart.
Media parseMedia(std::string_view name);

// Takes a JSON file name apart: a final ".json" (any case) is dropped, then the duplicate
// marker. A name not ending in ".json" is a candidate with its whole name as stem.
Candidate candidate(std::string_view jsonName);
std::vector<Candidate> candidates(std::span<const std::string> jsonNames);

// The score of candidate stem `stem` for base name `base` (both as written; case is ignored),
// by the first rule that holds, or 0:
//   100  stem is base + ".supplemental-metadata"
//    90  stem is base + "." followed by a shorter beginning of "supplemental-metadata"
//    80  stem is base
//    70  stem is base without its extension (when that is not empty)
//    60  stem has at least 40 characters and base begins with it
// An empty base (a media name that is empty or only a duplicate marker) scores 0 with anything.
int score(std::string_view base, std::string_view stem);

// The name of the best-scoring candidate for any of `bases`, among the candidates whose marker
// number equals `n` (both absent, or equal). Ties go to the earlier candidate. nullopt when no
// candidate scores.
std::optional<std::string> best(std::span<const std::string> bases, std::optional<std::int64_t> n,
                                std::span<const Candidate> candidates);

// The JSON file of `mediaName` among `jsonNames` (all without folder parts): one of
// `jsonNames` exactly as given, or nullopt. Tries the media name, then, for an edited copy, the
// name without its edited suffix; a video (Live Photo movie) with no JSON of its own then tries
// its stem with each still-image extension. Ties go to the earlier name in `jsonNames`.
std::optional<std::string> match(std::string_view mediaName,
                                 std::span<const std::string> jsonNames);
// The same with the names of a folder taken apart once, for matching many media files against
// one folder.
std::optional<std::string> match(std::string_view mediaName, std::span<const Candidate> candidates);

// The JSON names of one folder, taken apart once and sorted by folded stem, so that each media
// file looks up, by binary search, only the few names its rules can relate it to instead of
// scoring them all; a big folder no longer costs time growing with the square of its size.
// Answers exactly as match(mediaName, jsonNames) does, ties included. Immutable once built;
// safe to share between threads.
class FolderIndex {
 public:
  // One JSON name, as sorted: by folded stem, then marker number, then position in the folder.
  struct Entry {
    std::string foldedStem;         // as Candidate::foldedStem
    std::optional<std::int64_t> n;  // the duplicate marker's number
    std::size_t position;           // index of the name in the folder's list

    bool operator==(const Entry&) const = default;
  };

  explicit FolderIndex(std::vector<std::string> jsonNames);

  // The JSON file of `mediaName`: one of the folder's names exactly as given, or nullopt.
  std::optional<std::string> match(std::string_view mediaName) const;

 private:
  std::vector<std::string> names_;
  std::vector<Entry> entries_;
};

}  // namespace SidecarMatcher
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_SIDECAR_MATCHER_H_
