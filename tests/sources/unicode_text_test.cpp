#include "core/sources/unicode_text.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace quillmere {
namespace {

using namespace std::string_literals;

// Spelled out in escapes where the byte form matters.
const std::string kCombiningAcute = "\xcc\x81";  // U+0301
const std::string kFamily =                      // man ZWJ woman ZWJ girl
    "\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7";
const std::string kGermanFlag = "\xf0\x9f\x87\xa9\xf0\x9f\x87\xaa";      // D E regional indicators
const std::string kHangulJamo = "\xe1\x84\x91\xe1\x85\xa7\xe1\x86\xab";  // 편 as L V T

TEST(UnicodeTextTest, Lowercased) {
  struct Case {
    std::string text;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"IMG_1234.JPG", "img_1234.jpg"},
      {"", ""},
      {"ÄÖÜ ÉÈ Ł Ø Å", "äöü éè ł ø å"},
      {"ФОТОГРАФИЯ", "фотография"},
      {"ΘΆΛΑΣΣΑ", "θάλασσα"},
      {"ß", "ß"},  // one-to-one: no expansion to "ss"
      {"İ", "i"},
      {"\xe2\x84\xaa", "k"},  // Kelvin sign
      {"写真-編集済み", "写真-編集済み"},
      {"사진-편집됨", "사진-편집됨"},
      {"ＡＢＣ", "ａｂｃ"},  // fullwidth letters stay fullwidth
      // Decomposed input comes out composed.
      {"E" + kCombiningAcute, "é"},
      {"Cafe" + kCombiningAcute + ".JPG", "café.jpg"},
      {kHangulJamo, "편"},
      // Ill-formed bytes are kept where they are; the text around them is still folded.
      {"A\xff"
       "B",
       "a\xff"
       "b"},
      {"\xc3\x28Ä", "\xc3\x28ä"},
      {"ÄB\xe5\x86", "äb\xe5\x86"},
      {"\xed\xa0\x80X", "\xed\xa0\x80x"},
      {"A\0B"s, "a\0b"s},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("text " + c.text);
    EXPECT_EQ(UnicodeText::lowercased(c.text), c.expected);
    std::string reused = "previous content that must go";
    UnicodeText::lowercased(c.text, reused);
    EXPECT_EQ(reused, c.expected);
  }
}

TEST(UnicodeTextTest, GraphemeCount) {
  struct Case {
    std::string name;
    std::string text;
    std::size_t expected;
  };
  const std::vector<Case> cases = {
      {"empty", "", 0},
      {"ascii", "IMG_1234.JPG", 12},
      {"crlf is one", "a\r\nb", 3},
      {"lf cr is two", "a\n\rb", 4},
      {"precomposed", "café", 4},
      {"combining mark", "cafe" + kCombiningAcute, 4},
      {"stacked marks", "q" + kCombiningAcute + kCombiningAcute, 1},
      {"japanese", "写真の整理", 5},
      {"hangul syllables", "편집됨", 3},
      {"hangul jamo", kHangulJamo, 1},
      {"emoji family", kFamily, 1},
      {"flag", kGermanFlag, 1},
      {"two flags", kGermanFlag + kGermanFlag, 2},
      {"odd regional indicator", kGermanFlag + "\xf0\x9f\x87\xa9", 2},
      {"ill-formed bytes",
       "a\xff\xfe"
       "b",
       4},
      {"truncated sequence", "a\xe5\x86", 3},
      {"mark after ill-formed byte", "\xff" + kCombiningAcute, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(UnicodeText::graphemeCount(c.text), c.expected);
  }
}

TEST(UnicodeTextTest, GraphemeBoundaries) {
  struct Case {
    std::string name;
    std::string text;
    std::size_t offset;
    bool expected;
  };
  const std::string cafe = "cafe" + kCombiningAcute + "!";
  const std::vector<Case> cases = {
      {"start", "abc", 0, true},
      {"end", "abc", 3, true},
      {"beyond the end", "abc", 4, false},
      {"between letters", "abc", 1, true},
      {"inside crlf", "a\r\nb", 2, false},
      {"after crlf", "a\r\nb", 3, true},
      {"before a combining mark", cafe, 4, false},
      {"inside the mark's bytes", cafe, 5, false},
      {"after the mark", cafe, 6, true},
      {"inside a utf-8 sequence", "é", 1, false},
      {"between cjk", "写真", 3, true},
      {"inside a flag", kGermanFlag, 4, false},
      {"between flags", kGermanFlag + kGermanFlag, 8, true},
      {"inside emoji family", kFamily, 4, false},
      {"after a prepended mark",
       "\xd8\x80"
       "1",
       2, false},
      {"between ill-formed bytes", "\xff\xfe", 1, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(UnicodeText::isGraphemeBoundary(c.text, c.offset), c.expected);
  }
}

TEST(UnicodeTextTest, PrefixSuffixAndTail) {
  const std::string cafe = "cafe" + kCombiningAcute;
  EXPECT_TRUE(UnicodeText::hasPrefix("IMG_1234.JPG", "IMG_"));
  EXPECT_TRUE(UnicodeText::hasPrefix("IMG", ""));
  EXPECT_FALSE(UnicodeText::hasPrefix("IMG", "IMG_"));
  EXPECT_FALSE(UnicodeText::hasPrefix(cafe, "cafe"));  // the "e" carries the accent
  EXPECT_TRUE(UnicodeText::hasPrefix(cafe, "caf"));
  EXPECT_TRUE(UnicodeText::hasSuffix("a.json", ".json"));
  EXPECT_FALSE(UnicodeText::hasSuffix("\r\n", "\n"));
  EXPECT_FALSE(UnicodeText::hasSuffix(kGermanFlag, "\xf0\x9f\x87\xaa"));

  struct Case {
    std::string text;
    std::size_t count;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"IMG-edited", 7, "-edited"},
      {"abc", 5, "abc"},
      {"abc", 0, ""},
      {"", 3, ""},
      {"x" + cafe, 2, "fe" + kCombiningAcute},
      {"IMG-編集済み", 5, "-編集済み"},
      {"a\r\n", 1, "\r\n"},
      {"x" + kFamily, 1, kFamily},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("text " + c.text);
    EXPECT_EQ(UnicodeText::lastGraphemes(c.text, c.count), c.expected);
  }
}

TEST(UnicodeTextTest, SuffixIgnoringCase) {
  struct Case {
    std::string text;
    std::string suffix;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"IMG.JSON", ".json", ".JSON"},
      {"IMG.Json", ".json", ".Json"},
      {".json", ".json", ".json"},
      {"json", ".json", std::nullopt},
      {"IMG.jsonx", ".json", std::nullopt},
      {"写真.JSON", ".json", ".JSON"},
      {"IMG-MODIFIÉ", "-modifié", "-MODIFIÉ"},
      {"IMG-MODIFIE" + kCombiningAcute, "-modifié", "-MODIFIE" + kCombiningAcute},
      {"IMG-modifie", "-modifié", std::nullopt},
      {"IMG-編集済み", "-編集済み", "-編集済み"},
      {"IMG-EDITED" + kCombiningAcute, "-edited", std::nullopt},  // last letter is "d́"
      {"IMG\xd8\x80.json", ".json", std::nullopt},                // a prepended mark takes the dot
      {"\xff.JSON", ".json", ".JSON"},
      {"", ".json", std::nullopt},
      {"abc", "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("text " + c.text + " suffix " + c.suffix);
    const auto tail = UnicodeText::suffixIgnoringCase(c.text, c.suffix);
    ASSERT_EQ(tail.has_value(), c.expected.has_value());
    if (tail) {
      EXPECT_EQ(*tail, *c.expected);
      EXPECT_EQ(tail->data() + tail->size(), c.text.data() + c.text.size());  // a view of text
    }
  }
}

TEST(UnicodeTextTest, FoldedPrefixesDiffer) {
  struct Case {
    std::string text;
    std::string other;  // folded through lowercased() first
    bool expected;
  };
  const std::vector<Case> cases = {
      {"PXL_20190714_1830.JPG", "PXL_20190714_1831.jpg", true},
      {"PXL_20190714_1830.JPG", "pxl_20190714_1830.jpg", false},  // equal once folded
      {"IMG_1", "IMG_1.jpg", false},                              // a beginning: unsure
      {"IMG_1.jpg", "IMG_1", false},
      {"", "abc", false},
      {"夏休み_101", "夏休み_102", true},
      {"夏休み_101", "冬休み_101", false},  // differs inside a character: unsure
      {"ÄRGER_1", "ärger_2", false},        // the case of "Ä" comes first: unsure
      {"äRGER_1", "ärger_2", true},
      {"ÄRGER_1", "ärger_1", false},
      // The "e" here composes with the accent that follows: folding must decide.
      {"cafe\xcc\x81", "café", false},
      {"cafe\xcc\x81x", "cafex", false},
      {"abc\xcc\x81", "abd", false},
      {"\xe2\x84\xaa", "k", false},  // Kelvin sign folds to ASCII
      {"\xff_1", "\xff_2", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("text " + c.text + " other " + c.other);
    const std::string folded = UnicodeText::lowercased(c.other);
    EXPECT_EQ(UnicodeText::foldedPrefixesDiffer(c.text, folded), c.expected);
    if (c.expected) {
      // Never a wrong "differ": the folded texts really part before either ends.
      const std::string mine = UnicodeText::lowercased(c.text);
      EXPECT_FALSE(mine.starts_with(folded) || folded.starts_with(mine));
    }
  }
}

TEST(UnicodeTextTest, IsBlank) {
  struct Case {
    std::string text;
    bool expected;
  };
  const std::vector<Case> cases = {
      {"", true},
      {" \t\r\n\v\f", true},
      {"\xc2\x85", true},                  // next line
      {"\xc2\xa0", true},                  // no-break space
      {"\xe3\x80\x80", true},              // ideographic space
      {"\xe2\x80\xa8\xe2\x80\xa9", true},  // line and paragraph separators
      {"\xe2\x80\x83", true},              // em space
      {"\xe2\x80\x8b", false},             // zero-width space is a format character
      {" . ", false},
      {"\x01", false},
      {" \xff ", false},
      {"\0"s, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("text " + c.text);
    EXPECT_EQ(UnicodeText::isBlank(c.text), c.expected);
  }
}

}  // namespace
}  // namespace quillmere
