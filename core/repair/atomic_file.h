#ifndef QUILLMERE_CORE_REPAIR_ATOMIC_FILE_H_
#define QUILLMERE_CORE_REPAIR_ATOMIC_FILE_H_

#include <filesystem>
#include <string_view>

namespace quillmere {

// Files that appear complete at their final path or not at all.
namespace AtomicFile {

// A hidden name in `target`'s folder, unique to this process and call, for writing `target`
// before renaming it into place. Nothing is created.
std::filesystem::path temporarySibling(const std::filesystem::path& target);

// Writes `bytes` to a temporary sibling, flushes it to disk and renames it to `target`,
// replacing any file there. Throws std::filesystem::filesystem_error naming `target` on
// failure, leaving neither the temporary file nor a partial `target`.
void write(const std::filesystem::path& target, std::string_view bytes);

}  // namespace AtomicFile

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_ATOMIC_FILE_H_
