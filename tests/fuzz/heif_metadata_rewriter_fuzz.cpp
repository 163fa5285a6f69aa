// Rewrites the metadata items of arbitrary bytes. A refusal is fine; a file that is written must
// hold exactly the items given (as the rewriter's reader and the HEIF reader of the metadata
// scan both see them), and rewriting it again with the same items must change nothing.
#include <cstdlib>
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
