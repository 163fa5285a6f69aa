#include "app/repair_model.h"
#include "core/scan/export_scanner.h"

namespace quillmere {

RepairBackend RepairBackend::core() {
  RepairBackend backend;
  backend.scan = [](const std::vector<std::filesystem::path>& inputs,
                    const ProgressCallback& progress) {
    return ExportScanner::scan(inputs, progress);
  };
  return backend;
}

}  // namespace quillmere
