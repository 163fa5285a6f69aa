// Rewrites arbitrary bytes as a movie. Refusing is fine; a crash, hang or leak is not, and a
// movie that was rewritten once must rewrite again (what we write is what we accept).
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/metadata/quick_time_metadata_rewriter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path scratch =
      std::filesystem::temp_directory_path() / ("rewriter-fuzz-" + std::to_string(getpid()));
  static const bool made = std::filesystem::create_directories(scratch) || true;
  (void)made;
  using quillmere::QuickTimeMetadataEdit;
  QuickTimeMetadataEdit edit;
  edit.items = {{"com.apple.quicktime.creationdate", "2021-03-04T10:05:00+0100"},
                {"com.apple.quicktime.description", "Café"}};
  edit.removeKeys = {"date"};
  edit.removeUserData = {0xA9646179 /* ©day */, 0x6C6F6369 /* loci */};
  edit.creationTime = 1614848700;
  const auto source = scratch / "in.mov";
  const auto first = scratch / "once.mov";
  const auto second = scratch / "twice.mov";
  std::ofstream(source, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  if (quillmere::QuickTimeMetadataRewriter::rewrite(edit, source, first)) {
    if (!quillmere::QuickTimeMetadataRewriter::rewrite(edit, first, second)) std::abort();
  }
  std::filesystem::remove(first);
  std::filesystem::remove(second);
  return 0;
}
