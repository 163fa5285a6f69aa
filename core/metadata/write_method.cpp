#include "core/metadata/write_method.h"

#include <array>
#include <utility>

namespace quillmere {
namespace {

constexpr std::array<std::pair<WriteMethod, std::string_view>, 3> kLabels = {{
    {WriteMethod::unchanged, "copied unchanged"},
    {WriteMethod::embedded, "written into file"},
    {WriteMethod::xmpSidecar, "XMP sidecar + file dates"},
}};

}  // namespace

std::string_view label(WriteMethod method) {
  for (const auto& [candidate, text] : kLabels) {
    if (candidate == method) return text;
  }
  return {};
}

std::optional<WriteMethod> writeMethodFromLabel(std::string_view text) {
  for (const auto& [method, candidate] : kLabels) {
    if (candidate == text) return method;
  }
  return std::nullopt;
}

}  // namespace quillmere
