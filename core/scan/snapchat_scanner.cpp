#include "core/scan/snapchat_scanner.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <unordered_map>

#include "core/dates/iso_date.h"
#include "core/scan/scan_support.h"
#include "core/sources/unicode_text.h"

namespace quillmere::SnapchatScanner {
namespace {

constexpr std::array<std::string_view, 3> kMainSuffixes = {"-main", "_main", " main"};
constexpr std::array<std::string_view, 3> kOverlaySuffixes = {"-overlay", "_overlay", " overlay"};
constexpr std::array<int, 3> kDayShifts = {0, -1, 1};
constexpr double kDay = 86400;

constexpr const char* kNoteByDate = "Matched to Snapchat's history by date";
constexpr const char* kNoteByOrder =
    "Several Memories that day; the date is right but the time may belong to another of them";
constexpr const char* kNoteDayOnly =
    "Not found in Snapchat's history; only the day is known (from the file name), time set to "
    "midday";
constexpr const char* kNoteNoDate = "Not found in Snapchat's history and no date in the file name";

std::string kindLabel(MediaKind kind) { return std::string(rawValue(kind)); }

// YYYY-MM-DD of an instant, in UTC.
std::string utcDay(double utc) { return ISODate::format(utc, 0).substr(0, 10); }

void giveEntry(MediaFile& file, Entry& entry) {
  entry.used = true;
  TakeoutSidecar sidecar;
  sidecar.title = file.fileName();
  sidecar.photoTakenTime = entry.utc;
  if (entry.location) {
    sidecar.geoData = TakeoutSidecar::Geo{entry.location->latitude, entry.location->longitude, 0};
  }
  file.setSidecar(sidecar);
  file.setSidecarName(std::string(historyFileName));
}

// Pass 1: identifiers in the stem that name an entry.
std::vector<std::size_t> matchExactly(const std::vector<Item>& items,
                                      const std::vector<MediaFilePtr>& files,
                                      std::vector<Entry>& entries, MatchCounts& counts) {
  std::unordered_map<std::string, std::size_t> byId;
  for (std::size_t k = 0; k < entries.size(); ++k) {
    for (const std::string& id : entries[k].ids) byId.emplace(UnicodeText::lowercased(id), k);
  }
  std::vector<std::size_t> unmatched;
  for (std::size_t i = 0; i < items.size(); ++i) {
    bool given = false;
    for (const std::string& token : tokens(items[i].stem)) {
      const auto found = byId.find(UnicodeText::lowercased(token));
      if (found != byId.end() && !entries[found->second].used) {
        giveEntry(*files[i], entries[found->second]);
        ++counts.exact;
        given = true;
        break;
      }
    }
    if (!given) unmatched.push_back(i);
  }
  return unmatched;
}

// Pass 2 for one day shift; returns the items still unmatched, in item order.
std::vector<std::size_t> matchByDay(int shift, const std::vector<std::size_t>& pending,
                                    const std::vector<Item>& items,
                                    const std::vector<MediaFilePtr>& files,
                                    std::vector<Entry>& entries, MatchCounts& counts) {
  std::map<std::string, std::vector<std::size_t>> entriesByKey;
  for (std::size_t k = 0; k < entries.size(); ++k) {
    if (entries[k].used) continue;
    entriesByKey[utcDay(entries[k].utc + shift * kDay) + kindLabel(entries[k].kind)].push_back(k);
  }
  std::map<std::string, std::vector<std::size_t>> itemsByKey;
  for (std::size_t i : pending) {
    if (items[i].day) itemsByKey[*items[i].day + kindLabel(items[i].kind)].push_back(i);
  }
  std::set<std::size_t> matched;
  for (auto& [key, group] : itemsByKey) {
    auto found = entriesByKey.find(key);
    if (found == entriesByKey.end()) continue;
    std::vector<std::size_t>& candidates = found->second;
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](std::size_t a, std::size_t b) { return entries[a].utc < entries[b].utc; });
    const bool single = group.size() == 1 && candidates.size() == 1;
    for (std::size_t n = 0; n < group.size() && n < candidates.size(); ++n) {
      MediaFile& file = *files[group[n]];
      giveEntry(file, entries[candidates[n]]);
      matched.insert(group[n]);
      if (single) {
        ++counts.byDate;
        if (shift != 0) file.setMatchNote(std::string(kNoteByDate));
      } else {
        ++counts.byOrder;
        file.setMatchNote(std::string(kNoteByOrder));
      }
    }
  }
  std::vector<std::size_t> rest;
  for (std::size_t i : pending) {
    if (!matched.contains(i)) rest.push_back(i);
  }
  return rest;
}

void dateLeftovers(const std::vector<std::size_t>& pending, const std::vector<Item>& items,
                   const std::vector<MediaFilePtr>& files, MatchCounts& counts) {
  for (std::size_t i : pending) {
    MediaFile& file = *files[i];
    if (!items[i].day) {
      file.setMatchNote(std::string(kNoteNoDate));
      continue;
    }
    TakeoutSidecar sidecar;
    sidecar.title = file.fileName();
    if (const auto midday = ISODate::parse(*items[i].day + "T12:00:00Z")) {
      sidecar.photoTakenTime = midday->date;
    }
    file.setSidecar(sidecar);
    file.setMatchNote(std::string(kNoteDayOnly));
    ++counts.dayOnly;
  }
}

std::vector<Entry> readHistories(const std::vector<SourceFilePtr>& files) {
  std::vector<Entry> entries;
  for (const SourceFilePtr& file : files) {
    if (UnicodeText::lowercased(file->fileName()) != historyFileName) continue;
    try {
      for (Entry& entry : parseHistory(file->readAll())) entries.push_back(std::move(entry));
    } catch (const std::exception&) {
      // An unreadable history file is skipped: its memories become leftovers.
    }
  }
  return entries;
}

bool inMemoriesFolder(const SourceFile& file) {
  const std::string path = UnicodeText::lowercased(file.logicalPath());
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    if (path.compare(start, slash - start, "memories") == 0 && slash - start == 8) return true;
    start = slash + 1;
  }
  return false;
}

std::vector<Item> collectItems(const std::vector<SourceFilePtr>& files) {
  std::vector<SourceFilePtr> candidates;
  std::copy_if(files.begin(), files.end(), std::back_inserter(candidates),
               [](const SourceFilePtr& f) { return inMemoriesFolder(*f); });
  if (candidates.empty()) candidates = files;
  std::map<std::string, Item> items;
  std::map<std::string, SourceFilePtr> overlays;
  for (const SourceFilePtr& file : candidates) {
    const std::optional<ParsedName> name = parseName(file->fileName());
    if (!name) continue;
    const std::string key = UnicodeText::lowercased(file->logicalDirectory() + "/" + name->stem);
    if (name->role == "overlay") {
      overlays[key] = file;
    } else if (const MediaKind kind = mediaKindOf(file->fileName()); kind != MediaKind::other) {
      items[key] = Item{name->stem, name->day, file, nullptr, kind};
    }
  }
  std::vector<Item> sorted;
  for (auto& [key, item] : items) {
    if (const auto overlay = overlays.find(key); overlay != overlays.end())
      item.overlay = overlay->second;
    sorted.push_back(std::move(item));
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const Item& a, const Item& b) {
    const std::string& dayA = a.day ? *a.day : std::string();
    const std::string& dayB = b.day ? *b.day : std::string();
    return dayA != dayB ? dayA < dayB : a.stem < b.stem;
  });
  return sorted;
}

std::string outputNameOf(const Item& item) {
  const std::string name = item.main->fileName();
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? item.stem : item.stem + name.substr(dot);
}

void count(ScanResult& result, const std::vector<Entry>& entries, const MatchCounts& counts) {
  ScanSummary& s = result.summary;
  const auto n = static_cast<std::int64_t>(result.files.size());
  s.mediaFiles = s.items = n;
  s.matchedExact = counts.exact;
  s.matchedByDate = counts.byDate;
  s.matchedByOrder = counts.byOrder;
  s.dayOnly = counts.dayOnly;
  s.withSidecar = counts.exact + counts.byDate + counts.byOrder;
  s.withoutSidecar = n - s.withSidecar;
  s.historyEntries = static_cast<std::int64_t>(entries.size());
  s.orphanSidecars =
      std::count_if(entries.begin(), entries.end(), [](const Entry& e) { return !e.used; });
  for (const MediaFilePtr& file : result.files) {
    if (file->overlay) ++s.overlays;
    if (file->kind != MediaKind::photo) {
      ++s.videos;
      continue;
    }
    ++s.photos;
    ScanSupport::countPhotoGaps(*file, s);
  }
}

}  // namespace

std::optional<ParsedName> parseName(std::string_view fileName) {
  const std::size_t dot = fileName.rfind('.');
  const std::string base(dot == std::string_view::npos ? fileName : fileName.substr(0, dot));
  const std::string lower = UnicodeText::lowercased(base);
  ParsedName parsed{base, "main", std::nullopt};
  for (std::string_view suffix : kMainSuffixes) {
    if (lower.ends_with(suffix)) parsed.stem = base.substr(0, base.size() - suffix.size());
  }
  for (std::string_view suffix : kOverlaySuffixes) {
    if (lower.ends_with(suffix)) {
      parsed.stem = base.substr(0, base.size() - suffix.size());
      parsed.role = "overlay";
    }
  }
  if (parsed.stem == base && !lower.starts_with("20") && !lower.starts_with("19")) {
    return std::nullopt;
  }
  if (parsed.stem.size() >= 10 && ISODate::parse(parsed.stem.substr(0, 10) + "T00:00:00Z")) {
    parsed.day = parsed.stem.substr(0, 10);
  }
  return parsed;
}

MatchCounts match(const std::vector<Item>& items, const std::vector<MediaFilePtr>& files,
                  std::vector<Entry>& entries) {
  MatchCounts counts;
  std::vector<std::size_t> pending = matchExactly(items, files, entries, counts);
  for (int shift : kDayShifts) pending = matchByDay(shift, pending, items, files, entries, counts);
  dateLeftovers(pending, items, files, counts);
  return counts;
}

ScanResultPtr scan(const std::vector<SourceFilePtr>& files,
                   const std::vector<std::filesystem::path>& inputs,
                   const ProgressCallback& progress) {
  auto result = std::make_shared<ScanResult>(inputs);
  result->kind = ExportKind::snapchat;
  result->summary.sourceFiles = static_cast<std::int64_t>(files.size());
  result->summary.zipParts = ScanSupport::countZipParts(files);

  std::vector<Entry> entries = readHistories(files);
  const std::vector<Item> items = collectItems(files);
  for (std::size_t i = 0; i < items.size(); ++i) {
    auto file = std::make_shared<MediaFile>(static_cast<int>(i), items[i].main, items[i].kind);
    file->overlay = items[i].overlay;
    file->setOutputName(outputNameOf(items[i]));
    result->files.push_back(std::move(file));
  }
  const MatchCounts counts = match(items, result->files, entries);

  ScanSupport::readPhotosMetadata(result->files, progress);
  const auto total = static_cast<std::int64_t>(result->files.size());
  for (const MediaFilePtr& file : result->files) {
    result->units.push_back(
        MediaUnit{static_cast<int>(result->units.size()), MediaUnit::Kind::single, {file}});
  }
  count(*result, entries, counts);
  if (progress) progress({std::string(ScanPhase::complete), total, total});
  return result;
}

}  // namespace quillmere::SnapchatScanner
