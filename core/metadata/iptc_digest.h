#ifndef QUILLMERE_CORE_METADATA_IPTC_DIGEST_H_
#define QUILLMERE_CORE_METADATA_IPTC_DIGEST_H_

#include "core/sources/byte_view.h"

namespace quillmere::IptcDigest {

// Photoshop keeps an MD5 digest of the IPTC record beside it (image resource 0x0425); when the
// two disagree, Photoshop, exiftool and digiKam take the XMP block as newer and ignore the IPTC
// values. After the record was rewritten, recomputes the digest of a JPEG's Photoshop segment
// in place (same length, nothing moves). A JPEG without that digest, or with the resources
// split over several segments, is left as it is; malformed segments are never read past.
void refresh(Bytes& jpeg);

}  // namespace quillmere::IptcDigest

#endif  // QUILLMERE_CORE_METADATA_IPTC_DIGEST_H_
