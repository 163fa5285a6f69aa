#include "core/repair/staging.h"

#include "core/metadata/embedded_metadata_reader.h"
#include "core/repair/output_naming.h"
#include "core/repair/overlay_compositor.h"

namespace quillmere::RepairEngine {
namespace {

void removeQuietly(const std::optional<std::filesystem::path>& path) {
  std::error_code ignored;
  if (path) std::filesystem::remove(*path, ignored);
}

std::string extensionOf(const std::string& name) { return splitName(name).extension; }

}  // namespace

Staged stage(const MediaFilePtr& file, const std::filesystem::path& work,
             const OffsetIndex& offsets, const RepairOptions& options) {
  const std::string id = std::to_string(file->id);
  Staged staged;
  staged.file = file;
  staged.temp = work / (id + "." + extensionOf(file->source->fileName()));
  staged.name = file->outputName;
  std::optional<std::filesystem::path> composite;
  try {
    file->source->copy(staged.temp);
    if (file->overlay) {
      staged.overlayTemp = work / (id + "-overlay." + extensionOf(file->overlay->fileName()));
      file->overlay->copy(*staged.overlayTemp);
      if (file->kind == MediaKind::photo) {
        composite = work / (id + "-composite.jpg");
        staged.overlayNote =
            OverlayCompositor::composite(staged.temp, *staged.overlayTemp, *composite);
        staged.original = staged.temp;
        staged.temp = *composite;
        staged.name = splitName(file->outputName).stem + ".jpg";
      }
    }
  } catch (...) {
    removeQuietly(staged.temp);
    removeQuietly(staged.original);
    removeQuietly(staged.overlayTemp);
    removeQuietly(composite);
    throw;
  }
  auto embedded = EmbeddedMetadataReader::read(staged.temp, file->kind);
  if (!embedded) embedded = file->embedded;
  staged.plan = plan(*file, embedded, offsets, options);
  return staged;
}

WriteMethod writeThroughWork(const MetadataPatch& patch, MediaKind kind,
                             const std::filesystem::path& source,
                             const std::filesystem::path& destination,
                             const std::vector<std::string>& existingKeywords,
                             const std::filesystem::path& work) {
  // One folder for every copy in turn: each leaves it before the next is written, and a
  // folder per copy would cost the file system an inode per file for nothing.
  const auto folder = work / "out";
  std::filesystem::create_directory(folder);
  const auto written = folder / destination.filename();
  const auto sidecar = std::filesystem::path(written.string() + ".xmp");
  try {
    const WriteMethod method =
        MetadataWriter::write(patch, kind, source, written, existingKeywords);
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

MetadataWriter::Verification verify(const std::filesystem::path& written, MediaKind kind,
                                    const MetadataPatch& patch) {
  return MetadataWriter::verify(patch, EmbeddedMetadataReader::read(written, kind));
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
    writeThroughWork(staged.plan.patch, MediaKind::photo, *staged.original,
                     extras / fittedName(name.stem, "", originalName), staged.plan.existingKeywords,
                     work);
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
