#ifndef QUILLMERE_CORE_SCAN_TAKEOUT_SCANNER_H_
#define QUILLMERE_CORE_SCAN_TAKEOUT_SCANNER_H_

#include <array>
#include <filesystem>
#include <string_view>
#include <vector>

#include "core/scan/folder_classifier.h"
#include "core/scan/scan_result.h"
#include "core/scan/work_progress.h"
#include "core/sources/source_file.h"

namespace quillmere {

// Turns the collected files of a Google Takeout export into a scan result: reads Google's JSON
// files, classifies folders, matches every media file to its JSON, merges copies of the same
// photo found in several folders, reads the dates and places photos already carry, groups
// files into items and counts what it found. Reads the export only.
namespace TakeoutScanner {

// The service's files that are never photo metadata, by exact name.
inline constexpr std::array<std::string_view, 4> ignoredNames = {
    "archive_browser.html", "print-subscriptions.json", "shared_album_comments.json",
    "user-generated-memory-titles.json"};

// JSON files of this size or more are not read.
inline constexpr std::int64_t kMaxJsonSize = 5'000'000;

// Scans `files` (collected from `inputs`). Reports progress on the calling thread. Unreadable
// or foreign JSON files and unreadable photos are counted or left without metadata; the scan
// fails only when a media file's whole content can't be read for the duplicate check (the
// read's error, e.g. a zip checksum failure). Takes `files` by value so that, when handed
// over with std::move, the JSON files are released as soon as they have been read.
ScanResultPtr scan(std::vector<SourceFilePtr> files,
                   const std::vector<std::filesystem::path>& inputs,
                   const ProgressCallback& progress = nullptr);

// Adds an album or special-folder name to a media file unless it is there already.
void apply(const FolderRole& role, MediaFile& file);

// Groups files into items: files of one folder sharing a base name (edited suffixes removed,
// case ignored) form one Live Photo, motion photo or edited-with-original item.
std::vector<MediaUnit> groupUnits(const std::vector<MediaFilePtr>& files);

// Adds the counts of `result`'s files, units and albums to its summary. Run once per result.
void summarize(ScanResult& result);

}  // namespace TakeoutScanner
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_TAKEOUT_SCANNER_H_
