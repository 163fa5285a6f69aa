#include "core/photos/photos_importer.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "core/sources/media_kind.h"
#include "core/sources/unicode_text.h"

namespace quillmere::PhotosImporter {
namespace {

namespace fs = std::filesystem;

// Album membership is sent in calls of at most this many assets.
constexpr std::size_t kAlbumChunk = 500;
// During the item loop the record is saved after successes at multiples of this position.
constexpr std::size_t kSaveEvery = 50;

// Movie halves are told by extension alone; Google's motion-photo parts end in ".MP".
bool isVideoLike(const std::string& output) {
  const std::string name = fs::path(output).filename().string();
  const auto dot = name.rfind('.');
  if (dot == std::string::npos) return false;
  const std::string extension = UnicodeText::lowercased(std::string_view(name).substr(dot + 1));
  return extension == "mp" || videoExtensions().contains(extension);
}

ImportItem singleItem(const RepairRow& row, const std::vector<std::string>& albums) {
  ImportItem item;
  (isVideoLike(row.output) ? item.video : item.photo) = row.output;
  item.date = row.captureUTC;
  item.location = row.location;
  item.albums = albums;
  return item;
}

void addGroup(const std::vector<const RepairRow*>& group, std::vector<ImportItem>& items) {
  std::set<std::string> names;
  for (const RepairRow* row : group) names.insert(row->albums.begin(), row->albums.end());
  const std::vector<std::string> albums(names.begin(), names.end());

  const RepairRow* still = nullptr;
  const RepairRow* movie = nullptr;
  if (group.front()->itemKind == MediaUnit::Kind::livePhoto) {
    for (const RepairRow* row : group) {
      const RepairRow*& slot = isVideoLike(row->output) ? movie : still;
      if (slot == nullptr) slot = row;
    }
  }
  if (still == nullptr || movie == nullptr) {
    for (const RepairRow* row : group) items.push_back(singleItem(*row, albums));
    return;
  }
  ImportItem pair;
  pair.photo = still->output;
  pair.pairedVideo = movie->output;
  pair.date = still->captureUTC;
  pair.location = still->location;
  pair.albums = albums;
  items.push_back(std::move(pair));
  for (const RepairRow* row : group) {
    if (row->output != still->output && row->output != movie->output) {
      items.push_back(singleItem(*row, albums));
    }
  }
}

// Where one run stands: the record as it grows, the counts, the log and album membership.
struct Run {
  const RepairResult& result;
  PhotoLibrary& library;
  Record record;
  ImportSummary summary;
  std::vector<LogLine> log;
  std::map<std::string, std::vector<std::string>> members;  // album name -> asset ids

  void save() { saveRecord(record, result.reportFolder()); }

  std::optional<fs::path> file(const std::optional<std::string>& relative) const {
    if (!relative) return std::nullopt;
    return result.outputFolder() / *relative;
  }

  // Records the assets of an item just added: one asset stands for all of its paths, two are
  // the halves of a split Live Photo, in path order.
  void remember(const ImportItem& item, const std::vector<std::string>& ids) {
    const std::vector<std::string> paths = item.paths();
    for (std::size_t i = 0; i < paths.size(); ++i) {
      if (ids.size() == 1) {
        record.assets[paths[i]] = ids.front();
      } else if (i < ids.size()) {
        record.assets[paths[i]] = ids[i];
      }
    }
  }

  void addToAlbums(const ImportItem& item, const std::string& allItems,
                   const std::vector<std::string>& ids) {
    for (const std::string& id : ids) {
      members[allItems].push_back(id);
      for (const std::string& album : item.albums) members[album].push_back(id);
    }
  }

  // Adds one item; its asset identifiers, or nothing when it failed (then logged).
  std::optional<std::vector<std::string>> add(const ImportItem& item) {
    const std::string key = item.paths().front();
    try {
      if (!item.pairedVideo) {
        const std::string id = library.addAsset(file(item.photo), std::nullopt,
                                                item.photo ? std::nullopt : file(item.video),
                                                item.date, item.location);
        ++summary.imported;
        log.push_back({key, true, ""});
        return std::vector{id};
      }
      return addLivePhoto(item, key);
    } catch (const std::exception& error) {
      ++summary.failed;
      log.push_back({key, false, error.what()});
      return std::nullopt;
    }
  }

  std::vector<std::string> addLivePhoto(const ImportItem& item, const std::string& key) {
    try {
      const std::string id = library.addAsset(file(item.photo), file(item.pairedVideo),
                                              std::nullopt, item.date, item.location);
      ++summary.livePhotos;
      ++summary.imported;
      log.push_back({key, true, "Live Photo"});
      return {id};
    } catch (const std::exception&) {
      // The library wouldn't pair them: add the two halves apart. A failure here fails the item.
    }
    const std::string photo =
        library.addAsset(file(item.photo), std::nullopt, std::nullopt, item.date, item.location);
    const std::string video = library.addAsset(std::nullopt, std::nullopt, file(item.pairedVideo),
                                               item.date, item.location);
    ++summary.livePhotosSplit;
    ++summary.imported;
    log.push_back({key, true,
                   library.name() + " wouldn't pair this Live Photo; photo and video added "
                                    "separately"});
    return {photo, video};
  }

  void fillAlbums(const ProgressCallback& progress) {
    const auto total = static_cast<std::int64_t>(members.size());
    if (progress) progress({std::string(ImportPhase::creatingAlbums), 0, total});
    std::int64_t done = 0;
    for (const auto& [name, ids] : members) {  // std::map: ascending plain text order
      const auto recorded = record.albumIDs.find(name);
      const std::string album = library.album(
          name, *record.folderID,
          recorded == record.albumIDs.end() ? std::nullopt : std::optional(recorded->second));
      record.albumIDs[name] = album;
      for (std::size_t start = 0; start < ids.size(); start += kAlbumChunk) {
        const auto end =
            ids.begin() + static_cast<std::ptrdiff_t>(std::min(ids.size(), start + kAlbumChunk));
        library.add(std::vector(ids.begin() + static_cast<std::ptrdiff_t>(start), end), album);
      }
      if (progress) progress({std::string(ImportPhase::creatingAlbums), ++done, total});
    }
  }
};

const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

std::vector<ImportItem> items(const RepairResult& result) {
  std::map<std::int64_t, std::vector<const RepairRow*>> groups;
  for (const RepairRow& row : result.rows) {
    if (!row.output.empty() && row.status != RepairRow::Status::failed) {
      groups[row.item].push_back(&row);
    }
  }
  std::vector<ImportItem> items;
  for (const auto& [number, group] : groups) addGroup(group, items);
  return items;
}

std::string folderTitle(const RepairResult& /*result*/, ExportKind kind,
                        std::chrono::system_clock::time_point now) {
  const time_t seconds = std::chrono::system_clock::to_time_t(now);
  struct tm local = {};
  localtime_r(&seconds, &local);
  char when[64];
  std::snprintf(when, sizeof when, "%s %d, %d %02d:%02d", kMonths[local.tm_mon % 12], local.tm_mday,
                local.tm_year + 1900, local.tm_hour, local.tm_min);
  return std::string("Quillmere: ") +
         (kind == ExportKind::snapchat ? "Snapchat" : "Google Photos") + " (" + when + ")";
}

std::string allItemsAlbum(ExportKind kind) {
  return kind == ExportKind::snapchat ? "Snapchat Memories" : "All imported items";
}

ImportSummary run(const RepairResult& result, ExportKind scanKind, PhotoLibrary& library,
                  const ProgressCallback& progress, const CancelQuery& isCancelled) {
  if (!library.authorize()) {
    throw PhotosImportError::notAuthorized(library.name(), library.address(),
                                           library.authorizationProblem());
  }
  Run run{result, library, readRecord(result.reportFolder()), {}, {}, {}};
  const std::vector<ImportItem> items = PhotosImporter::items(result);
  run.summary.items = static_cast<std::int64_t>(items.size());
  const std::string title = run.record.folderTitle.value_or(folderTitle(result, scanKind));
  run.summary.folderTitle = title;

  run.record.folderID = library.folder(title, run.record.folderID);
  run.record.folderTitle = title;
  run.save();

  const std::string allItems = allItemsAlbum(scanKind);
  const std::string adding = std::string(ImportPhase::addingTo) + library.name();
  const auto total = static_cast<std::int64_t>(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (isCancelled && isCancelled()) break;
    if (progress) progress({adding, static_cast<std::int64_t>(i), total});
    const ImportItem& item = items[i];
    if (const auto recorded = run.record.assets.find(item.paths().front());
        recorded != run.record.assets.end()) {
      ++run.summary.alreadyImported;
      run.addToAlbums(item, allItems, {recorded->second});
      continue;
    }
    const auto ids = run.add(item);
    if (!ids) continue;
    run.remember(item, *ids);
    run.addToAlbums(item, allItems, *ids);
    if (i % kSaveEvery == 0) run.save();
  }

  run.save();
  run.fillAlbums(progress);
  run.summary.albums = static_cast<std::int64_t>(run.members.size());
  run.save();
  appendLog(run.log, result.reportFolder());
  return run.summary;
}

}  // namespace quillmere::PhotosImporter
