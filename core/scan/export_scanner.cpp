#include "core/scan/export_scanner.h"

#include <algorithm>

#include "core/scan/snapchat_scanner.h"
#include "core/scan/takeout_scanner.h"
#include "core/sources/source_collector.h"
#include "core/sources/unicode_text.h"

namespace quillmere::ExportScanner {

ExportKind detect(const std::vector<SourceFilePtr>& files) {
  const bool snapchat = std::any_of(files.begin(), files.end(), [](const SourceFilePtr& file) {
    const std::string name = file->fileName();
    if (UnicodeText::lowercased(name) == SnapchatScanner::historyFileName) return true;
    const auto parsed = SnapchatScanner::parseName(name);
    return parsed && parsed->role == "main" &&
           UnicodeText::lowercased(file->logicalPath()).find("memories") != std::string::npos;
  });
  return snapchat ? ExportKind::snapchat : ExportKind::googleTakeout;
}

ScanResultPtr scan(const std::vector<std::filesystem::path>& inputs,
                   const ProgressCallback& progress) {
  if (progress) progress(WorkProgress{std::string(ScanPhase::readingExport), 0, 0});
  std::vector<SourceFilePtr> files = SourceCollector::collect(inputs);
  if (detect(files) == ExportKind::snapchat) return SnapchatScanner::scan(files, inputs, progress);
  return TakeoutScanner::scan(std::move(files), inputs, progress);
}

}  // namespace quillmere::ExportScanner
