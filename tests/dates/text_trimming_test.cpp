#include "core/dates/text_trimming.h"

#include <gtest/gtest.h>

#include <string>

namespace quillmere {
namespace {

TEST(TextTrimmingTest, HorizontalSpaceOnly) {
  const struct {
    std::string text;
    std::string expected;
  } kCases[] = {
      {"  +02:00\t", "+02:00"},
      {"\xC2\xA0+02:00\xE3\x80\x80", "+02:00"},  // no-break space, ideographic space
      {"\xE2\x80\xAF"
       "a b\xE2\x80\x89",
       "a b"},                             // narrow no-break, thin space
      {"\n+02:00\n", "\n+02:00\n"},        // line breaks stay
      {"\xE2\x80\xA8x", "\xE2\x80\xA8x"},  // so does the line separator
      {"   ", ""},
      {"", ""},
      {"\xC2 x", "\xC2 x"},  // a broken sequence stops the trim
      {"x \xA0", "x \xA0"},
      {"\xEF\xBB\xBFx", "\xEF\xBB\xBFx"},  // a byte order mark is not a space
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(trimHorizontalSpace(c.text), c.expected);
  }
}

TEST(TextTrimmingTest, WhiteSpaceAndLineBreaks) {
  const struct {
    std::string text;
    std::string expected;
  } kCases[] = {
      {" \t\r\n Harbour \n", "Harbour"},
      {"\xC2\x85x\xE2\x80\xA9", "x"},  // next line, paragraph separator
      {"\x0B\x0Cx", "x"},              // vertical tab, form feed
      {"two\nlines", "two\nlines"},
      {"\n\r\n", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(trimWhiteSpaceAndLineBreaks(c.text), c.expected);
  }
}

}  // namespace
}  // namespace quillmere
