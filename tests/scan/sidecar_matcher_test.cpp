#include "core/scan/sidecar_matcher.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace quillmere {
namespace {

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

TEST(SidecarMatcherTest, ScoresOfEachRule) {
  const std::string longBase = "Screenshot_20200101-123456_Some Long App Name.jpg";  // 49
  const struct {
    std::string base;
    std::string stem;
    int expected;
  } cases[] = {
      {"IMG_1.JPG", "img_1.jpg.SUPPLEMENTAL-METADATA", 100},
      {"img_1.jpg", "img_1.jpg.supplemental-met", 90},
      {"img_1.jpg", "img_1.jpg.", 90},  // cut right after the dot
      {"img_1.jpg", "img_1.jpg.supplemental-metadatax", 0},
      {"img_1.jpg", "img_1.jpg.supplemental-medatata", 0},
      {"img_1.jpg", "img_1.jpg", 80},
      {"img_1.jpg", "img_1", 70},
      {"img_1.jpg", "img_", 0},
      {".jpg", "", 0},  // removing the extension leaves nothing
      {"archive.tar.gz", "archive.tar", 70},
      {longBase, longBase.substr(0, 40), 60},
      {longBase, longBase.substr(0, 39), 0},
      {longBase, longBase.substr(0, 46), 60},  // where Google cuts names
      // The base must begin with the stem, not the other way round.
      {longBase, longBase + "-more", 0},
      {"", ".supplemental-metadata", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("base " + c.base + " stem " + c.stem);
    EXPECT_EQ(SidecarMatcher::score(c.base, c.stem), c.expected);
  }
}

TEST(SidecarMatcherTest, DuplicateMarkersOfMediaAndJsonNames) {
  const struct {
    std::string text;
    std::string stripped;
    std::optional<std::int64_t> n;
  } markers[] = {
      {"IMG_1234 (12)", "IMG_1234 ", 12},
      {"IMG_1234()", "IMG_1234()", std::nullopt},
      {"IMG_(1a)", "IMG_(1a)", std::nullopt},
      {"IMG_(-1)", "IMG_(-1)", std::nullopt},
      {"IMG(1)(2)", "IMG(1)", 2},
      {"IMG_(007)", "IMG_", 7},
      {"(1)", "", 1},
      {"IMG_(9223372036854775807)", "IMG_", 9223372036854775807},
      {"IMG_(9223372036854775808)", "IMG_(9223372036854775808)", std::nullopt},
      {"IMG_(１)", "IMG_(１)", std::nullopt},  // fullwidth digit
      {"IMG_(1)\xcc\x81", "IMG_(1)\xcc\x81", std::nullopt},
      // A prepended mark fuses with the "(" into one character: no parenthesis of its own.
      {"IMG\xd8\x80(1)", "IMG\xd8\x80(1)", std::nullopt},
  };
  for (const auto& c : markers) {
    SCOPED_TRACE("text " + c.text);
    EXPECT_EQ(SidecarMatcher::stripDuplicateMarker(c.text), (StrippedMarker{c.stripped, c.n}));
  }
  const struct {
    std::string name;
    Media expected;
  } media[] = {
      {"IMG_1234 (2).jpg", {"IMG_1234 ", "jpg", 2, "IMG_1234 .jpg"}},
      {"IMG_1234(3)", {"IMG_1234", "", 3, "IMG_1234"}},
      {"name.", {"name", "", std::nullopt, "name"}},
      {"(1).jpg", {"", "jpg", 1, ".jpg"}},
  };
  for (const auto& c : media) {
    SCOPED_TRACE("media " + c.name);
    EXPECT_EQ(SidecarMatcher::parseMedia(c.name), c.expected);
  }
  const struct {
    std::string name;
    std::string stem;
    std::optional<std::int64_t> n;
  } jsons[] = {
      {"IMG_1234.JPG.supplemental-metadata(1).json", "IMG_1234.JPG.supplemental-metadata", 1},
      {"IMG_1234.JPG.Json", "IMG_1234.JPG", std::nullopt},
      {"IMG_1234(1).JPG", "IMG_1234(1).JPG", std::nullopt},  // not ending in ".json": kept whole
      {"IMG_1234.json(1)", "IMG_1234.json", 1},
  };
  for (const auto& c : jsons) {
    SCOPED_TRACE("json " + c.name);
    const SidecarMatcher::Candidate candidate = SidecarMatcher::candidate(c.name);
    EXPECT_EQ(candidate.name, c.name);
    EXPECT_EQ(candidate.stem, c.stem);
    EXPECT_EQ(candidate.n, c.n);
  }
}

TEST(SidecarMatcherTest, Matches) {
  const std::string longMedia = "Screenshot_20200101-123456_Some Long App Name.jpg";
  const std::string json = "IMG_1234.jpg.json";
  expectMatches({
      {"IMG_1234.JPG",
       {"IMG_1234.JPG.json", "IMG_1234.JPG.supplemental-metadata.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234.JPG", {"IMG_1234.json"}, "IMG_1234.json"},
      {"IMG_1234.JPG", {"IMG_1235.JPG.json"}, std::nullopt},
      {"IMG_1234.JPG",
       {"IMG_1234.JPG.supplemental-metadata"},
       "IMG_1234.JPG.supplemental-metadata"},
      {longMedia, {longMedia.substr(0, 39) + ".json"}, std::nullopt},
      {longMedia, {longMedia.substr(0, 46) + ".json"}, longMedia.substr(0, 46) + ".json"},
      // Duplicate markers: the number moves to the end of the JSON name and must agree.
      {"IMG_1234(1).JPG", {"IMG_1234.JPG.json", "IMG_1234.JPG(1).json"}, "IMG_1234.JPG(1).json"},
      {"IMG_1234(1).JPG",
       {"IMG_1234.JPG.supplemental-metadata(1).json"},
       "IMG_1234.JPG.supplemental-metadata(1).json"},
      {"IMG_1234(1).JPG", {"IMG_1234.JPG.json"}, std::nullopt},
      {"IMG_1234(2).JPG", {"IMG_1234.JPG(1).json"}, std::nullopt},
      {"IMG_1234.JPG", {"IMG_1234.JPG(1).json"}, std::nullopt},
      // Live Photo movies fall back to the still's JSON, only when nothing else matched.
      {"IMG_1234.MOV",
       {"IMG_1234.HEIC.supplemental-metadata.json", "IMG_1234.MOV.json"},
       "IMG_1234.MOV.json"},
      {"IMG_1234.MOV",
       {"IMG_1234.HEIC.supplemental-metadata.json"},
       "IMG_1234.HEIC.supplemental-metadata.json"},
      {"PXL_20210101_120000000.MP",
       {"PXL_20210101_120000000.jpg.json"},
       "PXL_20210101_120000000.jpg.json"},
      {"IMG_1234.mp4", {"IMG_1234.DNG.json"}, "IMG_1234.DNG.json"},
      {"IMG_1234(1).MOV", {"IMG_1234.HEIC(1).json"}, "IMG_1234.HEIC(1).json"},
      {"IMG_1234(1).MOV", {"IMG_1234.HEIC.json"}, std::nullopt},
      {"IMG_1234.MOV", {"IMG_1234.PNG.json"}, std::nullopt},
      {"IMG_1234.JPG", {"IMG_1234.HEIC.json"}, std::nullopt},  // never for a photo
      // Ties keep the earlier candidate; candidate order decides before base order.
      {"IMG_1234.JPG", {"img_1234.jpg.json", "IMG_1234.JPG.json"}, "img_1234.jpg.json"},
      {"IMG_1234.MOV", {"IMG_1234.jpg.json", "IMG_1234.heic.json"}, "IMG_1234.jpg.json"},
      {"IMG_1234.MOV", {"IMG_1234.heic.json", "IMG_1234.jpg.json"}, "IMG_1234.heic.json"},
      // A higher score through the second base beats a lower one through the first.
      {"IMG_1234-edited.JPG",
       {"IMG_1234-edited.JPG.json", "IMG_1234.JPG.supplemental-metadata.json"},
       "IMG_1234.JPG.supplemental-metadata.json"},
      {"IMG_1234-edited.JPG",
       {"IMG_1234.JPG.json", "IMG_1234-edited.JPG.json"},
       "IMG_1234.JPG.json"},
      // Edited copies share their original's JSON; one suffix is removed, in any case.
      {"IMG_1234-MODIFIÉ.jpg", {json}, json},
      {"IMG_1234-modifie\xcc\x81.jpg", {json}, json},  // NFD
      {"IMG_1234-redigeret.jpg", {json}, json},
      {"IMG_1234-編集済み.jpg", {json}, json},
      {"IMG_1234-편집됨.jpg", {json}, json},
      {"IMG_1234-已編輯.jpg", {json}, json},
      {"IMG_1234-edited(1).jpg", {"IMG_1234.jpg(1).json"}, "IMG_1234.jpg(1).json"},
      {"IMG-edited-edited.jpg", {"IMG.jpg.json"}, std::nullopt},
      {"IMG_1234edited.jpg", {json}, std::nullopt},
      {"IMG_1234-edited.MOV", {"IMG_1234-edited.HEIC.json"}, "IMG_1234-edited.HEIC.json"},
      // Letter case of any script and Unicode normalisation never matter; letters do.
      {"ŁÓDŹ.jpg", {"łódź.jpg.json"}, "łódź.jpg.json"},
      {"ФОТО_1.jpg",
       {"фото_1.jpg.supplemental-metadata.json"},
       "фото_1.jpg.supplemental-metadata.json"},
      {"ΘΆΛΑΣΣΑ.jpg", {"θάλασσα.jpg.json"}, "θάλασσα.jpg.json"},
      {"Café.jpg", {"CAFE\xcc\x81.JPG.json"}, "CAFE\xcc\x81.JPG.json"},
      {"Cafe.jpg", {"Café.jpg.json"}, std::nullopt},
      // Names that are empty, only a marker or not UTF-8.
      {"(1)", {"", ".json", "(1).json", "(1)"}, std::nullopt},
      {"IMG_1234.JPG", {"", ".json", "(1).json", "()", ")", "("}, std::nullopt},
      {"\xff\xfe.jpg", {"\xfe\xff.jpg.json", "\xff\xfe.jpg.json"}, "\xff\xfe.jpg.json"},
      {"IMG\xc3.JPG", {"img\xc3.jpg.json"}, "img\xc3.jpg.json"},
      {"a\0b.jpg"s, {"a\0b.jpg.json"s}, "a\0b.jpg.json"s},
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

}  // namespace
}  // namespace quillmere
