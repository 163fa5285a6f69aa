// Rewrites the metadata items of arbitrary bytes, in memory and in a file in place. A refusal is
// fine; a file that is written must hold exactly the items given (as the rewriter's reader and
// the HEIF reader of the metadata scan both see them), and rewriting it again in memory with the
// same items must change nothing. A file refused in place must keep exactly its bytes.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "core/metadata/heif_container.h"
#include "core/metadata/heif_metadata_rewriter.h"

namespace {

using quillmere::Bytes;
using quillmere::RandomAccessBytes;
namespace Rewriter = quillmere::HeifMetadataRewriter;

void check(bool condition) {
  if (!condition) std::abort();
}

Bytes contentOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

// The same items written into a file holding the input, in place.
void checkInPlace(std::span<const std::uint8_t> input, const Rewriter::Items& items) {
  // One file for the whole run, removed when the fuzzer exits.
  static const struct Scratch {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("heif-in-place-fuzz-" + std::to_string(::getpid()) + ".heic");
    ~Scratch() {
      std::error_code ignored;
      std::filesystem::remove(path, ignored);
    }
  } scratch;
  const std::filesystem::path& file = scratch.path;
  std::ofstream(file, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(input.data()),
             static_cast<std::streamsize>(input.size()));
  const auto given = [&](const Rewriter::Items&) { return std::optional(items); };
  const Rewriter::Outcome outcome = Rewriter::rewriteInPlace(file, given);
  const Bytes after = contentOf(file);
  if (outcome != Rewriter::Outcome::written) {
    check(std::equal(after.begin(), after.end(), input.begin(), input.end()));
    return;
  }
  check(after.size() > input.size());
  const auto back = Rewriter::readItems(*RandomAccessBytes::inMemory(after));
  check(back && back->exifTiff == items.exifTiff && (!items.xmp || back->xmp == items.xmp));
  check(quillmere::HeifContainer::read(*RandomAccessBytes::inMemory(after)).has_value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Bytes tiff = {'M', 'M', 0, 42, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0};
  static const std::string xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
  const std::span<const std::uint8_t> input(data, size);
  Rewriter::readItems(*RandomAccessBytes::inMemory(input));
  // Half the inputs get only one of the two items, to keep the other as it was.
  const bool both = size % 2 == 0;
  const std::optional<Bytes> exif = tiff;
  const std::optional<std::string> packet = both ? std::optional(xmp) : std::nullopt;
  checkInPlace(input, {exif, packet});
  const std::optional<Bytes> written = Rewriter::rewriteBytes(input, exif, packet);
  if (!written) return 0;
  const auto back = Rewriter::readItems(*RandomAccessBytes::inMemory(*written));
  check(back && back->exifTiff == tiff && (!both || back->xmp == xmp));
  const auto again = Rewriter::rewriteBytes(*written, exif, packet);
  check(again && *again == *written);
  const auto scanned = quillmere::HeifContainer::read(*RandomAccessBytes::inMemory(*written));
  check(scanned.has_value());
  return 0;
}
