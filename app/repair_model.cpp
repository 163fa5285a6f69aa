#include "app/repair_model.h"

#include <QThread>
#include <exception>

#include "app/file_panels.h"
#include "core/sources/quillmere_error.h"

namespace quillmere {

void CancelFlag::set() {
  std::lock_guard guard(lock_);
  value_ = true;
}

bool CancelFlag::isSet() const {
  std::lock_guard guard(lock_);
  return value_;
}

// The workers' way back to the model. Posting and closing share one lock, so a task is either
// queued while the model still exists (Qt drops it if the model goes before it runs) or not at
// all.
class PostBox {
 public:
  explicit PostBox(QObject* receiver) : receiver_(receiver) {}

  // Queues `task` on the receiver's thread, after every task posted before it.
  void post(std::function<void()> task) {
    std::lock_guard guard(lock_);
    if (receiver_ != nullptr) {
      QMetaObject::invokeMethod(receiver_, std::move(task), Qt::QueuedConnection);
    }
  }

  void close() {
    std::lock_guard guard(lock_);
    receiver_ = nullptr;
  }

 private:
  std::mutex lock_;
  QObject* receiver_;
};

namespace {

// The text a failed operation shows: the core's own messages unchanged.
std::string describe(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const PhotosImportError& e) {
    // The fixed sentence, then what the library said was wrong.
    return e.reason().empty() ? std::string(e.what()) : std::string(e.what()) + "\n" + e.reason();
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "An unexpected error stopped the work.";
  }
}

}  // namespace

RepairModel::RepairModel(RepairBackend backend, QObject* parent)
    : QObject(parent), backend_(std::move(backend)), postBox_(std::make_shared<PostBox>(this)) {}

RepairModel::~RepairModel() { postBox_->close(); }

void RepairModel::setStage(Stage stage) {
  stage_ = std::move(stage);
  Q_EMIT stageChanged();
}

void RepairModel::setImportState(ImportState state) {
  importState_ = std::move(state);
  Q_EMIT importStateChanged();
}

void RepairModel::setInputs(std::vector<std::filesystem::path> inputs) {
  inputs_ = std::move(inputs);
  Q_EMIT inputsChanged();
}

void RepairModel::setDestination(const std::optional<std::filesystem::path>& destination) {
  if (destination == destination_) return;
  destination_ = destination;
  Q_EMIT destinationChanged();
}

void RepairModel::setImportCredentials(const ImportCredentials& credentials) {
  importCredentials_ = credentials;
}

template <typename Result>
void RepairModel::runOperation(std::function<Result(const ProgressCallback&)> work,
                               std::function<void(const WorkProgress&)> onProgress,
                               std::function<void(Result)> onSuccess,
                               std::function<void(const std::string&)> onFailure) {
  ++runningWorkers_;
  // The thread deletes itself. The callbacks it carries touch the model, but they run only
  // where the post box delivers them: on the model's thread, and never after the model is gone.
  QThread* thread = QThread::create([this, box = postBox_, work = std::move(work),
                                     onProgress = std::move(onProgress),
                                     onSuccess = std::move(onSuccess),
                                     onFailure = std::move(onFailure)] {
    const ProgressCallback progress = [box, onProgress](const WorkProgress& value) {
      box->post([onProgress, value] { onProgress(value); });
    };
    std::function<void()> outcome;
    try {
      outcome = [onSuccess, result = work(progress)] { onSuccess(result); };
    } catch (...) {
      outcome = [onFailure, message = describe(std::current_exception())] { onFailure(message); };
    }
    box->post([this, outcome] {
      --runningWorkers_;
      outcome();
    });
  });
  connect(thread, &QThread::finished, thread, &QObject::deleteLater);
  thread->start();
}

void RepairModel::scan(const std::vector<std::filesystem::path>& urls) {
  setInputs(urls);
  setStage(StageCase::Scanning{WorkProgress{std::string(ScanPhase::readingExport), 0, 0}});
  runOperation<ScanResultPtr>(
      [urls, scanner = backend_.scan](const ProgressCallback& progress) {
        return scanner(urls, progress);
      },
      [this](const WorkProgress& value) {
        if (std::holds_alternative<StageCase::Scanning>(stage_)) {
          setStage(StageCase::Scanning{value});
        }
      },
      [this](ScanResultPtr result) {
        if (result == nullptr || result->files.empty()) {
          setStage(StageCase::Failed{QuillmereError::nothingToRepair().what()});
        } else {
          setStage(StageCase::Scanned{std::move(result)});
        }
      },
      [this](const std::string& message) { setStage(StageCase::Failed{message}); });
}

void RepairModel::open(const std::vector<std::filesystem::path>& urls) {
  if (std::holds_alternative<StageCase::Scanning>(stage_) ||
      std::holds_alternative<StageCase::Repairing>(stage_)) {
    return;
  }
  scan(urls);
}

void RepairModel::repair() {
  const auto* scanned = std::get_if<StageCase::Scanned>(&stage_);
  if (scanned == nullptr || !destination_ || !backend_.repair) return;
  cancelFlag_ = std::make_shared<CancelFlag>();
  const ScanResultPtr scan = scanned->scan;
  const auto units = static_cast<std::int64_t>(scan->units.size());
  setStage(StageCase::Repairing{scan, WorkProgress{"Repairing", 0, units}});
  RepairOptions options;
  options.destination = *destination_;
  options.albumsAsKeywords = true;
  runOperation<RepairResultPtr>(
      [scan, options, flag = cancelFlag_,
       engine = backend_.repair](const ProgressCallback& progress) {
        return engine(*scan, options, progress, [flag] { return flag->isSet(); });
      },
      [this](const WorkProgress& value) {
        if (const auto* repairing = std::get_if<StageCase::Repairing>(&stage_)) {
          setStage(StageCase::Repairing{repairing->scan, value});
        }
      },
      [this, scan](RepairResultPtr result) {
        setStage(StageCase::Done{scan, std::move(result)});
      },
      [this](const std::string& message) { setStage(StageCase::Failed{message}); });
}

void RepairModel::importIntoPhotos() {
  const auto* done = std::get_if<StageCase::Done>(&stage_);
  if (done == nullptr || !backend_.import.run) return;
  cancelFlag_ = std::make_shared<CancelFlag>();
  setImportState(ImportCase::Running{WorkProgress{"Connecting to Immich", 0, 0}});
  runOperation<ImportSummary>(
      [result = done->result, kind = done->scan->kind, flag = cancelFlag_,
       credentials = importCredentials_,
       importer = backend_.import.run](const ProgressCallback& progress) {
        return importer(*result, kind, credentials, progress, [flag] { return flag->isSet(); });
      },
      [this](const WorkProgress& value) {
        if (std::holds_alternative<ImportCase::Running>(importState_)) {
          setImportState(ImportCase::Running{value});
        }
      },
      [this](ImportSummary summary) { setImportState(ImportCase::Done{std::move(summary)}); },
      [this](const std::string& message) { setImportState(ImportCase::Failed{message}); });
}

void RepairModel::cancel() { cancelFlag_->set(); }

void RepairModel::startOver() {
  setStage(StageCase::Empty{});
  setImportState(ImportCase::Idle{});
  setInputs({});
}

void RepairModel::chooseExport(QWidget* parent) {
  if (std::optional<std::vector<std::filesystem::path>> urls = FilePanels::pickExport(parent)) {
    scan(*urls);
  }
}

void RepairModel::chooseDestination(QWidget* parent) {
  if (std::optional<std::filesystem::path> folder = FilePanels::pickDestination(parent)) {
    setDestination(*folder);
  }
}

}  // namespace quillmere
