#include "core/scan/sidecar_matcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "core/sources/unicode_text.h"

namespace quillmere {
namespace {

using SidecarMatcher::StrippedMarker;

// A media name, the JSON names of its folder and the index of the one it matches (-1: none).
using MatchCase = std::tuple<std::string, std::vector<std::string>, int>;

// Every entry point must agree: names taken apart on every call, once per folder, or indexed.
void expectMatches(const std::vector<MatchCase>& cases) {
  for (const auto& [media, names, index] : cases) {
    SCOPED_TRACE("media " + media);
    const auto expected = index < 0 ? std::nullopt : std::optional(names[index]);
    EXPECT_EQ(SidecarMatcher::match(media, names), expected);
    EXPECT_EQ(SidecarMatcher::match(media, SidecarMatcher::candidates(names)), expected);
    EXPECT_EQ(SidecarMatcher::FolderIndex(names).match(media), expected);
  }
}

std::string repeat(std::string_view unit, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += unit;
  return text;
}

TEST(SidecarMatcherTest, ScoresOfEachRule) {
  const std::string longBase = "Screenshot_20200101-123456_Some Long App Name.jpg";  // 49
  const std::tuple<std::string, std::string, int> cases[] = {
      {"IMG_1.JPG", "img_1.jpg.SUPPLEMENTAL-METADATA", 100},
      {"img_1.jpg", "img_1.jpg.supplemental-met", 90},
      {"img_1.jpg", "img_1.jpg.", 90},  // cut right after the dot
      {"img_1.jpg", "img_1.jpg.supplemental-metadatax", 0},
      {"img_1.jpg", "img_1.jpg", 80},
      {"img_1.jpg", "img_1", 70},
      {".jpg", "", 0},  // removing the extension leaves nothing
      {longBase, longBase.substr(0, 40), 60},
      {longBase, longBase.substr(0, 39), 0},
      // The base must begin with the stem, not the other way round.
      {longBase, longBase + "-more", 0},
      {"", ".supplemental-metadata", 0},
  };
  for (const auto& [base, stem, expected] : cases) {
    SCOPED_TRACE("base " + base + " stem " + stem);
    EXPECT_EQ(SidecarMatcher::score(base, stem), expected);
  }
}

TEST(SidecarMatcherTest, DuplicateMarkers) {
  const std::tuple<std::string, std::string, std::optional<std::int64_t>> markers[] = {
      {"IMG_1234 (12)", "IMG_1234 ", 12},
      {"IMG_(1a)", "IMG_(1a)", std::nullopt},
      {"IMG(1)(2)", "IMG(1)", 2},
      {"IMG_(9223372036854775807)", "IMG_", 9223372036854775807},
      {"IMG_(9223372036854775808)", "IMG_(9223372036854775808)", std::nullopt},
      {"IMG_(１)", "IMG_(１)", std::nullopt},  // fullwidth digit
      {"IMG_(1)\xcc\x81", "IMG_(1)\xcc\x81", std::nullopt},
      // A prepended mark fuses with the "(" into one character: no parenthesis of its own.
      {"IMG\xd8\x80(1)", "IMG\xd8\x80(1)", std::nullopt},
  };
  for (const auto& [text, stripped, n] : markers) {
    SCOPED_TRACE("text " + text);
    EXPECT_EQ(SidecarMatcher::stripDuplicateMarker(text), (StrippedMarker{stripped, n}));
  }
}

TEST(SidecarMatcherTest, Matches) {
  const std::string longMedia = "Screenshot_20200101-123456_Some Long App Name.jpg";
  const std::string json = "IMG_1234.jpg.json";
  expectMatches({
      {"IMG_1234.JPG", {"IMG_1234.JPG.json", "IMG_1234.JPG.supplemental-metadata.json"}, 1},
      {longMedia, {longMedia.substr(0, 46) + ".json"}, 0},
      // Duplicate markers: the number moves to the end of the JSON name and must agree.
      {"IMG_1234(1).JPG", {"IMG_1234.JPG.json", "IMG_1234.JPG(1).json"}, 1},
      {"IMG_1234(2).JPG", {"IMG_1234.JPG(1).json"}, -1},
      {"(1).jpg", {".jpg(1).json"}, 0},
      // Live Photo movies fall back to the still's JSON, only when nothing else matched.
      {"IMG_1234.MOV", {"IMG_1234.HEIC.supplemental-metadata.json", "IMG_1234.MOV.json"}, 1},
      {"IMG_1234.MOV", {"IMG_1234.HEIC.supplemental-metadata.json"}, 0},
      {"PXL_20210101_120000000.MP", {"PXL_20210101_120000000.jpg.json"}, 0},
      {"IMG_1234(1).MOV", {"IMG_1234.HEIC(1).json"}, 0},
      {"IMG_1234.JPG", {"IMG_1234.HEIC.json"}, -1},  // never for a photo
      // Ties keep the earlier candidate; candidate order decides before base order.
      {"IMG_1234.JPG", {"img_1234.jpg.json", "IMG_1234.JPG.json"}, 0},
      {"IMG_1234.MOV", {"IMG_1234.jpg.json", "IMG_1234.heic.json"}, 0},
      // A higher score through the second base beats a lower one through the first.
      {"IMG_1234-edited.JPG",
       {"IMG_1234-edited.JPG.json", "IMG_1234.JPG.supplemental-metadata.json"},
       1},
      {"IMG_1234-edited.JPG", {"IMG_1234.JPG.json", "IMG_1234-edited.JPG.json"}, 0},
      // Edited copies share their original's JSON; one suffix is removed, in any case.
      {"IMG_1234-MODIFIÉ.jpg", {json}, 0},
      {"IMG_1234-modifie\xcc\x81.jpg", {json}, 0},  // NFD
      {"IMG_1234-已編輯.jpg", {json}, 0},
      {"IMG_1234-edited(1).jpg", {"IMG_1234.jpg.supplemental-metadata(1).json"}, 0},
      {"IMG-edited-edited.jpg", {"IMG.jpg.json"}, -1},
      {"IMG_1234edited.jpg", {json}, -1},
      {"IMG_1234-edited.MOV", {"IMG_1234-edited.HEIC.json"}, 0},
      // Letter case of any script and Unicode normalisation never matter; letters do.
      {"ŁÓDŹ.jpg", {"łódź.jpg.json"}, 0},
      {"ФОТО_1.jpg", {"фото_1.jpg.json"}, 0},
      {"Café.jpg", {"CAFE\xcc\x81.JPG.json"}, 0},
      {"Cafe.jpg", {"Café.jpg.json"}, -1},
      // Names that are empty, only a marker or not UTF-8.
      {"(1)", {"", ".json", "(1).json", "(1)"}, -1},
      {"IMG_1234.JPG", {"", ".json", "(1).json", "()", ")", "("}, -1},
      {"\xff\xfe.jpg", {"\xfe\xff.jpg.json", "\xff\xfe.jpg.json"}, 1},
  });
}

TEST(SidecarMatcherTest, NonLatinNamesCountCharactersNotBytes) {
  // Japanese and Korean characters take three bytes each; "q" with a combining acute (which has
  // no precomposed form) is two code points and three bytes, but one character.
  for (const std::string unit : {"x", "写", "사", "q\xcc\x81"}) {
    SCOPED_TRACE("unit " + unit);
    const std::string media = repeat(unit, 60) + ".jpg";
    expectMatches({
        {media, {repeat(unit, 40) + ".json"}, 0},
        {media, {repeat(unit, 39) + ".json"}, -1},
        {media, {repeat(unit, 14) + ".json"}, -1},
        {media, {repeat(unit, 60) + ".jpg.supplemental-metadata.json"}, 0},
    });
  }
  // A cut between a letter and its combining mark is not a beginning of the name.
  expectMatches({{repeat("q\xcc\x81", 60) + ".jpg", {repeat("q\xcc\x81", 40) + "q.json"}, -1}});
}

// Folders of random names built to lie close together: a few shared beginnings, long enough to
// be cut, of characters that fold, combine or take several bytes; media names with edited
// suffixes, markers and Live Photo extensions; JSON names in every style, cut at characters or
// at bytes, in other letter case.
class NastyFolders {
 public:
  explicit NastyFolders(unsigned seed) : random_(seed) {}

  // `jsonNames` and `media` of one folder.
  void make(std::vector<std::string>& jsonNames, std::vector<std::string>& media) {
    // The first beginning is ASCII, so that a cut of 40 characters is also one of 40 bytes.
    std::array<std::string, 3> beginnings;
    for (std::size_t b = 0; b < beginnings.size(); ++b) {
      for (std::size_t i = 0, count = pick(60); i < count; ++i) {
        beginnings[b] += kUnits[pick(b == 0 ? kASCIIUnits : kUnits.size())];
      }
    }
    jsonNames.clear();
    media.clear();
    for (std::size_t i = 0, count = 1 + pick(40); i < count; ++i) {
      std::string root = oneOf(beginnings);
      for (std::size_t j = 0, tail = pick(3); j < tail; ++j) root += oneOf(kUnits);
      media.push_back(mediaName(root));
      jsonNames.push_back(jsonName(pick(3) == 0 ? root : media.back()));
      if (pick(4) == 0) jsonNames.push_back(jsonName(media.back()));
    }
    std::shuffle(jsonNames.begin(), jsonNames.end(), random_);
  }

 private:
  static constexpr std::size_t kASCIIUnits = 8;
  static constexpr std::array<std::string_view, 20> kUnits = {
      "IMG_",      "img_",      "1", "2", " ", ".", "-", "(1)", "写", "사",
      "q\xcc\x81", "e\xcc\x81", "É", "é", "Σ", "σ", "ς", "Ж",   "ж",  "\xd8\x80"};
  static constexpr std::array<std::string_view, 9> kExtensions = {
      "", ".jpg", ".JPG", ".MOV", ".mp4", ".HEIC", ".heic", ".MP", ".json"};
  static constexpr std::array<std::string_view, 5> kMarkers = {"(1)", "(2)", " (1)", "(0)", "()"};

  std::size_t pick(std::size_t count) { return random_() % count; }
  template <typename Texts>
  std::string oneOf(const Texts& texts) {
    return std::string(texts[pick(texts.size())]);
  }

  std::string mediaName(std::string name) {
    if (pick(5) == 0) {
      const std::string suffix = oneOf(SidecarMatcher::editedSuffixes);
      const std::size_t style = pick(3);
      name += style == 0 ? suffix : style == 1 ? otherCase(suffix) : suffix + "X";
    }
    if (pick(3) == 0) name += oneOf(kMarkers);
    return name + oneOf(kExtensions);
  }

  // A JSON name for a media name or a bare beginning, in one of the styles seen in exports or
  // a near miss of one.
  std::string jsonName(std::string name) {
    std::string marker;
    if (const auto split = SidecarMatcher::stripDuplicateMarker(name); split.n && pick(2) == 0) {
      marker = name.substr(split.text.size());
      name.resize(split.text.size());
    }
    if (pick(3) == 0 && name.rfind('.') != std::string::npos) name.resize(name.rfind('.'));
    const std::string supplemental = ".supplemental-metadata";
    switch (pick(4)) {
      case 0:
        name += supplemental;
        break;
      case 1:
        name += supplemental.substr(0, pick(supplemental.size() + 2));
        break;
      case 2:
        name += supplemental + "x";
        break;
      default:
        break;
    }
    if (pick(3) == 0) {  // cut short at a character, or anywhere
      const std::size_t keep = 36 + pick(10), characters = UnicodeText::graphemeCount(name);
      const std::size_t drop = characters > keep ? characters - keep : 0;
      name.resize(pick(4) == 0 ? std::min(name.size(), keep + pick(8))
                               : name.size() - UnicodeText::lastGraphemes(name, drop).size());
    }
    if (pick(4) == 0) name += oneOf(kMarkers);
    name += marker;
    if (pick(4) == 0) name = otherCase(name);
    return name + oneOf(std::array<std::string_view, 4>{".json", ".json", ".JSON", ""});
  }

  // Swaps the case of the non-ASCII letters above and upper-cases ASCII.
  static std::string otherCase(std::string_view text) {
    static const std::array<std::pair<std::string_view, std::string_view>, 3> pairs = {
        {{"É", "é"}, {"Σ", "σ"}, {"Ж", "ж"}}};
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
      bool replaced = false;
      for (const auto& [upper, lower] : pairs) {
        for (const auto& [from, to] : {std::pair(upper, lower), std::pair(lower, upper)}) {
          if (!replaced && text.substr(i).starts_with(from)) {
            result += to;
            i += from.size();
            replaced = true;
          }
        }
      }
      if (!replaced) {
        const char c = text[i++];
        result += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
      }
    }
    return result;
  }

  std::mt19937 random_;
};

TEST(SidecarMatcherTest, IndexedMatchEqualsTheLinearOne) {
  NastyFolders folders(20190714);
  std::vector<std::string> jsonNames, media;
  std::set<int> scoresSeen;
  int matched = 0, unmatched = 0;
  for (int folder = 0; folder < 80; ++folder) {
    folders.make(jsonNames, media);
    const SidecarMatcher::FolderIndex index(jsonNames);
    for (const std::string& name : media) {
      const auto expected = SidecarMatcher::match(name, jsonNames);
      ASSERT_EQ(index.match(name), expected) << "folder " << folder << " media " << name;
      if (!expected) {
        ++unmatched;
        continue;
      }
      ++matched;
      scoresSeen.insert(SidecarMatcher::score(SidecarMatcher::parseMedia(name).base,
                                              SidecarMatcher::candidate(*expected).stem));
    }
  }
  // The folders must exercise every rule, with plenty matched and unmatched; 0 stands for
  // matches through an edited or a Live Photo name.
  EXPECT_EQ(scoresSeen, (std::set<int>{0, 60, 70, 80, 90, 100}));
  EXPECT_GT(matched, 500);
  EXPECT_GT(unmatched, 500);
}

}  // namespace
}  // namespace quillmere
