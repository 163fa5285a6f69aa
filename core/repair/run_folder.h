#ifndef QUILLMERE_CORE_REPAIR_RUN_FOLDER_H_
#define QUILLMERE_CORE_REPAIR_RUN_FOLDER_H_

#include <filesystem>
#include <string>
#include <vector>

namespace quillmere::RepairEngine {

// Throws QuillmereError::outputInsideSource(destination) when `destination` lies inside (or
// is) one of the input folders, symbolic links resolved; zip parts and missing inputs are
// skipped, so a folder beside a zip part is fine. The destination itself need not exist yet.
void checkOutsideSources(const std::filesystem::path& destination,
                         const std::vector<std::filesystem::path>& inputs);

// "Quillmere Repair 2026-11-16 0943" for the instant `now` (seconds since the Unix epoch) in
// the computer's current zone.
std::string runFolderName(double now);

// Creates a new, empty run folder inside `destination` (made with its parents when missing)
// named for the current minute, or with " (2)", " (3)", ... appended when that name is taken,
// and returns its path. Throws the file system's error.
std::filesystem::path makeRunFolder(const std::filesystem::path& destination);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_RUN_FOLDER_H_
