#ifndef QUILLMERE_CORE_METADATA_EXIV2_METADATA_WRITER_H_
#define QUILLMERE_CORE_METADATA_EXIV2_METADATA_WRITER_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "core/metadata/metadata_writer.h"
#include "core/sources/byte_view.h"

namespace quillmere {

// The one place where Exiv2 writes metadata. Nothing here throws: every Exiv2 failure, and
// everything Exiv2 could not write without loss, comes back as an absent result.
namespace Exiv2MetadataWriter {

// The photo `photo` (the whole file) with `tags` merged into its Exif, IPTC and XMP blocks and
// everything else kept: the image data, maker notes, ICC profile, thumbnails and every tag the
// tags do not name. Existing XMP counterparts of the written facts (exif:DateTimeOriginal,
// xmp:CreateDate, dc:description, dc:subject, the XMP GPS tags) and IPTC DateCreated and
// TimeCreated are updated too, so that no reader finds a stale value; IPTC text is written as
// UTF-8 and the record is marked so. Formats without IPTC (WebP) get the caption and keywords in
// XMP dc:description and dc:subject instead.
// Only JPEG, PNG, WebP, plain TIFF (by a .tif or .tiff name) and DNG are rewritten; absent for
// every other type, for anything Exiv2 refuses or fails on, and when a block would lose a tag
// in the rewrite (Exiv2 drops what does not fit a JPEG's 64 KiB Exif segment).
std::optional<Bytes> rewrite(std::span<const std::uint8_t> photo, std::string_view fileName,
                             const MetadataWriter::PhotoTags& tags);

// A complete XMP packet holding `tags` (photoshop:DateCreated and exif:DateTimeOriginal with
// the offset, the GPS position, dc:description, dc:subject), for a sidecar file. Absent when
// the tags hold nothing or the packet cannot be made.
std::optional<std::string> sidecarPacket(const MetadataWriter::PhotoTags& tags);

}  // namespace Exiv2MetadataWriter
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_EXIV2_METADATA_WRITER_H_
