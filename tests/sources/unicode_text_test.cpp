#include "core/sources/unicode_text.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace quillmere {
namespace {

using namespace std::string_literals;

const std::string kAcute = "\xcc\x81";  // U+0301, combining
const std::string kFamily =             // man ZWJ woman ZWJ girl
    "\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7";
const std::string kFlag = "\xf0\x9f\x87\xa9\xf0\x9f\x87\xaa";      // D E regional indicators
const std::string kJamo = "\xe1\x84\x91\xe1\x85\xa7\xe1\x86\xab";  // 편 as L V T

TEST(UnicodeTextTest, ValidatesFoldsAndCountsCharacters) {
  const struct {
    std::string text;
    bool valid;
    std::string lowercased;
    std::size_t graphemes;
  } cases[] = {
      {"IMG_1234.JPG", true, "img_1234.jpg", 12},
      {"", true, "", 0},
      {"ÄÖÜ ÉÈ Ł Ø Å", true, "äöü éè ł ø å", 12},
      {"ΘΆΛΑΣΣΑ ФОТО", true, "θάλασσα фото", 12},
      {"ß İ \xe2\x84\xaa", true, "ß i k", 5},  // one to one: no "ss"; Kelvin sign to k
      {"ＡＢＣ 写真-編集", true, "ａｂｃ 写真-編集", 9},
      {"Cafe" + kAcute + ".JPG", true, "café.jpg", 8},  // decomposed comes out composed
      {kJamo + "편", true, "편편", 2},
      {"a\r\nb\n\r", true, "a\r\nb\n\r", 5},
      {kFamily + kFlag + kFlag + "\xf0\x9f\x87\xa9", true,
       kFamily + kFlag + kFlag + "\xf0\x9f\x87\xa9", 4},
      {"A\0B"s, true, "a\0b"s, 3},
      // Ill-formed bytes stay where they are, one character each; the text around is folded.
      {"A\xff"
       "B",
       false,
       "a\xff"
       "b",
       3},
      {"\xc3\x28Ä", false, "\xc3\x28ä", 3},
      {"ÄB\xe5\x86", false, "äb\xe5\x86", 4},                                // truncated
      {"\xed\xa0\x80X", false, "\xed\xa0\x80x", 4},                          // surrogate
      {"\xc0\xafY\xf4\x90\x80\x80", false, "\xc0\xafy\xf4\x90\x80\x80", 7},  // overlong, too high
      {"\xff" + kAcute, false, "\xff" + kAcute, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("text " + c.text);
    EXPECT_EQ(UnicodeText::isValidUTF8(c.text), c.valid);
    EXPECT_EQ(UnicodeText::lowercased(c.text), c.lowercased);
    std::string reused = "previous content that must go";
    UnicodeText::lowercased(c.text, reused);
    EXPECT_EQ(reused, c.lowercased);
    EXPECT_EQ(UnicodeText::graphemeCount(c.text), c.graphemes);
  }
  const std::uint8_t bytes[] = {'M', 0xFC, 0x80, 0xFF};
  EXPECT_EQ(UnicodeText::fromLatin1(bytes), "M\xC3\xBC\xC2\x80\xC3\xBF");
  EXPECT_EQ(UnicodeText::repairUTF8(bytes), "M\uFFFD\uFFFD\uFFFD");
}

TEST(UnicodeTextTest, MatchesWholeCharactersOnly) {
  const std::string cafe = "cafe" + kAcute;
  EXPECT_FALSE(UnicodeText::hasPrefix(cafe, "cafe"));  // the "e" carries the accent
  EXPECT_TRUE(UnicodeText::hasPrefix(cafe, "caf"));
  EXPECT_FALSE(UnicodeText::hasSuffix("\r\n", "\n"));
  EXPECT_FALSE(UnicodeText::hasSuffix(kFlag, "\xf0\x9f\x87\xaa"));
  EXPECT_FALSE(UnicodeText::isGraphemeBoundary("abc", 4));
  EXPECT_FALSE(
      UnicodeText::isGraphemeBoundary("\xd8\x80"
                                      "1",
                                      2));  // after a prepended mark
  EXPECT_EQ(UnicodeText::lastGraphemes("x" + cafe, 2), "fe" + kAcute);
  EXPECT_EQ(UnicodeText::lastGraphemes("abc", 5), "abc");
  EXPECT_EQ(UnicodeText::lastGraphemes("x" + kFamily, 1), kFamily);

  const struct {
    std::string text;
    std::string suffix;
    std::optional<std::string> expected;
  } cases[] = {
      {"IMG.Json", ".json", ".Json"},
      {"json", ".json", std::nullopt},
      {"IMG-MODIFIÉ", "-modifié", "-MODIFIÉ"},
      {"IMG-MODIFIE" + kAcute, "-modifié", "-MODIFIE" + kAcute},
      {"IMG-modifie", "-modifié", std::nullopt},
      {"IMG-EDITED" + kAcute, "-edited", std::nullopt},  // last letter is "d́"
      {"IMG\xd8\x80.json", ".json", std::nullopt},       // a prepended mark takes the dot
      {"\xff.JSON", ".json", ".JSON"},
      {"abc", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("text " + c.text + " suffix " + c.suffix);
    const auto tail = UnicodeText::suffixIgnoringCase(c.text, c.suffix);
    ASSERT_EQ(tail, c.expected);
    if (tail) {
      EXPECT_EQ(tail->data() + tail->size(), c.text.data() + c.text.size());
    }  // a view
  }
}

TEST(UnicodeTextTest, FoldedPrefixesDifferOnlyWhenCertain) {
  const struct {
    std::string text;
    std::string other;  // folded through lowercased() first
    bool expected;
  } cases[] = {
      {"PXL_20190714_1830.JPG", "PXL_20190714_1831.jpg", true},
      {"PXL_20190714_1830.JPG", "pxl_20190714_1830.jpg", false},  // equal once folded
      {"IMG_1", "IMG_1.jpg", false},                              // a beginning: unsure
      {"夏休み_101", "夏休み_102", true},
      {"夏休み_101", "冬休み_101", false},  // differs inside a character: unsure
      {"ÄRGER_1", "ärger_2", false},        // the case of "Ä" comes first: unsure
      {"äRGER_1", "ärger_2", true},
      {"cafe\xcc\x81x", "cafex", false},  // the "e" composes with the accent after it
      {"abc\xcc\x81", "abd", false},
      {"\xe2\x84\xaa", "k", false},  // Kelvin sign folds to ASCII
      {"\xff_1", "\xff_2", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("text " + c.text + " other " + c.other);
    EXPECT_EQ(UnicodeText::foldedPrefixesDiffer(c.text, UnicodeText::lowercased(c.other)),
              c.expected);
  }
}

TEST(UnicodeTextTest, IsBlank) {
  // Separators, next line and no-break spaces are blank; a zero-width space is a format
  // character, and ill-formed bytes are not blank.
  for (const std::string& blank :
       {""s, " \t\r\n\v\f"s, "\xc2\x85\xc2\xa0\xe3\x80\x80\xe2\x80\xa8\xe2\x80\x83"s}) {
    EXPECT_TRUE(UnicodeText::isBlank(blank)) << blank;
  }
  for (const std::string& text : {"\xe2\x80\x8b"s, " . "s, "\x01"s, " \xff "s, "\0"s}) {
    EXPECT_FALSE(UnicodeText::isBlank(text)) << text;
  }
}

}  // namespace
}  // namespace quillmere
