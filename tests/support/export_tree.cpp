#include "tests/support/export_tree.h"

#include "tests/support/zip_builder.h"

namespace quillmere::testing {

nlohmann::json takeoutSidecar(const std::string& title, std::optional<double> taken,
                              std::optional<std::pair<double, double>> place,
                              const std::string& description) {
  // The service always writes creationTime; with geoData it marks per-photo metadata.
  nlohmann::json sidecar = {{"title", title},
                            {"description", description},
                            {"creationTime", {{"timestamp", "1700000000"}, {"formatted", ""}}},
                            {"url", "https://photos.google.com/photo/x"}};
  if (taken) {
    sidecar["photoTakenTime"] = {{"timestamp", std::to_string(static_cast<long long>(*taken))},
                                 {"formatted", ""}};
  }
  const auto [lat, lon] = place.value_or(std::pair{0.0, 0.0});
  sidecar["geoData"] = {{"latitude", lat}, {"longitude", lon}, {"altitude", 0.0}};
  return sidecar;
}

ExportTree& ExportTree::file(const std::string& path, Bytes content) {
  files_.emplace_back(path, std::move(content));
  return *this;
}

ExportTree& ExportTree::text(const std::string& path, const std::string& content) {
  return file(path, toBytes(content));
}

ExportTree& ExportTree::json(const std::string& path, const nlohmann::json& value) {
  return text(path, value.dump(2));
}

ExportTree& ExportTree::photo(const std::string& path, const std::string& fixture,
                              const std::string& variant) {
  Bytes bytes = readFile(std::filesystem::path(QUILLMERE_TEST_DATA_DIR) / "scan" / fixture);
  bytes.insert(bytes.end(), variant.begin(), variant.end());
  return file(path, std::move(bytes));
}

void ExportTree::writeFolder(const std::filesystem::path& root) const {
  for (const auto& [path, content] : files_) {
    std::filesystem::create_directories((root / path).parent_path());
    writeFile(root / path, content);
  }
}

void ExportTree::writeZip(const std::filesystem::path& zip) const {
  ZipBuilder builder;
  for (const auto& [path, content] : files_) {
    ZipEntryDraft draft;
    draft.name = toBytes(path);
    draft.content = content;
    draft.utf8Flag = true;
    builder.add(std::move(draft));
  }
  builder.write(zip);
}

}  // namespace quillmere::testing
