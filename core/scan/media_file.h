#ifndef QUILLMERE_CORE_SCAN_MEDIA_FILE_H_
#define QUILLMERE_CORE_SCAN_MEDIA_FILE_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/metadata/embedded_metadata.h"
#include "core/scan/packed_record.h"
#include "core/scan/takeout_sidecar.h"
#include "core/sources/media_kind.h"
#include "core/sources/source_file.h"

namespace quillmere {

// One distinct photo or video of an export. Shared by identity between the scan result's file
// list, its unit and the album map; the scanners and the repair engine update the mutable
// fields in place, from one thread at a time.
class MediaFile {
 public:
  MediaFile(int id, SourceFilePtr source, MediaKind kind)
      : id(id), source(std::move(source)), kind(kind) {}
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  const int id;                // position in the result's file list
  const SourceFilePtr source;  // the first copy found: the one read and repaired
  const MediaKind kind;

  std::vector<SourceFilePtr> duplicates;  // further copies of the same content, in order found
  std::vector<std::string> albums;        // no repeats, in the order first seen
  SourceFilePtr overlay;                  // Snapchat caption/sticker image; null when none

  std::string fileName() const { return source->fileName(); }

  // The texts below are read at most once a file and, the sidecar name aside, mostly absent, so
  // they share one packed record: each getter returns a copy and each setter repacks them all.
  // The name of the metadata file matched to this one.
  std::optional<std::string> sidecarName() const;
  void setSidecarName(const std::optional<std::string>& name);
  // Trash, archive, …: no repeats, in the order first seen.
  std::vector<std::string> specialFolders() const;
  void setSpecialFolders(const std::vector<std::string>& folders);
  // Snapchat: how the file met the history.
  std::optional<std::string> matchNote() const;
  void setMatchNote(const std::optional<std::string>& note);
  // The name the repaired copy should get: the file's own name unless set otherwise.
  std::string outputName() const;
  void setOutputName(const std::string& name);

  // The service's metadata for this file. A Takeout scan keeps what the repair reads: the
  // title, link and people are left out. Kept packed, so each call returns a fresh copy: bind
  // it to a local before taking references into it.
  std::optional<TakeoutSidecar> sidecar() const;
  void setSidecar(const std::optional<TakeoutSidecar>& value);
  // Takes a copy of `packed`, which TakeoutSidecar::pack() made; spares unpacking to repack.
  void setPackedSidecar(const PackedRecord& packed) { sidecar_ = PackedRecord(packed.bytes()); }
  bool hasSidecar() const { return !sidecar_.empty(); }
  // What the file itself carries; packed and copied out like sidecar().
  std::optional<EmbeddedMetadata> embedded() const;
  void setEmbedded(const std::optional<EmbeddedMetadata>& value);

 private:
  PackedRecord sidecar_;   // empty when there is none; packed values never are
  PackedRecord embedded_;  // likewise

  struct Extras {
    std::optional<std::string> sidecarName;
    std::vector<std::string> specialFolders;
    std::optional<std::string> matchNote;
    std::optional<std::string> outputName;
  };
  Extras extras() const;
  void setExtras(const Extras& value);
  PackedRecord extras_;  // empty when every field of Extras is absent
};

using MediaFilePtr = std::shared_ptr<MediaFile>;

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_MEDIA_FILE_H_
