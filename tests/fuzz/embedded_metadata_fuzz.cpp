// Reads arbitrary bytes as a photo (from memory, whole and as a cut-off prefix) and as a movie
// (from a scratch file, as movies are read). Any outcome but a crash, hang or leak is fine: the
// reader never throws, whatever the bytes.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>

#include "core/metadata/embedded_metadata_reader.h"

namespace {

// One scratch file per process, removed at exit.
class ScratchFile {
 public:
  ScratchFile()
      : path_(std::filesystem::temp_directory_path() /
              ("metadata-fuzz-" + std::to_string(getpid()) + ".mov")) {}
  ~ScratchFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

const std::filesystem::path& scratchFile() {
  static const ScratchFile file;
  return file.path();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> bytes(data, size);
  quillmere::EmbeddedMetadataReader::readImage(bytes);
  quillmere::EmbeddedMetadataReader::readImage(bytes.first(size / 2));
  {
    std::ofstream out(scratchFile(), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  quillmere::EmbeddedMetadataReader::readVideo(scratchFile());
  return 0;
}
