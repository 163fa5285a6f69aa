#ifndef QUILLMERE_TESTS_SUPPORT_EXPORT_TREE_H_
#define QUILLMERE_TESTS_SUPPORT_EXPORT_TREE_H_

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/sources/byte_view.h"

namespace quillmere::testing {

// A Takeout per-photo JSON with the fields the tests vary.
nlohmann::json takeoutSidecar(const std::string& title, std::optional<double> taken,
                              std::optional<std::pair<double, double>> place = std::nullopt,
                              const std::string& description = "");

// The files of an export, by path inside the export, written as a folder or as a zip part.
class ExportTree {
 public:
  ExportTree& file(const std::string& path, Bytes content);
  ExportTree& text(const std::string& path, const std::string& content);
  ExportTree& json(const std::string& path, const nlohmann::json& value);
  // A fixture photo; `variant` is appended after the image so copies can differ in content.
  ExportTree& photo(const std::string& path, const std::string& fixture = "plain.jpg",
                    const std::string& variant = "");

  void writeFolder(const std::filesystem::path& root) const;
  void writeZip(const std::filesystem::path& zip) const;

 private:
  std::vector<std::pair<std::string, Bytes>> files_;
};

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_EXPORT_TREE_H_
