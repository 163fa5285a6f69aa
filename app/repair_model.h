#ifndef QUILLMERE_APP_REPAIR_MODEL_H_
#define QUILLMERE_APP_REPAIR_MODEL_H_

#include <QObject>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/import_state.h"
#include "core/repair/repair_engine.h"
#include "core/repair/repair_result.h"
#include "core/scan/scan_result.h"
#include "core/scan/work_progress.h"

namespace quillmere {

class PostBox;

// Set on the interface thread, polled by one worker. Never reset: every repair and every import
// gets a new flag, so a stop reaches only the operation it was meant for.
class CancelFlag {
 public:
  void set();
  bool isSet() const;

 private:
  mutable std::mutex lock_;
  bool value_ = false;
};

using CancelFlagPtr = std::shared_ptr<CancelFlag>;

// What the main window shows. Order of the cases as the views list them.
namespace StageCase {
struct Scanning {
  WorkProgress progress;
  bool operator==(const Scanning&) const = default;
};
struct Scanned {
  ScanResultPtr scan;
  bool operator==(const Scanned&) const = default;
};
struct Repairing {
  ScanResultPtr scan;
  WorkProgress progress;
  bool operator==(const Repairing&) const = default;
};
struct Done {
  ScanResultPtr scan;
  RepairResultPtr result;
  bool operator==(const Done&) const = default;
};
struct Failed {
  std::string message;  // shown as it stands
  bool operator==(const Failed&) const = default;
};
struct Empty {
  bool operator==(const Empty&) const = default;
};
}  // namespace StageCase

using Stage = std::variant<StageCase::Scanning, StageCase::Scanned, StageCase::Repairing,
                           StageCase::Done, StageCase::Failed, StageCase::Empty>;

// The long operations the model starts, each called synchronously on its own worker. The real
// ones run the core; tests put in their own to control timing and outcomes.
struct RepairBackend {
  std::function<ScanResultPtr(const std::vector<std::filesystem::path>&, const ProgressCallback&)>
      scan;
  std::function<RepairResultPtr(const ScanResult&, const RepairOptions&, const ProgressCallback&,
                                const CancelQuery&)>
      repair;
  ImportBackend import;

  // The core's scanner, engine and importer.
  static RepairBackend core();
};

// The one driver of the app: holds what the window shows and starts every long operation. All
// of its state is read and written on the thread that created it; workers only post to it.
class RepairModel : public QObject {
  Q_OBJECT

 public:
  explicit RepairModel(RepairBackend backend = RepairBackend::core(), QObject* parent = nullptr);
  ~RepairModel() override;

  const Stage& stage() const { return stage_; }
  const ImportState& importState() const { return importState_; }
  const std::vector<std::filesystem::path>& inputs() const { return inputs_; }
  const std::optional<std::filesystem::path>& destination() const { return destination_; }
  const CancelFlagPtr& cancelFlag() const { return cancelFlag_; }
  // True while a scan, repair or import worker has not delivered its outcome.
  bool busy() const { return runningWorkers_ > 0; }

  // Starts a scan of `urls` (files and folders). Returns at once.
  void scan(const std::vector<std::filesystem::path>& urls);
  // Files the desktop asks the app to open: a new scan unless a scan or repair is running.
  void open(const std::vector<std::filesystem::path>& urls);
  // The two panels; `parent` is the window they belong to.
  void chooseExport(QWidget* parent);
  void chooseDestination(QWidget* parent);
  // Starts writing repaired copies: only from `scanned` with a destination set.
  void repair();
  // Starts adding the repaired copies to the photo library: only from `done`.
  void importIntoPhotos();
  // Stops the repair or import in flight (its flag); nothing else.
  void cancel();
  // Back to the drop zone; the destination is kept.
  void startOver();

  void setDestination(const std::optional<std::filesystem::path>& destination);
  // Only the views' credential dialog sets this; imports made later use it.
  void setImportCredentials(const ImportCredentials& credentials);
  const std::optional<ImportCredentials>& importCredentials() const { return importCredentials_; }
  const RepairBackend& backend() const { return backend_; }

 Q_SIGNALS:
  void stageChanged();
  void importStateChanged();
  void inputsChanged();
  void destinationChanged();

 private:
  void setStage(Stage stage);
  void setImportState(ImportState state);
  void setInputs(std::vector<std::filesystem::path> inputs);
  // Runs `work` on a new thread. Its progress reports and then its outcome (`onSuccess` with
  // the result, or `onFailure` with the error's message) run here, in the order they were made;
  // each progress handler checks for itself that the state is still the running one.
  template <typename Result>
  void runOperation(std::function<Result(const ProgressCallback&)> work,
                    std::function<void(const WorkProgress&)> onProgress,
                    std::function<void(Result)> onSuccess,
                    std::function<void(const std::string&)> onFailure);

  RepairBackend backend_;
  Stage stage_ = StageCase::Empty{};
  ImportState importState_ = ImportCase::Idle{};
  std::vector<std::filesystem::path> inputs_;
  std::optional<std::filesystem::path> destination_;
  CancelFlagPtr cancelFlag_ = std::make_shared<CancelFlag>();
  std::optional<ImportCredentials> importCredentials_;
  std::shared_ptr<PostBox> postBox_;
  int runningWorkers_ = 0;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_REPAIR_MODEL_H_
