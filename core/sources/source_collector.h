#ifndef QUILLMERE_CORE_SOURCES_SOURCE_COLLECTOR_H_
#define QUILLMERE_CORE_SOURCES_SOURCE_COLLECTOR_H_

#include <filesystem>
#include <string>
#include <vector>

#include "core/sources/source_file.h"

namespace quillmere {

// Expands the user's chosen paths into a flat list of source files whose logical paths are
// the same whether the export was zipped or not. Reads no file content: folders are listed,
// zip parts are read only as far as their central directory.
namespace SourceCollector {

// For each input in order: a folder is walked (hidden items skipped, zip parts inside it
// opened in place), a file ending in ".zip" (any case) is opened as a zip part, anything else
// (including a missing path) is skipped silently. Order: the inputs' order, then walk order
// (entries of each folder sorted by name) or central-directory order. Throws the first error
// met: the zip errors of ZipArchive, or a file system error for an item whose properties
// can't be read. A folder that can't be listed contributes nothing.
std::vector<SourceFilePtr> collect(const std::vector<std::filesystem::path>& inputs);

// The logical path of a file from its path components: drops everything up to and including
// the first "Takeout"/"Takeout …"/"Takeout-…" folder and the product folder after it, or a
// leading "Google …" product folder chosen directly; joins the rest with "/".
std::string logicalPath(const std::vector<std::string>& components);

}  // namespace SourceCollector
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_SOURCE_COLLECTOR_H_
