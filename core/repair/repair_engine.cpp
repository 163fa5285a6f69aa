#include "core/repair/repair_engine.h"

#include <exception>
#include <future>
#include <iterator>
#include <memory>
#include <vector>

#include "core/metadata/metadata_writer.h"
#include "core/repair/album_lists.h"
#include "core/repair/file_plan.h"
#include "core/repair/output_naming.h"
#include "core/repair/pending_row.h"
#include "core/repair/report_writer.h"
#include "core/repair/run_folder.h"
#include "core/repair/staging.h"
#include "core/sources/parallel_loop.h"
#include "core/sources/quillmere_error.h"

namespace quillmere::RepairEngine {
namespace {

constexpr std::string_view kRepairing = "Repairing";
constexpr std::string_view kDone = "Done";

// Items go through a run in chunks: a chunk's items are staged side by side, its copies
// written one after another in item order, then read back side by side. Chunks rather than a
// hand-over per item, because waking another thread costs about as much as a small photo's
// write.
constexpr std::size_t kChunkItems = 32;
constexpr std::int64_t kChunkBytes = std::int64_t{16} << 20;

// Removes the work folder on every way out of a run, errors ignored.
class WorkFolder {
 public:
  explicit WorkFolder(std::filesystem::path path) : path_(std::move(path)) {
    std::filesystem::create_directories(path_);
  }
  ~WorkFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Everything one run keeps between items.
struct RunState {
  const ScanResult& scan;
  const RepairOptions& options;
  RepairResult& result;
  const std::filesystem::path& work;
  OffsetIndex offsets;
  ReportWriter::RowFiles report;
  UsedNames used;
  AlbumLists albums;
  std::vector<PendingRow> pending;  // the chunk's rows, not yet added
  // The read-backs of the chunk's written copies, not yet run: each fulfils a pending row's
  // check.
  std::vector<std::packaged_task<MetadataWriter::Verification()>> checks;

  // Every row goes to the report files and the totals at once; the result keeps it only when
  // asked to.
  void add(RepairRow row) {
    report.add(row);
    RepairEngine::tally(result.summary, row);
    if (options.keepRows) result.rows.push_back(std::move(row));
  }

  // Reads the chunk's copies back side by side, then adds its rows in order.
  void finishChunk() {
    ParallelLoop::run(checks.size(), [this](std::size_t n) { checks[n](); });
    checks.clear();
    for (PendingRow& slot : pending) add(slot.finish());
    pending.clear();
  }
};

RepairRow stagingFailure(const MediaUnit& unit, const MediaFile& file, const std::string& error) {
  RepairRow row;
  row.item = static_cast<std::int64_t>(unit.id) + 1;
  row.itemKind = unit.kind;
  row.source = file.source->displayLocation();
  row.status = RepairRow::Status::failed;
  row.dateSource = DateSource::none;
  row.timeZoneSource = OffsetSource::unknown;
  row.albums = file.albums;
  row.notes = {error};
  return row;
}

// Writes one staged file to runFolder/folder/name and returns its row, whose read-back check
// may still be running. Per-file failures end up in the row; nothing escapes.
PendingRow writeFile(RunState& run, const MediaUnit& unit, const Staged& staged,
                     const std::string& folder, const std::string& name) {
  const std::filesystem::path& runFolder = run.result.outputFolder();
  const std::string relative = folder + "/" + name;
  const auto destination = runFolder / folder / name;
  const MediaKind kind = staged.file->kind;
  const MetadataPatch& patch = staged.plan.patch;
  PendingRow pending(staged.plan.row(unit, *staged.file, relative));
  RepairRow& row = pending.row;
  try {
    const WriteMethod method = writeCopy(staged, destination, run.work);
    row.method = std::string(label(method));
    if (method == WriteMethod::xmpSidecar) {
      row.notes.push_back("This file type can't hold the metadata safely; it's in " + name +
                          ".xmp and the file's dates");
    } else if (method == WriteMethod::embedded) {
      std::packaged_task<MetadataWriter::Verification()> check(
          [destination, kind, patch] { return verify(destination, kind, patch); });
      pending.checkNotesAt = row.notes.size();
      pending.check = check.get_future();
      run.checks.push_back(std::move(check));
    }
    for (const std::string& album : staged.file->albums) run.albums[album].push_back(relative);
    if (staged.overlayNote) row.notes.push_back(*staged.overlayNote);
    keepExtras(staged, name, folder, runFolder, row, run.work);
  } catch (const std::exception& error) {
    row.status = RepairRow::Status::failed;
    row.notes.emplace_back(error.what());
    std::error_code ignored;
    std::filesystem::remove(staged.temp, ignored);
  }
  return pending;
}

// One item's files copied into the work folder and planned, and the rows of those that could
// not be.
struct StagedItem {
  std::vector<Staged> staged;
  std::vector<PendingRow> rows;
};

// Stages every file of `unit`. Touches nothing but the work folder, so that several items can
// be staged at once.
StagedItem stageItem(const MediaUnit& unit, const std::filesystem::path& work,
                     const OffsetIndex& offsets, const RepairOptions& options) {
  StagedItem item;
  for (const MediaFilePtr& file : unit.files) {
    try {
      item.staged.push_back(stage(file, work, offsets, options));
    } catch (const std::exception& error) {
      item.rows.emplace_back(stagingFailure(unit, *file, error.what()));
    }
  }
  return item;
}

// Files a staged item's copies together in the lead file's dated folder and returns the
// item's rows, whose read-back checks may still be running. Only the dated folder's creation
// can fail the run.
std::vector<PendingRow> writeItem(RunState& run, const MediaUnit& unit, StagedItem item) {
  const std::vector<Staged>& staged = item.staged;
  std::vector<PendingRow> rows = std::move(item.rows);
  if (staged.empty()) return rows;
  const Staged* lead = &staged.front();
  for (const Staged& s : staged) {
    if (s.file->kind == MediaKind::photo) {
      lead = &s;
      break;
    }
  }
  const std::string folder = datedFolder(lead->plan.date);
  std::filesystem::create_directories(run.result.outputFolder() / folder);
  std::vector<std::string> wanted;
  for (const Staged& s : staged) wanted.push_back(s.name);
  const auto names = uniqueNames(wanted, folder, run.used);
  for (std::size_t i = 0; i < staged.size(); ++i) {
    rows.push_back(writeFile(run, unit, staged[i], folder, names[i]));
  }
  return rows;
}

// The end of the chunk of items that starts at `begin`: at most kChunkItems items, and no more
// once their files reach kChunkBytes (a chunk's small photos are held in memory).
std::size_t chunkEnd(const ScanResult& scan, std::size_t begin) {
  std::int64_t bytes = 0;
  std::size_t end = begin;
  while (end < scan.units.size() && end - begin < kChunkItems && bytes < kChunkBytes) {
    for (const MediaFilePtr& file : scan.units[end].files) {
      bytes += file->source->size() + (file->overlay ? file->overlay->size() : 0);
    }
    ++end;
  }
  return end;
}

}  // namespace

RepairResultPtr run(const ScanResult& scan, const RepairOptions& options,
                    const ProgressCallback& progress, const CancelQuery& isCancelled) {
  if (scan.files.empty()) throw QuillmereError::nothingToRepair();
  checkOutsideSources(options.destination, scan.inputs);
  const std::filesystem::path runFolder = makeRunFolder(options.destination);
  const WorkFolder work(runFolder / ".work");
  auto result = std::make_shared<RepairResult>(runFolder);
  RunState state{scan,
                 options,
                 *result,
                 work.path(),
                 buildOffsetIndex(scan),
                 ReportWriter::RowFiles(work.path()),
                 {},
                 {},
                 {},
                 {}};

  const auto total = static_cast<std::int64_t>(scan.units.size());
  bool cancelled = false;
  for (std::size_t begin = 0; begin < scan.units.size() && !cancelled;) {
    const std::size_t end = chunkEnd(scan, begin);
    std::vector<StagedItem> items(end - begin);
    ParallelLoop::run(items.size(), [&](std::size_t k) {
      items[k] = stageItem(scan.units[begin + k], state.work, state.offsets, options);
    });
    for (std::size_t k = 0; k < items.size(); ++k) {
      const auto i = static_cast<std::int64_t>(begin + k);
      cancelled = isCancelled && isCancelled();
      if (cancelled) break;  // the items staged beyond go with the work folder
      if (progress) progress({std::string(kRepairing), i, total});
      auto rows = writeItem(state, scan.units[begin + k], std::move(items[k]));
      std::move(rows.begin(), rows.end(), std::back_inserter(state.pending));
      result->itemsReached = i + 1;
    }
    state.finishChunk();
    begin = end;
  }
  writeAlbums(state.albums, runFolder);
  result->summary.items = total;
  state.report.commit(result->reportFolder());
  ReportWriter::writeTotals(*result, scan, work.path());
  if (progress) progress({std::string(kDone), total, total});
  return result;
}

}  // namespace quillmere::RepairEngine
