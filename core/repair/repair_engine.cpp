#include "core/repair/repair_engine.h"

#include <exception>
#include <memory>
#include <optional>
#include <vector>

#include "core/metadata/metadata_writer.h"
#include "core/repair/album_lists.h"
#include "core/repair/file_plan.h"
#include "core/repair/output_naming.h"
#include "core/repair/report_writer.h"
#include "core/repair/run_folder.h"
#include "core/repair/staging.h"
#include "core/sources/parallel_loop.h"
#include "core/sources/quillmere_error.h"

namespace quillmere::RepairEngine {
namespace {

constexpr std::string_view kRepairing = "Repairing";
constexpr std::string_view kDone = "Done";

// Items go through a run in chunks: a chunk's items are staged side by side, its copies named
// one after another in item order, then written and read back side by side. Chunks rather than
// a hand-over per item, because waking another thread costs about as much as a small photo's
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

  // Every row goes to the report files and the totals at once; the result keeps it only when
  // asked to.
  void add(RepairRow row) {
    report.add(row);
    RepairEngine::tally(result.summary, row);
    if (options.keepRows) result.rows.push_back(std::move(row));
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

// One item's files copied into the work folder and planned, and the rows of those that could
// not be.
struct StagedItem {
  std::vector<Staged> staged;
  std::vector<RepairRow> failures;
};

// One file's place in a chunk, in item order: the row of a file that could not be staged, or a
// staged file with the name its copy takes.
struct Slot {
  const MediaUnit* unit = nullptr;
  std::optional<Staged> staged;
  std::string folder;
  std::string name;
  RepairRow row;
  bool copied = false;  // the copy is in place, so its albums list it
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
      item.failures.push_back(stagingFailure(unit, *file, error.what()));
    }
  }
  return item;
}

// Names a staged item's copies, together in the lead file's dated folder, and appends its
// slots. Only the dated folder's creation can fail the run.
void placeItem(RunState& run, const MediaUnit& unit, StagedItem item, std::vector<Slot>& slots) {
  for (RepairRow& row : item.failures) slots.push_back({&unit, {}, {}, {}, std::move(row), false});
  std::vector<Staged>& staged = item.staged;
  if (staged.empty()) return;
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
    slots.push_back({&unit, std::move(staged[i]), folder, names[i], {}, false});
  }
}

// Writes a slot's staged file to runFolder/folder/name, reads it back and makes its row.
// Per-file failures end up in the row; nothing escapes.
void writeSlot(Slot& slot, const std::filesystem::path& runFolder,
               const std::filesystem::path& work) {
  const Staged& staged = *slot.staged;
  const std::string relative = slot.folder + "/" + slot.name;
  const auto destination = runFolder / slot.folder / slot.name;
  RepairRow& row = slot.row = staged.plan.row(*slot.unit, *staged.file, relative);
  try {
    const WriteMethod method = writeCopy(staged, destination, work);
    slot.copied = true;
    row.method = std::string(label(method));
    if (method == WriteMethod::xmpSidecar) {
      row.notes.push_back("This file type can't hold the metadata safely; it's in " + slot.name +
                          ".xmp and the file's dates");
    } else if (method == WriteMethod::embedded) {
      checkCopy(destination, staged.file->kind, staged.plan.patch, row);
    }
    if (staged.overlayNote) row.notes.push_back(*staged.overlayNote);
    keepExtras(staged, slot.name, slot.folder, runFolder, row, work);
  } catch (const std::exception& error) {
    row.status = RepairRow::Status::failed;
    row.notes.emplace_back(error.what());
    std::error_code ignored;
    std::filesystem::remove(staged.temp, ignored);
  }
  slot.staged.reset();  // its bytes are written
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

// Repairs the items [begin, end): stages them side by side, names their copies in item order,
// writes and reads the copies back side by side, and adds the rows in item order. False when
// the run was cancelled before one of them. A run-level error is thrown once the items named
// before it are written and their rows added, as a run taking one item at a time would leave
// them.
bool repairChunk(RunState& run, std::size_t begin, std::size_t end,
                 const ProgressCallback& progress, const CancelQuery& isCancelled) {
  const ScanResult& scan = run.scan;
  std::vector<StagedItem> items(end - begin);
  ParallelLoop::run(items.size(), [&](std::size_t k) {
    items[k] = stageItem(scan.units[begin + k], run.work, run.offsets, run.options);
  });
  const auto total = static_cast<std::int64_t>(scan.units.size());
  std::vector<Slot> slots;
  bool cancelled = false;
  std::exception_ptr failure;
  for (std::size_t k = 0; k < items.size() && !failure; ++k) {
    const auto i = static_cast<std::int64_t>(begin + k);
    cancelled = isCancelled && isCancelled();
    if (cancelled) break;  // the items staged beyond go with the work folder
    if (progress) progress({std::string(kRepairing), i, total});
    try {
      placeItem(run, scan.units[begin + k], std::move(items[k]), slots);
      run.result.itemsReached = i + 1;
    } catch (...) {
      failure = std::current_exception();
    }
  }
  const std::filesystem::path& runFolder = run.result.outputFolder();
  ParallelLoop::run(slots.size(), [&](std::size_t n) {
    if (slots[n].staged) writeSlot(slots[n], runFolder, run.work);
  });
  for (Slot& slot : slots) {
    if (slot.copied) {
      for (const std::string& album : slot.row.albums) {
        run.albums[album].push_back(slot.row.output);
      }
    }
    run.add(std::move(slot.row));
  }
  if (failure) std::rethrow_exception(failure);
  return !cancelled;
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
                 {}};

  for (std::size_t begin = 0; begin < scan.units.size();) {
    const std::size_t end = chunkEnd(scan, begin);
    if (!repairChunk(state, begin, end, progress, isCancelled)) break;
    begin = end;
  }
  const auto total = static_cast<std::int64_t>(scan.units.size());
  writeAlbums(state.albums, runFolder);
  result->summary.items = total;
  state.report.commit(result->reportFolder());
  ReportWriter::writeTotals(*result, scan, work.path());
  if (progress) progress({std::string(kDone), total, total});
  return result;
}

}  // namespace quillmere::RepairEngine
