#include "core/sources/quillmere_error.h"

namespace quillmere {

QuillmereError::QuillmereError(Kind kind, std::string payload, const std::string& message)
    : std::runtime_error(message), kind_(kind), payload_(std::move(payload)) {}

QuillmereError QuillmereError::notAZip(const std::string& zipName) {
  return {Kind::notAZip, zipName, zipName + " isn't a zip file."};
}

QuillmereError QuillmereError::corruptZip(const std::string& zipName) {
  return {Kind::corruptZip, zipName,
          zipName + " looks damaged or incomplete. Try downloading that part again."};
}

QuillmereError QuillmereError::unsupportedCompression(const std::string& entryPath,
                                                      std::uint16_t method) {
  return {Kind::unsupportedCompression, entryPath,
          entryPath + " uses a compression method Quillmere can't read (" + std::to_string(method) +
              ")."};
}

QuillmereError QuillmereError::checksumMismatch(const std::string& entryPath) {
  return {Kind::checksumMismatch, entryPath,
          entryPath + " failed its checksum. The zip may be damaged; try downloading it again."};
}

QuillmereError QuillmereError::cannotCreate(const std::string& path) {
  return {Kind::cannotCreate, path, "Couldn't create " + path + "."};
}

QuillmereError QuillmereError::outputInsideSource(const std::string& outputFolder) {
  return {Kind::outputInsideSource, outputFolder,
          "The output folder " + outputFolder +
              " is inside the export. Pick a folder outside it so originals stay untouched."};
}

QuillmereError QuillmereError::cannotComposite(const std::string& fileName) {
  return {Kind::cannotComposite, fileName, "Couldn't merge the overlay onto " + fileName + "."};
}

QuillmereError QuillmereError::nothingToRepair() {
  return {Kind::nothingToRepair, "", "No photos or videos were found in the selected export."};
}

}  // namespace quillmere
