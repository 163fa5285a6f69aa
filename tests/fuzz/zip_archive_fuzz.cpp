// Opens arbitrary bytes as a zip part and extracts every entry, fully and as a prefix.
// Any outcome but a crash, hang or leak is fine: errors must surface as exceptions.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/sources/zip_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path scratch =
      std::filesystem::temp_directory_path() / ("zip-fuzz-" + std::to_string(getpid()) + ".zip");
  std::ofstream(scratch, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  try {
    const quillmere::ZipArchive zip(scratch);
    std::size_t budget = 64 << 20;  // keeps a tiny bomb from turning into a time-out
    for (const auto& entry : zip.entries()) {
      for (bool verify : {true, false}) {
        try {
          zip.extract(entry, verify, [&](std::span<const std::uint8_t> chunk) {
            if (chunk.size() > budget) return false;
            budget -= chunk.size();
            return verify;  // the unverified pass stops after one chunk, like a prefix read
          });
        } catch (const std::exception&) {
        }
      }
    }
  } catch (const std::exception&) {
  }
  std::filesystem::remove(scratch);
  return 0;
}
