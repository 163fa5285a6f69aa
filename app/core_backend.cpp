#include "app/repair_model.h"
#include "core/photos/photos_importer.h"
#include "core/scan/export_scanner.h"

namespace quillmere {

RepairBackend RepairBackend::core() {
  RepairBackend backend;
  backend.scan = [](const std::vector<std::filesystem::path>& inputs,
                    const ProgressCallback& progress) {
    return ExportScanner::scan(inputs, progress);
  };
  backend.import.itemCount = [](const RepairResult& result) {
    return static_cast<std::int64_t>(PhotosImporter::items(result).size());
  };
  return backend;
}

}  // namespace quillmere
