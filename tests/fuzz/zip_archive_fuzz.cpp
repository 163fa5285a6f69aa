// Opens arbitrary bytes as a zip part and extracts every entry, fully and as a prefix.
// Any outcome but a crash, hang or leak is fine: errors must surface as exceptions.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/sources/zip_archive.h"

namespace {

const std::filesystem::path& scratchFile() {
  static const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("zip-fuzz-" + std::to_string(getpid()) + ".zip");
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  {
    std::ofstream out(scratchFile(), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  try {
    const quillmere::ZipArchive zip(scratchFile());
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
  return 0;
}
