#ifndef QUILLMERE_CORE_DATES_TEXT_TRIMMING_H_
#define QUILLMERE_CORE_DATES_TEXT_TRIMMING_H_

#include <string_view>

namespace quillmere {

// `text` without the horizontal white space at either end: tabs and every Unicode space
// separator (U+0020, U+00A0, U+2000..U+200A, U+202F, U+3000, ...). Line breaks are kept, and
// trimming stops at bytes that are not well-formed UTF-8. The result is a view into `text`.
std::string_view trimHorizontalSpace(std::string_view text);

// `text` without white space or line breaks at either end: everything trimHorizontalSpace
// trims, plus LF, VT, FF, CR, NEL, U+2028 and U+2029.
std::string_view trimWhiteSpaceAndLineBreaks(std::string_view text);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_TEXT_TRIMMING_H_
