// Stamps a creation time into arbitrary bytes. The first 8 bytes are the date's bits, the rest
// the file. The file keeps its size and at most 8 of its bytes change, whatever they hold.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "core/metadata/quick_time_atoms.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path scratch =
      std::filesystem::temp_directory_path() / ("creation-fuzz-" + std::to_string(getpid()));
  if (size < 8) return 0;
  double date = 0;
  std::memcpy(&date, data, sizeof date);
  const std::vector<char> before(data + 8, data + size);
  std::ofstream(scratch, std::ios::binary)
      .write(before.data(), static_cast<std::streamsize>(before.size()));
  try {
    quillmere::QuickTimeAtoms::setMovieCreationTime(date, scratch);
  } catch (const std::system_error&) {
  }
  std::ifstream in(scratch, std::ios::binary);
  const std::vector<char> after((std::istreambuf_iterator<char>(in)), {});
  if (after.size() != before.size()) std::abort();
  std::size_t changed = 0;
  for (std::size_t i = 0; i < after.size(); ++i) changed += after[i] != before[i] ? 1 : 0;
  if (changed > 8) std::abort();
  std::filesystem::remove(scratch);
  return 0;
}
