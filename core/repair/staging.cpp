#include "core/repair/staging.h"

#include <functional>
#include <string>
#include <thread>

#include "core/metadata/embedded_metadata_reader.h"
#include "core/repair/output_naming.h"
#include "core/repair/overlay_compositor.h"
#include "core/scan/scan_support.h"
#include "core/sources/file_io.h"

namespace quillmere::RepairEngine {
namespace {

void removeQuietly(const std::optional<std::filesystem::path>& path) {
  std::error_code ignored;
  if (path) std::filesystem::remove(*path, ignored);
}

std::string extensionOf(const std::string& name) { return splitName(name).extension; }

// Photos up to this size are staged in memory: reading them whole costs no more than the
// rewrite does anyway, and it spares a working file per copy (creating and deleting one per
// file is what slows a run of many small files down most).
constexpr std::int64_t kInMemoryBytes = std::int64_t{16} << 20;

// The content of a small photo without overlay, when it can be written straight from memory;
// otherwise the file lands at `temp` as the writer needs it there.
std::optional<Bytes> stageSmallPhoto(const SourceFile& source, MediaKind kind,
                                     const std::filesystem::path& temp) {
  Bytes content = source.readAll();
  if (MetadataWriter::writesFromMemory(kind, content)) return content;
  FileIO::writeFile(temp, content, /*exclusive=*/true);
  return std::nullopt;
}

// What the working copy carries. A zip entry no longer than the scan's read had all its bytes
// read by the scan, the very bytes now in memory, so what it found stands.
std::optional<EmbeddedMetadata> readStaged(const Staged& staged) {
  const MediaFile& file = *staged.file;
  if (!staged.content) return EmbeddedMetadataReader::read(staged.temp, file.kind);
  const bool readWhole =
      !file.source->localURL() && staged.content->size() <= ScanSupport::kPhotoPrefixBytes;
  if (readWhole) {
    if (auto scanned = file.embedded()) return scanned;
  }
  return EmbeddedMetadataReader::readImage(*staged.content);
}

// MetadataWriter into a private folder inside `work`, then the copy and its sidecar renamed
// to `destination`.
template <typename Writer>
WriteMethod writeThroughWork(const std::filesystem::path& destination,
                             const std::filesystem::path& work, const Writer& write) {
  // One folder per thread, for every copy it writes in turn: each leaves it before the next is
  // written, and a folder per copy would cost the file system an inode per file for nothing.
  const auto folder =
      work / ("out-" + std::to_string(std::hash<std::thread::id>{}(std::this_thread::get_id())));
  std::filesystem::create_directory(folder);
  const auto written = folder / destination.filename();
  const auto sidecar = std::filesystem::path(written.string() + ".xmp");
  try {
    const WriteMethod method = write(written);
    std::filesystem::rename(written, destination);
    if (std::filesystem::exists(sidecar)) {
      std::filesystem::rename(sidecar, destination.string() + ".xmp");
    }
    return method;
  } catch (...) {
    // Leave the folder empty for the next copy, which may want the same name.
    removeQuietly(written);
    removeQuietly(sidecar);
    throw;
  }
}

WriteMethod writeFile(const MetadataPatch& patch, MediaKind kind,
                      const std::filesystem::path& source, const std::filesystem::path& destination,
                      const std::vector<std::string>& existingKeywords,
                      const std::filesystem::path& work) {
  return writeThroughWork(destination, work, [&](const std::filesystem::path& written) {
    // The working copy is this run's own: a HEIF photo gets its metadata in place.
    return MetadataWriter::writeInPlace(patch, kind, source, written, existingKeywords);
  });
}

}  // namespace

Staged stage(const MediaFilePtr& file, const std::filesystem::path& work,
             const OffsetIndex& offsets, const RepairOptions& options) {
  const std::string id = std::to_string(file->id);
  Staged staged;
  staged.file = file;
  staged.temp = work / (id + "." + extensionOf(file->source->fileName()));
  staged.name = file->outputName();
  std::optional<std::filesystem::path> composite;
  try {
    if (!file->overlay && file->kind == MediaKind::photo &&
        file->source->size() <= kInMemoryBytes) {
      staged.content = stageSmallPhoto(*file->source, file->kind, staged.temp);
    } else {
      file->source->copy(staged.temp);
    }
    if (file->overlay) {
      staged.overlayTemp = work / (id + "-overlay." + extensionOf(file->overlay->fileName()));
      file->overlay->copy(*staged.overlayTemp);
      if (file->kind == MediaKind::photo) {
        composite = work / (id + "-composite.jpg");
        staged.overlayNote =
            OverlayCompositor::composite(staged.temp, *staged.overlayTemp, *composite);
        staged.original = staged.temp;
        staged.temp = *composite;
        staged.name = splitName(file->outputName()).stem + ".jpg";
      }
    }
  } catch (...) {
    removeQuietly(staged.temp);
    removeQuietly(staged.original);
    removeQuietly(staged.overlayTemp);
    removeQuietly(composite);
    throw;
  }
  auto embedded = readStaged(staged);
  if (!embedded) embedded = file->embedded();
  staged.plan = plan(*file, embedded, offsets, options);
  if (staged.content) {
    staged.prepared = MetadataWriter::prepare(staged.plan.patch, *staged.content, staged.name,
                                              staged.plan.existingKeywords);
  }
  return staged;
}

WriteMethod writeCopy(const Staged& staged, const std::filesystem::path& destination,
                      const std::filesystem::path& work) {
  const FilePlan& plan = staged.plan;
  if (!staged.content) {
    return writeFile(plan.patch, staged.file->kind, staged.temp, destination, plan.existingKeywords,
                     work);
  }
  return writeThroughWork(destination, work, [&](const std::filesystem::path& written) {
    return MetadataWriter::writePrepared(*staged.prepared, plan.patch, *staged.content, written,
                                         plan.existingKeywords);
  });
}

void recordCheck(RepairRow& row, const std::function<MetadataWriter::Verification()>& readBack) {
  try {
    const MetadataWriter::Verification outcome = readBack();
    if (outcome.problem) {
      row.notes.push_back(*outcome.problem);
      row.status = RepairRow::Status::failed;
    }
    if (outcome.note) row.notes.push_back(*outcome.note);
  } catch (const std::exception& error) {
    row.notes.emplace_back(error.what());
    row.status = RepairRow::Status::failed;
  }
}

void checkCopy(const std::filesystem::path& written, MediaKind kind, const MetadataPatch& patch,
               RepairRow& row) {
  recordCheck(row, [&] {
    return MetadataWriter::verify(patch, EmbeddedMetadataReader::read(written, kind));
  });
}

void keepExtras(const Staged& staged, const std::string& finalName, const std::string& folder,
                const std::filesystem::path& runFolder, RepairRow& row,
                const std::filesystem::path& work) {
  const std::string sub = folder.starts_with("Photos/") ? folder.substr(7) : folder;
  const NameParts name = splitName(finalName);
  if (staged.original) {
    const auto extras = runFolder / "Extras" / "Without overlays" / sub;
    std::filesystem::create_directories(extras);
    const NameParts originalName{"", extensionOf(staged.original->filename().string()), true};
    writeFile(staged.plan.patch, MediaKind::photo, *staged.original,
              extras / fittedName(name.stem, "", originalName), staged.plan.existingKeywords, work);
    row.notes.emplace_back(
        "Caption/sticker overlay merged into the photo; original without it is in Extras/Without "
        "overlays");
    row.overlayMerged = true;
    removeQuietly(staged.overlayTemp);
  } else if (staged.overlayTemp) {
    const auto extras = runFolder / "Extras" / "Video overlays" / sub;
    std::filesystem::create_directories(extras);
    const NameParts overlayName{"", extensionOf(staged.overlayTemp->filename().string()), true};
    std::filesystem::rename(*staged.overlayTemp,
                            extras / fittedName(name.stem, "-overlay", overlayName));
    row.notes.emplace_back(
        "This video's overlay isn't merged yet; it's saved in Extras/Video overlays");
  }
}

}  // namespace quillmere::RepairEngine
