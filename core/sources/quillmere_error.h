#ifndef QUILLMERE_CORE_SOURCES_QUILLMERE_ERROR_H_
#define QUILLMERE_CORE_SOURCES_QUILLMERE_ERROR_H_

#include <cstdint>
#include <stdexcept>
#include <string>

namespace quillmere {

// The core's user-facing error. Each case carries the name or path it concerns, and what()
// is the fixed message to show the user unchanged. Failures of the file system itself are
// reported as std::system_error / std::filesystem::filesystem_error instead.
class QuillmereError : public std::runtime_error {
 public:
  enum class Kind {
    notAZip,
    corruptZip,
    unsupportedCompression,
    checksumMismatch,
    cannotCreate,
    outputInsideSource,
    cannotComposite,
    nothingToRepair,
  };

  // `zipName` is the last component of the zip's path.
  static QuillmereError notAZip(const std::string& zipName);
  static QuillmereError corruptZip(const std::string& zipName);
  // `entryPath` is the entry's full path inside the zip.
  static QuillmereError unsupportedCompression(const std::string& entryPath, std::uint16_t method);
  static QuillmereError checksumMismatch(const std::string& entryPath);
  static QuillmereError cannotCreate(const std::string& path);
  static QuillmereError outputInsideSource(const std::string& outputFolder);
  static QuillmereError cannotComposite(const std::string& fileName);
  static QuillmereError nothingToRepair();

  Kind kind() const { return kind_; }
  // The name or path the error concerns; empty for nothingToRepair.
  const std::string& payload() const { return payload_; }

 private:
  QuillmereError(Kind kind, std::string payload, const std::string& message);

  Kind kind_;
  std::string payload_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_QUILLMERE_ERROR_H_
