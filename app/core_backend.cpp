#include "app/repair_model.h"
#include "core/photos/immich_library.h"
#include "core/photos/photos_importer.h"
#include "core/repair/repair_engine.h"
#include "core/scan/export_scanner.h"

namespace quillmere {
namespace {

// The server the user gave in this session, else Immich's own configuration.
ImmichCredentials immichCredentials(const std::optional<ImportCredentials>& given) {
  if (given) return ImmichCredentials::find(given->url, given->key);
  return ImmichCredentials::find();
}

}  // namespace

RepairBackend RepairBackend::core() {
  RepairBackend backend;
  backend.scan = [](const std::vector<std::filesystem::path>& inputs,
                    const ProgressCallback& progress) {
    return ExportScanner::scan(inputs, progress);
  };
  backend.repair = [](const ScanResult& scan, const RepairOptions& options,
                      const ProgressCallback& progress, const CancelQuery& isCancelled) {
    return RepairEngine::run(scan, options, progress, isCancelled);
  };
  backend.import.itemCount = [](const RepairResult& result) {
    return static_cast<std::int64_t>(PhotosImporter::items(result).size());
  };
  backend.import.hasKnownCredentials = [] {
    try {
      ImmichCredentials::find();
      return true;
    } catch (const PhotoLibraryError&) {
      return false;
    }
  };
  backend.import.checkCredentials =
      [](const ImportCredentials& given) -> std::optional<std::string> {
    try {
      ImmichLibrary library(immichCredentials(given));
      if (library.authorize()) return std::nullopt;
      const PhotosImportError refused = PhotosImportError::notAuthorized(
          library.name(), library.address(), library.authorizationProblem());
      return refused.reason().empty() ? std::string(refused.what())
                                      : std::string(refused.what()) + "\n" + refused.reason();
    } catch (const std::exception& e) {
      return std::string(e.what());
    }
  };
  backend.import.run = [](const RepairResult& result, ExportKind kind,
                          const std::optional<ImportCredentials>& credentials,
                          const ProgressCallback& progress, const CancelQuery& isCancelled) {
    ImmichLibrary library(immichCredentials(credentials));
    return PhotosImporter::run(result, kind, library, progress, isCancelled);
  };
  return backend;
}

}  // namespace quillmere
