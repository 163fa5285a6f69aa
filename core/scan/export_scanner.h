#ifndef QUILLMERE_CORE_SCAN_EXPORT_SCANNER_H_
#define QUILLMERE_CORE_SCAN_EXPORT_SCANNER_H_

#include <filesystem>
#include <vector>

#include "core/scan/scan_result.h"
#include "core/scan/work_progress.h"

namespace quillmere::ExportScanner {

// What kind of export the collected files are: Snapchat when they hold a memories history
// file, or a "-main" memory file under a path containing "memories"; Google Takeout otherwise.
ExportKind detect(const std::vector<SourceFilePtr>& files);

// The one entry point of scanning: collects the inputs (zip parts and/or folders), recognises
// the export and runs its scanner, on the calling thread. Throws the collection's errors (zip
// errors, file system errors) or the scanner's. An export without media is not an error here:
// the result simply has no files.
ScanResultPtr scan(const std::vector<std::filesystem::path>& inputs,
                   const ProgressCallback& progress = nullptr);

}  // namespace quillmere::ExportScanner

#endif  // QUILLMERE_CORE_SCAN_EXPORT_SCANNER_H_
