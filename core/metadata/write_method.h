#ifndef QUILLMERE_CORE_METADATA_WRITE_METHOD_H_
#define QUILLMERE_CORE_METADATA_WRITE_METHOD_H_

#include <optional>
#include <string_view>

namespace quillmere {

// How the metadata went into a copy. Reported by its label, never by ordinal.
enum class WriteMethod {
  unchanged,   // "copied unchanged": nothing to write; the working file was moved into place
  embedded,    // "written into file": the metadata is inside the copy
  xmpSidecar,  // "XMP sidecar + file dates": copy unchanged, metadata in "<copy name>.xmp"
};

// The label shown in reports: exactly one of the three texts above.
std::string_view label(WriteMethod method);

// The method whose label is exactly `text` (case matters); nullopt otherwise.
std::optional<WriteMethod> writeMethodFromLabel(std::string_view text);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_WRITE_METHOD_H_
