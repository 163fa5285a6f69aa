#ifndef QUILLMERE_CORE_METADATA_EXIV2_TAG_WRITER_H_
#define QUILLMERE_CORE_METADATA_EXIV2_TAG_WRITER_H_

#include <exiv2/exiv2.hpp>

#include "core/metadata/metadata_writer.h"

// How the photo tags map onto Exiv2's Exif, IPTC and XMP blocks; used only by the Exiv2
// metadata writer, which catches what Exiv2 throws from here.
namespace quillmere::Exiv2TagWriter {

// Puts `tags` into the blocks of `image` (read, not yet written): Exif dates with offsets, GPS
// with references (and a GPS version when there is none), the description; the IPTC caption,
// keywords and date, with the record marked UTF-8; and the XMP date plus every XMP counterpart
// the image already has. An image without IPTC gets the caption and keywords in XMP instead.
// True when the XMP block changed and must be serialised anew.
bool apply(const MetadataWriter::PhotoTags& tags, Exiv2::Image& image);

// Fills an empty XMP block with `tags` for a sidecar: photoshop:DateCreated and
// exif:DateTimeOriginal, the GPS position, dc:description and dc:subject.
void fillSidecar(const MetadataWriter::PhotoTags& tags, Exiv2::XmpData& xmp);

}  // namespace quillmere::Exiv2TagWriter

#endif  // QUILLMERE_CORE_METADATA_EXIV2_TAG_WRITER_H_
