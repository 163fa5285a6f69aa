#include "core/scan/sidecar_matcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace quillmere {
namespace {

using SidecarMatcher::Candidate;
using SidecarMatcher::Media;
using SidecarMatcher::StrippedMarker;
using namespace std::string_literals;

struct MatchCase {
  std::string media;
  std::vector<std::string> jsonNames;
  std::optional<std::string> expected;
};

// Both entry points must agree: names taken apart on every call, or once per folder.
void expectMatches(const std::vector<MatchCase>& cases) {
  for (const MatchCase& c : cases) {
    SCOPED_TRACE("media " + c.media);
    EXPECT_EQ(SidecarMatcher::match(c.media, c.jsonNames), c.expected);
    EXPECT_EQ(SidecarMatcher::match(c.media, SidecarMatcher::candidates(c.jsonNames)), c.expected);
  }
}

std::string repeat(std::string_view unit, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += unit;
  return text;
}

TEST(SidecarMatcherTest, WorkedExamples) {
  expectMatches({
      {"IMG_1234.JPG",
       {"IMG_1234.JPG.supplemental-metadata.json", "IMG_1234.JPG.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234.JPG",
       {"IMG_1234.JPG.json", "IMG_1234.JPG.supplemental-metadata.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234.JPG", {"IMG_1234.JPG.supplemental-me.json"}, "IMG_1234.JPG.supplemental-me.json"},
      {"IMG_1234.JPG", {"IMG_1234.json"}, "IMG_1234.json"},
      {"IMG_1234(1).JPG", {"IMG_1234.JPG.json", "IMG_1234.JPG(1).json"}, "IMG_1234.JPG(1).json"},
      {"IMG_1234(1).JPG",
       {"IMG_1234.JPG.supplemental-metadata(1).json"},
       "IMG_1234.JPG.supplemental-metadata(1).json"},
      {"IMG_1234-edited.JPG",
       {"IMG_1234.JPG.supplemental-metadata.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234.MOV",
       {"IMG_1234.HEIC.supplemental-metadata.json"},
       "IMG_1234.HEIC.supplemental-metadata.json"},
      {"IMG_1234.MOV", {"IMG_1234.MOV.json", "IMG_1234.HEIC.json"}, "IMG_1234.MOV.json"},
      // The movie's own JSON wins even when the still's comes first: the Live Photo bases are
      // only tried when nothing else matched.
      {"IMG_1234.MOV",
       {"IMG_1234.HEIC.supplemental-metadata.json", "IMG_1234.MOV.json"},
       "IMG_1234.MOV.json"},
      {"PXL_20210101_120000000.MP",
       {"PXL_20210101_120000000.jpg.json"},
       "PXL_20210101_120000000.jpg.json"},
      {"IMG_1234.JPG", {"IMG_1235.JPG.json"}, std::nullopt},
  });
}

TEST(SidecarMatcherTest, ScoresOfEachRule) {
  const std::string longBase = "Screenshot_20200101-123456_Some Long App Name.jpg";  // 49
  struct Case {
    std::string base;
    std::string stem;
    int expected;
  };
  const std::vector<Case> cases = {
      {"img_1.jpg", "img_1.jpg.supplemental-metadata", 100},
      {"IMG_1.JPG", "img_1.jpg.SUPPLEMENTAL-METADATA", 100},
      {"img_1.jpg", "img_1.jpg.supplemental-met", 90},
      {"img_1.jpg", "img_1.jpg.", 90},  // cut right after the dot
      {"img_1.jpg", "img_1.jpg.s", 90},
      {"img_1.jpg", "img_1.jpg.supplemental-metadatax", 0},
      {"img_1.jpg", "img_1.jpg.supplemental-medatata", 0},
      {"img_1.jpg", "img_1.jpg.json", 0},
      {"img_1.jpg", "img_1.jpg", 80},
      {"img_1.jpg", "img_1", 70},
      {"img_1.jpg", "img_", 0},
      {".jpg", "", 0},  // removing the extension leaves nothing
      {"img_1", "img_1", 80},
      {"img_1", "img", 0},
      {"archive.tar.gz", "archive.tar", 70},
      {"archive.tar.gz", "archive", 0},
      {longBase, longBase.substr(0, 40), 60},
      {longBase, longBase.substr(0, 39), 0},
      {longBase, longBase.substr(0, 48), 60},
      // The base must begin with the stem, not the other way round.
      {"IMG_1234.JPG", "IMG_1234.JPG-and-a-continuation-of-more-than-forty", 0},
      {longBase, longBase + "-more", 0},
      {"", "", 0},
      {"", ".supplemental-metadata", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("base " + c.base + " stem " + c.stem);
    EXPECT_EQ(SidecarMatcher::score(c.base, c.stem), c.expected);
  }
}

TEST(SidecarMatcherTest, DuplicateMarker) {
  struct Case {
    std::string text;
    std::string stripped;
    std::optional<std::int64_t> n;
  };
  const std::vector<Case> cases = {
      {"IMG_1234(1)", "IMG_1234", 1},
      {"IMG_1234 (12)", "IMG_1234 ", 12},
      {"IMG_1234()", "IMG_1234()", std::nullopt},
      {"IMG_(a)", "IMG_(a)", std::nullopt},
      {"IMG_(1a)", "IMG_(1a)", std::nullopt},
      {"IMG_(-1)", "IMG_(-1)", std::nullopt},
      {"IMG_(+1)", "IMG_(+1)", std::nullopt},
      {"IMG_( 1)", "IMG_( 1)", std::nullopt},
      {"IMG_1234(1).JPG", "IMG_1234(1).JPG", std::nullopt},
      {"IMG_1234)", "IMG_1234)", std::nullopt},
      {"IMG(1)(2)", "IMG(1)", 2},
      {"IMG((3)", "IMG(", 3},
      {"IMG_(007)", "IMG_", 7},
      {"(1)", "", 1},
      {"()", "()", std::nullopt},
      {")", ")", std::nullopt},
      {"", "", std::nullopt},
      {"IMG_(9223372036854775807)", "IMG_", 9223372036854775807},
      {"IMG_(9223372036854775808)", "IMG_(9223372036854775808)", std::nullopt},
      {"IMG_(99999999999999999999999)", "IMG_(99999999999999999999999)", std::nullopt},
      {"IMG_(٣)", "IMG_(٣)", std::nullopt},    // Arabic-Indic digit
      {"IMG_(１)", "IMG_(１)", std::nullopt},  // fullwidth digit
      {"IMG_(1)\xcc\x81", "IMG_(1)\xcc\x81", std::nullopt},
      // A prepended mark fuses with the "(" into one character: no parenthesis of its own.
      {"IMG\xd8\x80(1)", "IMG\xd8\x80(1)", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("text " + c.text);
    EXPECT_EQ(SidecarMatcher::stripDuplicateMarker(c.text), (StrippedMarker{c.stripped, c.n}));
  }
}

TEST(SidecarMatcherTest, ParseMedia) {
  struct Case {
    std::string name;
    Media expected;
  };
  const std::vector<Case> cases = {
      {"IMG_1234.JPG", {"IMG_1234", "JPG", std::nullopt, "IMG_1234.JPG"}},
      {"IMG_1234(1).JPG", {"IMG_1234", "JPG", 1, "IMG_1234.JPG"}},
      {"IMG_1234 (2).jpg", {"IMG_1234 ", "jpg", 2, "IMG_1234 .jpg"}},
      {"IMG_1234", {"IMG_1234", "", std::nullopt, "IMG_1234"}},
      {"IMG_1234(3)", {"IMG_1234", "", 3, "IMG_1234"}},
      {"archive.tar.gz", {"archive.tar", "gz", std::nullopt, "archive.tar.gz"}},
      {"name.", {"name", "", std::nullopt, "name"}},
      {".hidden", {"", "hidden", std::nullopt, ".hidden"}},
      {"(1).jpg", {"", "jpg", 1, ".jpg"}},
      {"", {"", "", std::nullopt, ""}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("name " + c.name);
    EXPECT_EQ(SidecarMatcher::parseMedia(c.name), c.expected);
  }
}

TEST(SidecarMatcherTest, Candidates) {
  struct Case {
    std::string name;
    std::string stem;
    std::optional<std::int64_t> n;
  };
  const std::vector<Case> cases = {
      {"IMG_1234.JPG.supplemental-metadata.json", "IMG_1234.JPG.supplemental-metadata",
       std::nullopt},
      {"IMG_1234.JPG(1).json", "IMG_1234.JPG", 1},
      {"IMG_1234.JPG.supplemental-metadata(1).json", "IMG_1234.JPG.supplemental-metadata", 1},
      {"IMG_1234.JPG.JSON", "IMG_1234.JPG", std::nullopt},
      {"IMG_1234.JPG.Json", "IMG_1234.JPG", std::nullopt},
      {"IMG_1234.JPG", "IMG_1234.JPG", std::nullopt},  // not ending in ".json": kept whole
      {"IMG_1234(1).JPG", "IMG_1234(1).JPG", std::nullopt},
      {"IMG_1234.json(1)", "IMG_1234.json", 1},
      {".json", "", std::nullopt},
      {"json", "json", std::nullopt},
      {"(1).json", "", 1},
      {"", "", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("name " + c.name);
    const Candidate candidate = SidecarMatcher::candidate(c.name);
    EXPECT_EQ(candidate.name, c.name);
    EXPECT_EQ(candidate.stem, c.stem);
    EXPECT_EQ(candidate.n, c.n);
  }
}

TEST(SidecarMatcherTest, EdgeCases) {
  const std::string longMedia = "Screenshot_20200101-123456_Some Long App Name.jpg";
  expectMatches({
      // Case never matters.
      {"img_1234.jpg",
       {"IMG_1234.JPG.supplemental-metadata.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234.JPG", {"img_1234.jpg.JSON"}, "img_1234.jpg.JSON"},
      // A name without ".json" is still a candidate.
      {"IMG_1234.JPG",
       {"IMG_1234.JPG.supplemental-metadata"},
       "IMG_1234.JPG.supplemental-metadata"},
      {"IMG_1234.JPG", {"IMG_1234.JPG."}, "IMG_1234.JPG."},
      // 40 characters cut inside the media name match, 39 do not.
      {longMedia, {longMedia.substr(0, 39) + ".json"}, std::nullopt},
      {longMedia, {longMedia.substr(0, 40) + ".json"}, longMedia.substr(0, 40) + ".json"},
      // A numbered media file never takes an unnumbered JSON, nor another number's.
      {"IMG_1234(1).JPG", {"IMG_1234.JPG.json"}, std::nullopt},
      {"IMG_1234(2).JPG", {"IMG_1234.JPG(1).json"}, std::nullopt},
      {"IMG_1234.JPG", {"IMG_1234.JPG(1).json"}, std::nullopt},
      {"IMG_1234 (1).JPG", {"IMG_1234 .JPG(1).json"}, "IMG_1234 .JPG(1).json"},
      // Without an extension the base is the stem.
      {"IMG_1234", {"IMG_1234.json"}, "IMG_1234.json"},
      {"IMG_1234", {"IMG.json"}, std::nullopt},
      // A photo never falls back to Live Photo bases; a video only to still extensions.
      {"IMG_1234.JPG", {"IMG_1234.HEIC.json"}, std::nullopt},
      {"IMG_1234.MOV", {"IMG_9999.HEIC.json"}, std::nullopt},
      {"IMG_1234.MOV", {}, std::nullopt},
      {"IMG_1234.MOV", {"IMG_1234.PNG.json"}, std::nullopt},
      {"IMG_1234.mp4", {"IMG_1234.DNG.json"}, "IMG_1234.DNG.json"},
      {"IMG_1234(1).MOV", {"IMG_1234.HEIC(1).json"}, "IMG_1234.HEIC(1).json"},
      {"IMG_1234(1).MOV", {"IMG_1234.HEIC.json"}, std::nullopt},
      {"MVIMG_20190101_120000.mp",
       {"MVIMG_20190101_120000.jpg.json"},
       "MVIMG_20190101_120000.jpg.json"},
      {"notes.txt", {"notes.jpg.json"}, std::nullopt},
  });
}

TEST(SidecarMatcherTest, TiesKeepTheFirstCandidate) {
  expectMatches({
      {"IMG_1234.JPG", {"IMG_1234.JPG.json", "img_1234.jpg.json"}, "IMG_1234.JPG.json"},
      {"IMG_1234.JPG", {"img_1234.jpg.json", "IMG_1234.JPG.json"}, "img_1234.jpg.json"},
      // Candidate order decides before base order: both score 80 through different bases.
      {"IMG_1234.MOV", {"IMG_1234.jpg.json", "IMG_1234.heic.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234.MOV", {"IMG_1234.heic.json", "IMG_1234.jpg.json"}, "IMG_1234.heic.json"},
      // A higher score through the second base beats a lower one through the first.
      {"IMG_1234-edited.JPG",
       {"IMG_1234-edited.JPG.json", "IMG_1234.JPG.supplemental-metadata.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234-edited.JPG",
       {"IMG_1234.JPG.json", "IMG_1234-edited.JPG.json"},
       "IMG_1234.JPG.json"},
  });
}

TEST(SidecarMatcherTest, EditedCopies) {
  expectMatches({
      {"IMG_1234-EDITED.JPG", {"IMG_1234.JPG.json"}, "IMG_1234.JPG.json"},
      {"IMG_1234-bearbeitet.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-modifié.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-MODIFIÉ.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-modifie\xcc\x81.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},  // NFD
      {"IMG_1234-editado.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-modificato.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-bewerkt.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-redigerad.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-redigeret.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-muokattu.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-edytowane.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-編集済み.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-편집됨.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-已编辑.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-已編輯.jpg", {"IMG_1234.jpg.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234-edited", {"IMG_1234.json"}, "IMG_1234.json"},
      {"IMG_1234-edited(1).jpg",
       {"IMG_1234.jpg.supplemental-metadata(1).json"},
       "IMG_1234.jpg.supplemental-metadata(1).json"},
      // Only one suffix is removed.
      {"IMG-edited-edited.jpg", {"IMG.jpg.json"}, std::nullopt},
      {"IMG-edited-edited.jpg", {"IMG-edited.jpg.json"}, "IMG-edited.jpg.json"},
      {"IMG_1234edited.jpg", {"IMG_1234.jpg.json"}, std::nullopt},
      // An edited movie that finds nothing falls back to the still bases of its full stem.
      {"IMG_1234-edited.MOV", {"IMG_1234-edited.HEIC.json"}, "IMG_1234-edited.HEIC.json"},
  });
}

TEST(SidecarMatcherTest, NonLatinNamesCountCharactersNotBytes) {
  // Japanese and Korean characters take three bytes each; "q" with a combining acute (which has
  // no precomposed form) is two code points and three bytes, but one character.
  for (const std::string unit : {"x", "写", "사", "q\xcc\x81"}) {
    SCOPED_TRACE("unit " + unit);
    const std::string media = repeat(unit, 60) + ".jpg";
    expectMatches({
        {media, {repeat(unit, 40) + ".json"}, repeat(unit, 40) + ".json"},
        {media, {repeat(unit, 39) + ".json"}, std::nullopt},
        {media, {repeat(unit, 14) + ".json"}, std::nullopt},
        {media,
         {repeat(unit, 60) + ".jpg.supplemental-metadata.json"},
         repeat(unit, 60) + ".jpg.supplemental-metadata.json"},
    });
  }
  // A cut between a letter and its combining mark is not a beginning of the name.
  const std::string media = repeat("q\xcc\x81", 60) + ".jpg";
  expectMatches({{media, {repeat("q\xcc\x81", 40) + "q.json"}, std::nullopt}});
}

TEST(SidecarMatcherTest, CaseAndNormalisationOfNonAsciiLetters) {
  expectMatches({
      {"ÄRGER.JPG", {"ärger.jpg.json"}, "ärger.jpg.json"},
      {"Élan.jpg", {"éLAN.JPG.supplemental-metadata.json"}, "éLAN.JPG.supplemental-metadata.json"},
      {"ŁÓDŹ.jpg", {"łódź.jpg.json"}, "łódź.jpg.json"},
      {"ФОТО_1.jpg",
       {"фото_1.jpg.supplemental-metadata.json"},
       "фото_1.jpg.supplemental-metadata.json"},
      {"ΘΆΛΑΣΣΑ.jpg", {"θάλασσα.jpg.json"}, "θάλασσα.jpg.json"},
      // Decomposed in one name, precomposed in the other.
      {"Cafe\xcc\x81.jpg", {"Café.jpg.json"}, "Café.jpg.json"},
      {"Café.jpg", {"CAFE\xcc\x81.JPG.json"}, "CAFE\xcc\x81.JPG.json"},
      // Different letters stay different.
      {"Cafe.jpg", {"Café.jpg.json"}, std::nullopt},
      {"ФОТО.jpg", {"фото.png.json"}, std::nullopt},
  });
}

TEST(SidecarMatcherTest, BadNames) {
  expectMatches({
      // Empty names and names that are only a marker match nothing nameless.
      {"", {"", ".json", "(1).json"}, std::nullopt},
      {"(1)", {"", ".json", "(1).json", "(1)"}, std::nullopt},
      {"(1).jpg", {".jpg(1).json"}, ".jpg(1).json"},
      {"IMG_1234.JPG", {"", ".json", "(1).json", "()", ")", "("}, std::nullopt},
      {".", {".json", "..json"}, std::nullopt},
      // Ill-formed UTF-8 is compared byte for byte, not merged into a replacement character.
      {"\xff\xfe.jpg", {"\xfe\xff.jpg.json", "\xff\xfe.jpg.json"}, "\xff\xfe.jpg.json"},
      {"\xff.jpg", {"\xfe.jpg.json"}, std::nullopt},
      {"IMG\xc3.JPG", {"img\xc3.jpg.json"}, "img\xc3.jpg.json"},
      {"\xe5\x86.MOV", {"\xe5\x86.heic.json"}, "\xe5\x86.heic.json"},
      // Control characters and line breaks are characters like any other.
      {"a\r\nb.jpg", {"A\r\nB.JPG.json"}, "A\r\nB.JPG.json"},
      {"a\0b.jpg"s, {"a\0b.jpg.json"s}, "a\0b.jpg.json"s},
  });
}

TEST(SidecarMatcherTest, BestOverExplicitBases) {
  const std::vector<std::string> names = {"a.jpg.json", "b.jpg.supplemental-metadata.json",
                                          "c.jpg(1).json"};
  const std::vector<Candidate> prepared = SidecarMatcher::candidates(names);
  struct Case {
    std::vector<std::string> bases;
    std::optional<std::int64_t> n;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases = {
      {{"a.jpg"}, std::nullopt, "a.jpg.json"},
      {{"a.jpg", "b.jpg"}, std::nullopt, "b.jpg.supplemental-metadata.json"},
      {{"c.jpg"}, std::nullopt, std::nullopt},
      {{"c.jpg"}, 1, "c.jpg(1).json"},
      {{"a.jpg"}, 1, std::nullopt},
      {{}, std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bases.empty() ? "no bases" : c.bases.front());
    EXPECT_EQ(SidecarMatcher::best(c.bases, c.n, prepared), c.expected);
  }
}

TEST(SidecarMatcherTest, ListsFixedInOrder) {
  EXPECT_EQ(SidecarMatcher::editedSuffixes.front(), "-edited");
  EXPECT_EQ(SidecarMatcher::editedSuffixes.back(), "-已編輯");
  EXPECT_EQ(SidecarMatcher::livePhotoStillExtensions.front(), "heic");
  EXPECT_EQ(SidecarMatcher::livePhotoStillExtensions.back(), "DNG");
}

}  // namespace
}  // namespace quillmere
