#include "core/scan/sidecar_matcher.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace quillmere {
namespace {

using SidecarMatcher::StrippedMarker;

// A media name, the JSON names of its folder and the index of the one it matches (-1: none).
using MatchCase = std::tuple<std::string, std::vector<std::string>, int>;

// Both entry points must agree: names taken apart on every call, or once per folder.
void expectMatches(const std::vector<MatchCase>& cases) {
  for (const auto& [media, names, index] : cases) {
    SCOPED_TRACE("media " + media);
    const auto expected = index < 0 ? std::nullopt : std::optional(names[index]);
    EXPECT_EQ(SidecarMatcher::match(media, names), expected);
    EXPECT_EQ(SidecarMatcher::match(media, SidecarMatcher::candidates(names)), expected);
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

}  // namespace
}  // namespace quillmere
