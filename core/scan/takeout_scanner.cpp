#include "core/scan/takeout_scanner.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "core/scan/content_hash_cache.h"
#include "core/scan/scan_support.h"
#include "core/scan/sidecar_matcher.h"
#include "core/scan/takeout_json.h"
#include "core/sources/parallel_loop.h"
#include "core/sources/unicode_text.h"

namespace quillmere::TakeoutScanner {
namespace {

// Working tables of one scan. Ordered maps make every pass, and so every tie, reproducible.
struct Tables {
  std::map<std::string, std::vector<SourceFilePtr>> jsonByFolder;
  std::map<std::string, std::vector<SourceFilePtr>> mediaByFolder;
  std::map<std::string, std::map<std::string, PackedRecord>> sidecars;  // see TakeoutSidecar::pack
  std::map<std::string, TakeoutAlbumInfo> albumInfo;
  std::int64_t orphanSidecars = 0;
  // Hash of the lower-cased name and the size → the media files made so far with that hash.
  // A hash, not the text, because it lives through all of the matching; equal hashes are
  // checked again by name.
  std::unordered_map<std::size_t, std::vector<MediaFile*>> mediaByIdentity;
};

void report(const ProgressCallback& progress, std::string_view phase, std::int64_t done,
            std::int64_t total) {
  if (progress) progress(WorkProgress{std::string(phase), done, total});
}

void sortIntoFolders(const std::vector<SourceFilePtr>& files, Tables& tables) {
  for (const SourceFilePtr& file : files) {
    const std::string name = file->fileName();
    if (std::find(ignoredNames.begin(), ignoredNames.end(), name) != ignoredNames.end()) continue;
    if (name.starts_with(".")) continue;
    if (UnicodeText::suffixIgnoringCase(name, ".json")) {
      tables.jsonByFolder[file->logicalDirectory()].push_back(file);
    } else if (mediaKindOf(name) != MediaKind::other) {
      tables.mediaByFolder[file->logicalDirectory()].push_back(file);
    }
  }
}

// What a media file keeps of its metadata: nothing later reads the title, the link or the
// people, and an export holds one such record per photo.
TakeoutSidecar foldable(TakeoutSidecar sidecar) {
  sidecar.title.reset();
  sidecar.url.reset();
  sidecar.people = {};
  return sidecar;
}

// One JSON file as read: its packed per-photo record, its album metadata, or neither.
struct ReadJson {
  std::string name;
  std::optional<PackedRecord> sidecar;
  std::optional<TakeoutAlbumInfo> album;
};

ReadJson readJson(const SourceFile& file) {
  ReadJson read{file.fileName(), {}, {}};
  if (file.size() >= kMaxJsonSize) return read;
  Bytes bytes;
  try {
    bytes = file.readAll();
  } catch (const std::exception&) {
    return read;
  }
  TakeoutJSON parsed = TakeoutJSON::parse(bytes);
  if (auto* sidecar = std::get_if<TakeoutSidecar>(&parsed.value)) {
    read.sidecar = foldable(std::move(*sidecar)).pack();
  } else if (const TakeoutAlbumInfo* album = parsed.album()) {
    read.album = *album;
  }
  return read;
}

// The files are read and parsed side by side, a batch at a time, and taken into the tables
// in their order.
void readJsonFiles(Tables& tables, ScanSummary& summary, const ProgressCallback& progress) {
  constexpr std::size_t kBatch = 256;
  std::int64_t total = 0;
  for (const auto& [folder, jsons] : tables.jsonByFolder)
    total += static_cast<std::int64_t>(jsons.size());
  std::int64_t count = 0;
  std::vector<ReadJson> batch;
  for (auto& [folder, files] : tables.jsonByFolder) {
    std::vector<SourceFilePtr>& jsons = files;  // a lambda can't capture a structured binding
    for (std::size_t begin = 0; begin < jsons.size(); begin += kBatch) {
      batch.clear();
      batch.resize(std::min(kBatch, jsons.size() - begin));
      ParallelLoop::run(batch.size(), [&](std::size_t k) {
        // Each JSON file goes as soon as it is read: only its parsed record is needed later.
        const SourceFilePtr file = std::move(jsons[begin + k]);
        batch[k] = readJson(*file);
      });
      for (ReadJson& read : batch) {
        if (++count % 500 == 0) report(progress, ScanPhase::readingMetadata, count, total);
        if (read.sidecar) {
          tables.sidecars[folder][read.name] = std::move(*read.sidecar);
        } else if (read.album) {
          tables.albumInfo[folder] = std::move(*read.album);
        } else {
          ++summary.unreadableJSON;
        }
      }
    }
    jsons = {};
  }
}

// Year folders first, so the year folder's copy of a photo becomes the media file and album
// copies become its duplicates; then every other folder, each group in string order.
std::vector<std::string> matchingOrder(const Tables& tables) {
  std::vector<std::string> years, others;
  for (const auto& [folder, media] : tables.mediaByFolder) {
    (FolderClassifier::isYearFolder(folder) ? years : others).push_back(folder);
  }
  years.insert(years.end(), others.begin(), others.end());
  return years;
}

// An earlier media file with the same name (`lowerName`, ignoring case), size and content as
// `file`, or null.
MediaFile* sameContent(const std::vector<MediaFile*>& candidates, const SourceFile& file,
                       const std::string& lowerName) {
  if (candidates.empty()) return nullptr;
  ContentHashCache& cache = ContentHashCache::shared();
  const Sha256Digest digest = cache.digest(file);
  for (MediaFile* earlier : candidates) {
    if (earlier->source->size() == file.size() &&
        UnicodeText::lowercased(earlier->fileName()) == lowerName &&
        cache.digest(*earlier->source) == digest) {
      return earlier;
    }
  }
  return nullptr;
}

void matchFolder(const std::string& folder, Tables& tables, ScanResult& result,
                 std::int64_t& matched, std::int64_t total, const ProgressCallback& progress) {
  const auto info = tables.albumInfo.find(folder);
  const FolderRole role = FolderClassifier::classify(
      folder, info == tables.albumInfo.end() ? std::nullopt : std::optional(info->second));
  std::map<std::string, PackedRecord>& sidecars = tables.sidecars[folder];
  std::vector<std::string> jsonNames;
  jsonNames.reserve(sidecars.size());
  for (const auto& [name, sidecar] : sidecars) jsonNames.push_back(name);
  const SidecarMatcher::FolderIndex sidecarIndex(std::move(jsonNames));
  std::set<std::string> used;

  // Each folder is matched once, so its lists go as soon as it is done; that keeps the parsed
  // metadata of the whole export from living beside every file's copy of it.
  std::vector<SourceFilePtr> media = std::move(tables.mediaByFolder[folder]);
  tables.mediaByFolder.erase(folder);
  std::stable_sort(media.begin(), media.end(), [](const auto& a, const auto& b) {
    return a->logicalPath() < b->logicalPath();
  });
  for (const SourceFilePtr& file : media) {
    if (++matched % 200 == 0) report(progress, ScanPhase::matching, matched, total);
    const std::string name = file->fileName();
    const std::optional<std::string> json = sidecarIndex.match(name);
    if (json) used.insert(*json);
    const std::string lowerName = UnicodeText::lowercased(name);
    std::vector<MediaFile*>& sameKey = tables.mediaByIdentity[std::hash<std::string>()(
        lowerName + "|" + std::to_string(file->size()))];
    MediaFile* target = sameContent(sameKey, *file, lowerName);
    if (target) {
      target->duplicates.push_back(file);
      if (json && !target->hasSidecar()) {
        target->setPackedSidecar(sidecars.at(*json));
        target->setSidecarName(json);
      }
    } else {
      auto made = std::make_shared<MediaFile>(static_cast<int>(result.files.size()), file,
                                              mediaKindOf(name));
      if (json) {
        made->setPackedSidecar(sidecars.at(*json));
        made->setSidecarName(json);
      }
      target = made.get();
      sameKey.push_back(target);
      result.files.push_back(std::move(made));
    }
    apply(role, *target);
  }
  tables.orphanSidecars += static_cast<std::int64_t>(sidecars.size() - used.size());
  tables.sidecars.erase(folder);
}

// Per-photo metadata in folders without media: no file can ever match it.
std::int64_t countOrphans(const Tables& tables) {
  std::int64_t orphans = tables.orphanSidecars;
  for (const auto& [folder, sidecars] : tables.sidecars) {
    orphans += static_cast<std::int64_t>(sidecars.size());
  }
  return orphans;
}

// The file name without extension and with edited suffixes cut, each at most once, in order.
std::string groupingStem(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  std::string stem = dot == std::string::npos ? name : name.substr(0, dot);
  for (std::string_view suffix : SidecarMatcher::editedSuffixes) {
    if (const auto tail = UnicodeText::suffixIgnoringCase(stem, suffix)) {
      stem.resize(stem.size() - tail->size());
    }
  }
  return stem;
}

MediaUnit::Kind unitKind(const std::vector<MediaFilePtr>& group) {
  if (group.size() == 1) return MediaUnit::Kind::single;
  const bool anyPhoto = std::any_of(group.begin(), group.end(),
                                    [](const auto& f) { return f->kind == MediaKind::photo; });
  const bool anyOther = std::any_of(group.begin(), group.end(),
                                    [](const auto& f) { return f->kind != MediaKind::photo; });
  if (!anyPhoto || !anyOther) return MediaUnit::Kind::editedWithOriginal;
  const std::string stem = UnicodeText::lowercased(groupingStem(group.front()->fileName()));
  return stem.starts_with("mvimg") || stem.starts_with("pxl") ? MediaUnit::Kind::motionPhoto
                                                              : MediaUnit::Kind::livePhoto;
}

}  // namespace

void apply(const FolderRole& role, MediaFile& file) {
  auto addOnce = [](std::vector<std::string>& list, const std::string& name) {
    if (std::find(list.begin(), list.end(), name) != list.end()) return false;
    list.push_back(name);
    return true;
  };
  if (role.kind == FolderRole::Kind::album) addOnce(file.albums, role.name);
  if (role.kind == FolderRole::Kind::special) {
    std::vector<std::string> folders = file.specialFolders();
    if (addOnce(folders, role.name)) file.setSpecialFolders(folders);
  }
}

std::vector<MediaUnit> groupUnits(const std::vector<MediaFilePtr>& files) {
  // Files of one key sorted together (ties in file order), so a group is one run of `byKey`.
  std::vector<std::string> keys;
  keys.reserve(files.size());
  for (const MediaFilePtr& file : files) {
    keys.push_back(file->source->logicalDirectory() + "/" +
                   UnicodeText::lowercased(groupingStem(file->fileName())));
  }
  std::vector<std::size_t> byKey(files.size());
  std::iota(byKey.begin(), byKey.end(), std::size_t{0});
  std::stable_sort(byKey.begin(), byKey.end(),
                   [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
  // One run of equal keys per group, as [begin, end) in byKey; a run's first member is its
  // earliest file, and groups are listed in the order of their earliest files.
  std::vector<std::pair<std::size_t, std::size_t>> runs;
  for (std::size_t at = 0; at < byKey.size(); ++at) {
    if (at == 0 || keys[byKey[at - 1]] != keys[byKey[at]]) runs.emplace_back(at, at);
    runs.back().second = at + 1;
  }
  keys = {};
  std::sort(runs.begin(), runs.end(),
            [&](const auto& a, const auto& b) { return byKey[a.first] < byKey[b.first]; });
  std::vector<MediaUnit> units;
  units.reserve(runs.size());
  for (const auto& [begin, end] : runs) {
    std::vector<MediaFilePtr> group;
    group.reserve(end - begin);
    for (std::size_t at = begin; at < end; ++at) group.push_back(files[byKey[at]]);
    const MediaUnit::Kind kind = unitKind(group);
    units.push_back(MediaUnit{static_cast<int>(units.size()), kind, std::move(group)});
  }
  return units;
}

void summarize(ScanResult& result) {
  ScanSummary& s = result.summary;
  for (const MediaFilePtr& file : result.files) {
    s.duplicateCopies += static_cast<std::int64_t>(file->duplicates.size());
    const bool photo = file->kind == MediaKind::photo;
    ++(photo ? s.photos : s.videos);
    const std::optional<TakeoutSidecar> sidecar = file->sidecar();
    ++(sidecar ? s.withSidecar : s.withoutSidecar);
    if (sidecar && sidecar->description) ++s.captionsInTakeout;
    if (photo) ScanSupport::countPhotoGaps(*file, s);
  }
  s.mediaFiles += static_cast<std::int64_t>(result.files.size());
  s.items += static_cast<std::int64_t>(result.units.size());
  s.albums += static_cast<std::int64_t>(result.albums.size());
}

ScanResultPtr scan(std::vector<SourceFilePtr> files,
                   const std::vector<std::filesystem::path>& inputs,
                   const ProgressCallback& progress) {
  auto result = std::make_shared<ScanResult>(inputs);
  result->summary.sourceFiles = static_cast<std::int64_t>(files.size());
  result->summary.zipParts = ScanSupport::countZipParts(files);
  {
    // The working tables end here, before the files are read and grouped.
    Tables tables;
    sortIntoFolders(files, tables);
    files = {};
    readJsonFiles(tables, result->summary, progress);
    tables.jsonByFolder = {};

    std::int64_t mediaTotal = 0;
    for (const auto& [folder, media] : tables.mediaByFolder)
      mediaTotal += static_cast<std::int64_t>(media.size());
    std::int64_t matched = 0;
    for (const std::string& folder : matchingOrder(tables)) {
      matchFolder(folder, tables, *result, matched, mediaTotal, progress);
    }
    result->summary.orphanSidecars = countOrphans(tables);
  }
  ScanSupport::returnFreedMemory();
  ScanSupport::readPhotosMetadata(result->files, progress);  // movies are read during repair
  result->units = groupUnits(result->files);
  for (const MediaFilePtr& file : result->files) {
    for (const std::string& album : file->albums) result->albums[album].push_back(file);
  }
  summarize(*result);
  ScanSupport::returnFreedMemory();
  const auto count = static_cast<std::int64_t>(result->files.size());
  report(progress, ScanPhase::complete, count, count);
  return result;
}

}  // namespace quillmere::TakeoutScanner
