#include "cli/number_format.h"

#include <locale>

namespace quillmere::cli {
namespace {

struct Grouping {
  std::string separator = ",";
  std::string sizes = "\3";
};

const Grouping& userGrouping() {
  static const Grouping grouping = [] {
    Grouping g;
    try {
      const std::locale user("");
      const auto& punct = std::use_facet<std::numpunct<char>>(user);
      if (!punct.grouping().empty() && punct.grouping()[0] > 0) {
        g.separator = std::string(1, punct.thousands_sep());
        g.sizes = punct.grouping();
      }
    } catch (const std::exception&) {
      // An unknown locale in the environment: keep the comma.
    }
    return g;
  }();
  return grouping;
}

}  // namespace

std::string groupedCount(std::int64_t value) {
  const Grouping& g = userGrouping();
  const bool negative = value < 0;
  std::string digits = std::to_string(value);
  if (negative) digits.erase(0, 1);
  std::string out;
  std::size_t group = 0;
  int inGroup = 0;
  for (std::size_t i = digits.size(); i-- > 0;) {
    const int size = static_cast<unsigned char>(g.sizes[std::min(group, g.sizes.size() - 1)]);
    if (inGroup == size && size > 0) {
      out.insert(0, g.separator);
      inGroup = 0;
      ++group;
    }
    out.insert(out.begin(), digits[i]);
    ++inGroup;
  }
  return negative ? "-" + out : out;
}

}  // namespace quillmere::cli
