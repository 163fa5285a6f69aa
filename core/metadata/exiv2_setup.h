#ifndef QUILLMERE_CORE_METADATA_EXIV2_SETUP_H_
#define QUILLMERE_CORE_METADATA_EXIV2_SETUP_H_

namespace quillmere::Exiv2Setup {

// Prepares the Exiv2 library for the core, once per process; call before any use of Exiv2.
// Silences its console logging, enables its ISO base media file support (HEIC, HEIF, AVIF,
// CR3), and gives its XMP toolkit a lock so that XMP can be parsed on several threads at once.
// Thread-safe and cheap after the first call.
void prepare();

}  // namespace quillmere::Exiv2Setup

#endif  // QUILLMERE_CORE_METADATA_EXIV2_SETUP_H_
