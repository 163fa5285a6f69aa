#include "core/scan/sidecar_matcher.h"

#include <algorithm>
#include <charconv>
#include <tuple>

#include "core/sources/media_kind.h"
#include "core/sources/unicode_text.h"

namespace quillmere::SidecarMatcher {
namespace {

constexpr std::string_view kSupplemental = ".supplemental-metadata";
constexpr std::string_view kJSONExtension = ".json";
constexpr std::size_t kMinimumCutStem = 40;  // characters of a JSON stem cut inside the name
constexpr int kBestPossible = 100;
// Each name's characters live in their own heap block; fetching a few names ahead keeps a scan
// of a big folder from waiting on memory for every name.
constexpr std::size_t kPrefetchDistance = 8;

// A base name folded for comparison, with the part rule 70 compares.
struct FoldedBase {
  std::string text;
  std::string withoutExtension;  // empty when there is no extension to remove
};

std::vector<FoldedBase> foldBases(std::span<const std::string> bases) {
  std::vector<FoldedBase> folded;
  folded.reserve(bases.size());
  for (const std::string& base : bases) {
    std::string text = UnicodeText::lowercased(base);
    // A repeated base can never beat its own earlier score; skipping it changes nothing.
    bool repeated = false;
    for (const FoldedBase& earlier : folded) repeated = repeated || earlier.text == text;
    if (repeated) continue;
    const std::size_t dot = text.rfind('.');
    std::string withoutExtension = dot == std::string::npos ? std::string() : text.substr(0, dot);
    folded.push_back({std::move(text), std::move(withoutExtension)});
  }
  return folded;
}

// The rules, on folded texts.
int ruleScore(const FoldedBase& base, std::string_view stem) {
  const std::string_view b = base.text;
  // Only a nameless media file has an empty base; it must not claim a JSON file named ".json".
  if (b.empty()) return 0;
  if (stem.size() > b.size() && stem.starts_with(b)) {
    const std::string_view rest = stem.substr(b.size());
    if (rest == kSupplemental) return 100;
    // The suffix cut short, possibly right after its dot; the dot must be a character of its
    // own, not the start of one with a combining mark.
    if (rest.size() < kSupplemental.size() && kSupplemental.starts_with(rest) &&
        UnicodeText::isGraphemeBoundary(stem, b.size() + 1)) {
      return 90;
    }
    return 0;  // longer than the base: none of the rules below can hold
  }
  if (stem == b) return 80;
  if (!base.withoutExtension.empty() && stem == base.withoutExtension) return 70;
  // Each character takes at least one byte, so a stem of fewer bytes can be skipped at once.
  if (stem.size() >= kMinimumCutStem && b.starts_with(stem) &&
      UnicodeText::isGraphemeBoundary(b, stem.size()) &&
      UnicodeText::graphemeCount(stem) >= kMinimumCutStem) {
    return 60;
  }
  return 0;
}

// Keeps the first candidate with the highest score over all bases.
class BestCandidate {
 public:
  BestCandidate(std::span<const FoldedBase> bases, std::optional<std::int64_t> n)
      : bases_(bases), n_(n) {}

  bool accepts(std::optional<std::int64_t> n) const { return n == n_; }

  // Scores candidate `index`; returns false once no later candidate can win.
  bool offer(std::size_t index, std::string_view foldedStem) {
    for (const FoldedBase& base : bases_) {
      const int score = ruleScore(base, foldedStem);
      if (score > score_) {
        score_ = score;
        index_ = index;
      }
    }
    return score_ < kBestPossible;
  }

  std::optional<std::size_t> index() const { return index_; }

 private:
  std::span<const FoldedBase> bases_;
  std::optional<std::int64_t> n_;
  int score_ = 0;
  std::optional<std::size_t> index_;
};

std::optional<std::size_t> bestIndex(std::span<const FoldedBase> bases,
                                     std::optional<std::int64_t> n,
                                     std::span<const Candidate> candidates) {
  BestCandidate best(bases, n);
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (i + kPrefetchDistance < candidates.size()) {
      __builtin_prefetch(candidates[i + kPrefetchDistance].foldedStem.data());
    }
    if (!best.accepts(candidates[i].n)) continue;
    if (!best.offer(i, candidates[i].foldedStem)) break;
  }
  return best.index();
}

// Stem and marker of a JSON name, without copying it.
StrippedMarker splitJSONName(std::string_view name) {
  if (const auto extension = UnicodeText::suffixIgnoringCase(name, kJSONExtension)) {
    name.remove_suffix(extension->size());
  }
  return stripDuplicateMarker(name);
}

// Takes every name apart again, folding into one reused buffer only the stems that may match.
std::optional<std::size_t> bestIndex(std::span<const FoldedBase> bases,
                                     std::optional<std::int64_t> n,
                                     std::span<const std::string> jsonNames) {
  BestCandidate best(bases, n);
  std::string folded;
  for (std::size_t i = 0; i < jsonNames.size(); ++i) {
    if (i + kPrefetchDistance < jsonNames.size()) {
      __builtin_prefetch(jsonNames[i + kPrefetchDistance].data());
    }
    const StrippedMarker split = splitJSONName(jsonNames[i]);
    if (!best.accepts(split.n)) continue;
    // Every rule needs the stem and a base to begin alike; most names of a folder part within
    // their first characters, which is cheaper to see than to fold the whole name.
    bool related = false;
    for (const FoldedBase& base : bases) {
      related = related || !UnicodeText::foldedPrefixesDiffer(split.text, base.text);
    }
    if (!related) continue;
    UnicodeText::lowercased(split.text, folded);
    if (!best.offer(i, folded)) break;
  }
  return best.index();
}

using IndexEntries = std::span<const FolderIndex::Entry>;

// Keeps the highest score, and of equal scores the earliest name of the folder, wherever the
// lookups find them.
struct EarliestBest {
  int score = 0;
  std::optional<std::size_t> position;

  void offer(int candidateScore, std::size_t candidatePosition) {
    if (candidateScore > score ||
        (candidateScore > 0 && candidateScore == score && candidatePosition < *position)) {
      score = candidateScore;
      position = candidatePosition;
    }
  }
};

// The entries (sorted) whose stems begin with `prefix`, bytewise.
IndexEntries entriesBeginningWith(IndexEntries entries, std::string_view prefix) {
  const auto head = [prefix](const FolderIndex::Entry& entry) {
    return std::string_view(entry.foldedStem).substr(0, prefix.size());
  };
  const auto first = std::partition_point(entries.begin(), entries.end(),
                                          [&](const auto& entry) { return head(entry) < prefix; });
  const auto last = std::partition_point(first, entries.end(),
                                         [&](const auto& entry) { return head(entry) == prefix; });
  return {first, last};
}

// Scores the first entry with marker `n` whose stem is a beginning of `text`, for each length
// from `from` bytes to all of `text`. Each step searches only among the stems that began with
// the shorter beginning, and the walk ends when none is left.
void offerBeginnings(IndexEntries entries, const FoldedBase& base, std::string_view text,
                     std::size_t from, std::optional<std::int64_t> n, EarliestBest& best) {
  for (std::size_t length = from; length <= text.size(); ++length) {
    entries = entriesBeginningWith(entries, text.substr(0, length));
    if (entries.empty()) return;
    // Stems of exactly this length sort first, by marker and then position.
    const auto found = std::partition_point(entries.begin(), entries.end(), [&](const auto& entry) {
      return entry.foldedStem.size() == length && entry.n < n;
    });
    if (found != entries.end() && found->foldedStem.size() == length && found->n == n) {
      best.offer(ruleScore(base, found->foldedStem), found->position);
    }
  }
}

// Every rule relates the stem and the base by a beginning: the stem is the base followed by a
// beginning of ".supplemental-metadata" (100, 90), the base (80), the base without extension
// (70), or a beginning of the base of at least 40 bytes (60). Those are the only stems looked
// up; ruleScore() still decides.
std::optional<std::size_t> bestIndex(std::span<const FoldedBase> bases,
                                     std::optional<std::int64_t> n, IndexEntries entries) {
  EarliestBest best;
  for (const FoldedBase& base : bases) {
    const std::string& text = base.text;
    if (text.empty()) continue;
    offerBeginnings(entries, base, text + std::string(kSupplemental), text.size() + 1, n, best);
    offerBeginnings(entries, base, text, std::min(text.size(), kMinimumCutStem), n, best);
    const std::string& shorter = base.withoutExtension;
    if (!shorter.empty()) offerBeginnings(entries, base, shorter, shorter.size(), n, best);
  }
  return best.position;
}

std::string joinBase(std::string_view stem, std::string_view ext) {
  std::string base(stem);
  if (!ext.empty()) {
    base += '.';
    base += ext;
  }
  return base;
}

// The media's own base, then the base without an edited suffix.
std::vector<std::string> ownBases(const Media& media) {
  std::vector<std::string> bases = {media.base};
  for (const std::string_view suffix : editedSuffixes) {
    if (const auto tail = UnicodeText::suffixIgnoringCase(media.stem, suffix)) {
      const std::string_view original =
          std::string_view(media.stem).substr(0, media.stem.size() - tail->size());
      bases.push_back(joinBase(original, media.ext));
      break;
    }
  }
  return bases;
}

std::vector<std::string> livePhotoBases(const Media& media) {
  std::vector<std::string> bases;
  for (const std::string_view extension : livePhotoStillExtensions) {
    bases.push_back(joinBase(media.stem, extension));
  }
  return bases;
}

template <typename Names>
std::optional<std::size_t> matchIndex(std::string_view mediaName, Names names) {
  const Media media = parseMedia(mediaName);
  if (auto found = bestIndex(foldBases(ownBases(media)), media.n, names)) return found;
  if (mediaKindOf(mediaName) != MediaKind::video) return std::nullopt;
  return bestIndex(foldBases(livePhotoBases(media)), media.n, names);
}

}  // namespace

StrippedMarker stripDuplicateMarker(std::string_view text) {
  const StrippedMarker none{text, std::nullopt};
  if (!text.ends_with(')')) return none;
  const std::size_t open = text.rfind('(');
  if (open == std::string_view::npos) return none;
  const std::string_view digits = text.substr(open + 1, text.size() - open - 2);
  if (digits.empty()) return none;
  // Digits of other scripts would not parse as a decimal integer either.
  for (const char c : digits) {
    if (c < '0' || c > '9') return none;
  }
  std::int64_t n = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
  if (error != std::errc() || end != digits.data() + digits.size()) return none;
  // A "(" fused into a character with what precedes it is not a parenthesis of its own.
  if (!UnicodeText::isGraphemeBoundary(text, open)) return none;
  return {text.substr(0, open), n};
}

Media parseMedia(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  const std::string_view fullStem = dot == std::string_view::npos ? name : name.substr(0, dot);
  const std::string_view ext =
      dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
  const StrippedMarker split = stripDuplicateMarker(fullStem);
  return {std::string(split.text), std::string(ext), split.n, joinBase(split.text, ext)};
}

Candidate candidate(std::string_view jsonName) {
  const StrippedMarker split = splitJSONName(jsonName);
  return {std::string(jsonName), std::string(split.text), split.n,
          UnicodeText::lowercased(split.text)};
}

std::vector<Candidate> candidates(std::span<const std::string> jsonNames) {
  std::vector<Candidate> result;
  result.reserve(jsonNames.size());
  for (const std::string& name : jsonNames) result.push_back(candidate(name));
  return result;
}

int score(std::string_view base, std::string_view stem) {
  const std::string baseText(base);
  const std::vector<FoldedBase> folded = foldBases(std::span(&baseText, 1));
  return ruleScore(folded.front(), UnicodeText::lowercased(stem));
}

std::optional<std::string> best(std::span<const std::string> bases, std::optional<std::int64_t> n,
                                std::span<const Candidate> candidates) {
  const auto found = bestIndex(foldBases(bases), n, candidates);
  if (!found) return std::nullopt;
  return candidates[*found].name;
}

std::optional<std::string> match(std::string_view mediaName,
                                 std::span<const std::string> jsonNames) {
  const auto found = matchIndex(mediaName, jsonNames);
  if (!found) return std::nullopt;
  return jsonNames[*found];
}

std::optional<std::string> match(std::string_view mediaName,
                                 std::span<const Candidate> candidates) {
  const auto found = matchIndex(mediaName, candidates);
  if (!found) return std::nullopt;
  return candidates[*found].name;
}

FolderIndex::FolderIndex(std::vector<std::string> jsonNames) : names_(std::move(jsonNames)) {
  entries_.reserve(names_.size());
  for (std::size_t i = 0; i < names_.size(); ++i) {
    const StrippedMarker split = splitJSONName(names_[i]);
    entries_.push_back({UnicodeText::lowercased(split.text), split.n, i});
  }
  std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.foldedStem, a.n, a.position) < std::tie(b.foldedStem, b.n, b.position);
  });
}

std::optional<std::string> FolderIndex::match(std::string_view mediaName) const {
  const auto found = matchIndex(mediaName, IndexEntries(entries_));
  if (!found) return std::nullopt;
  return names_[*found];
}

}  // namespace quillmere::SidecarMatcher
