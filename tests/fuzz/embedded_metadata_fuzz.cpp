// Reads arbitrary bytes as a photo (from memory, whole and as a cut-off prefix) and as a movie
// (from a scratch file, as movies are read). Any outcome but a crash, hang or leak is fine: the
// reader never throws, whatever the bytes.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/metadata/embedded_metadata_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path scratch =
      std::filesystem::temp_directory_path() / ("metadata-fuzz-" + std::to_string(getpid()));
  const std::span<const std::uint8_t> bytes(data, size);
  quillmere::EmbeddedMetadataReader::readImage(bytes);
  quillmere::EmbeddedMetadataReader::readImage(bytes.first(size / 2));
  std::ofstream(scratch, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  quillmere::EmbeddedMetadataReader::readVideo(scratch);
  std::filesystem::remove(scratch);
  return 0;
}
