#ifndef QUILLMERE_CORE_METADATA_ATOMIC_FILE_H_
#define QUILLMERE_CORE_METADATA_ATOMIC_FILE_H_

#include <cstdint>
#include <filesystem>
#include <span>

namespace quillmere {

// File operations that never leave a half-written file at their target: content goes to a
// temporary name in the target's folder first ("." + name + a random suffix + ".tmp") and
// appears at the target only when complete. Every failure is thrown as
// std::filesystem::filesystem_error with the system's error, after the temporary file is
// removed. (Nothing is flushed to the disk: a power cut can still lose the newest files, as
// with any ordinary copy.)
namespace AtomicFile {

// Writes `bytes` to `target`, replacing what is there; with `exclusive`, an existing target
// fails with "File exists" and is left alone.
void write(const std::filesystem::path& target, std::span<const std::uint8_t> bytes,
           bool exclusive);

// Moves `source` to `target` (which is replaced): a rename, or across file systems a copy under
// a temporary name, a rename, and the removal of `source`.
void move(const std::filesystem::path& source, const std::filesystem::path& target);

// Sets the access and modification times of `file` to `utc` (seconds since the Unix epoch,
// fractions kept to the nanosecond).
void setTimes(const std::filesystem::path& file, double utc);

}  // namespace AtomicFile
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_ATOMIC_FILE_H_
