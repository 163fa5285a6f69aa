#include "core/sources/unicode_text.h"

#include <gtest/gtest.h>

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
      {"A\xff-B", false, "a\xff-b", 4},
      {"\xc3\x28Ä", false, "\xc3\x28ä", 3},
      {"ÄB\xe5\x86", false, "äb\xe5\x86", 4},                                // truncated
      {"\xed\xa0\x80X", false, "\xed\xa0\x80x", 4},                          // surrogate
      {"\xc0\xafY\xf4\x90\x80\x80", false, "\xc0\xafy\xf4\x90\x80\x80", 7},  // overlong, too high
      {"\xff" + kAcute, false, "\xff" + kAcute, 2},  // no mark on an ill-formed byte
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
  const std::string modified = "IMG-MODIFIE" + kAcute;
  EXPECT_FALSE(UnicodeText::hasPrefix("cafe" + kAcute, "cafe"));  // the "e" carries the accent
  EXPECT_EQ(UnicodeText::lastGraphemes("xcafe" + kAcute, 2), "fe" + kAcute);
  const auto tail = UnicodeText::suffixIgnoringCase(modified, "-modifi\xc3\xa9");
  ASSERT_EQ(tail, "-MODIFIE" + kAcute);
  EXPECT_EQ(tail->data(), modified.data() + 3);  // a view of the text
  EXPECT_EQ(UnicodeText::suffixIgnoringCase("\xff.JSON", ".json"), ".JSON");
  // The last letter is "d" with an accent; a prepended mark takes the dot.
  EXPECT_EQ(UnicodeText::suffixIgnoringCase("IMG-EDITED" + kAcute, "-edited"), std::nullopt);
  EXPECT_EQ(UnicodeText::suffixIgnoringCase("IMG\xd8\x80.json", ".json"), std::nullopt);
}

}  // namespace
}  // namespace quillmere
