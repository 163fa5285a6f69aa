#include "core/repair/repair_engine.h"

#include <exception>
#include <future>
#include <memory>

#include "core/metadata/metadata_writer.h"
#include "core/repair/album_lists.h"
#include "core/repair/background_worker.h"
#include "core/repair/file_plan.h"
#include "core/repair/output_naming.h"
#include "core/repair/pending_row.h"
#include "core/repair/report_writer.h"
#include "core/repair/run_folder.h"
#include "core/repair/staging.h"
#include "core/sources/quillmere_error.h"

namespace quillmere::RepairEngine {
namespace {

constexpr std::string_view kRepairing = "Repairing";
constexpr std::string_view kDone = "Done";

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
  BackgroundWorker checker;         // reads written copies back
  std::vector<PendingRow> pending;  // the last item's rows, not yet added

  // Every row goes to the report files and the totals at once; the result keeps it only when
  // asked to.
  void add(RepairRow row) {
    report.add(row);
    RepairEngine::tally(result.summary, row);
    if (options.keepRows) result.rows.push_back(std::move(row));
  }

  // Adds the rows held back, in order, once their checks are done, and holds back `next`.
  void addPending(std::vector<PendingRow> next = {}) {
    for (PendingRow& slot : pending) add(slot.finish());
    pending = std::move(next);
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
      auto check = std::make_shared<std::packaged_task<MetadataWriter::Verification()>>(
          [destination, kind, patch] { return verify(destination, kind, patch); });
      pending.checkNotesAt = row.notes.size();
      pending.check = check->get_future();
      run.checker.post([check] { (*check)(); });
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

// Stages every file of `unit`, then files them together in the lead file's dated folder, and
// returns their rows, whose read-back checks may still be running. Only the dated folder's
// creation can fail the run.
std::vector<PendingRow> repairItem(RunState& run, const MediaUnit& unit) {
  std::vector<Staged> staged;
  std::vector<PendingRow> rows;
  for (const MediaFilePtr& file : unit.files) {
    try {
      staged.push_back(stage(file, run.work, run.offsets, run.options));
    } catch (const std::exception& error) {
      rows.emplace_back(stagingFailure(unit, *file, error.what()));
    }
  }
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
  for (std::int64_t i = 0; i < total; ++i) {
    if (isCancelled && isCancelled()) break;
    if (progress) progress({std::string(kRepairing), i, total});
    // This item's checks run while the next item is written; its rows follow the previous's.
    state.addPending(repairItem(state, scan.units[static_cast<std::size_t>(i)]));
    result->itemsReached = i + 1;
  }
  state.addPending();
  writeAlbums(state.albums, runFolder);
  result->summary.items = total;
  state.report.commit(result->reportFolder());
  ReportWriter::writeTotals(*result, scan, work.path());
  if (progress) progress({std::string(kDone), total, total});
  return result;
}

}  // namespace quillmere::RepairEngine
