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

void RepairModel::startWorker(std::function<void(const std::shared_ptr<PostBox>&)> work) {
  ++runningWorkers_;
  // The thread deletes itself; it keeps no pointer to the model, only the post box.
  QThread* thread = QThread::create(std::move(work), postBox_);
  connect(thread, &QThread::finished, thread, &QObject::deleteLater);
  thread->start();
}

void RepairModel::scan(const std::vector<std::filesystem::path>& urls) {
  setInputs(urls);
  setStage(StageCase::Scanning{WorkProgress{std::string(ScanPhase::readingExport), 0, 0}});
  startWorker([this, urls, scanner = backend_.scan](const std::shared_ptr<PostBox>& box) {
    const ProgressCallback progress = [this, box](const WorkProgress& value) {
      box->post([this, value] {
        if (std::holds_alternative<StageCase::Scanning>(stage_)) {
          setStage(StageCase::Scanning{value});
        }
      });
    };
    std::function<void()> outcome;
    try {
      ScanResultPtr result = scanner(urls, progress);
      outcome = [this, result] {
        if (result == nullptr || result->files.empty()) {
          setStage(StageCase::Failed{QuillmereError::nothingToRepair().what()});
        } else {
          setStage(StageCase::Scanned{result});
        }
      };
    } catch (...) {
      outcome = [this, message = describe(std::current_exception())] {
        setStage(StageCase::Failed{message});
      };
    }
    box->post([this, outcome] {
      --runningWorkers_;
      outcome();
    });
  });
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
  startWorker([this, scan, options, flag = cancelFlag_,
               engine = backend_.repair](const std::shared_ptr<PostBox>& box) {
    const ProgressCallback progress = [this, box](const WorkProgress& value) {
      box->post([this, value] {
        if (std::holds_alternative<StageCase::Repairing>(stage_)) {
          setStage(StageCase::Repairing{std::get<StageCase::Repairing>(stage_).scan, value});
        }
      });
    };
    std::function<void()> outcome;
    try {
      RepairResultPtr result = engine(*scan, options, progress, [flag] { return flag->isSet(); });
      outcome = [this, scan, result] { setStage(StageCase::Done{scan, result}); };
    } catch (...) {
      outcome = [this, message = describe(std::current_exception())] {
        setStage(StageCase::Failed{message});
      };
    }
    box->post([this, outcome] {
      --runningWorkers_;
      outcome();
    });
  });
}

void RepairModel::importIntoPhotos() {
  const auto* done = std::get_if<StageCase::Done>(&stage_);
  if (done == nullptr || !backend_.import.run) return;
  cancelFlag_ = std::make_shared<CancelFlag>();
  setImportState(ImportCase::Running{WorkProgress{"Connecting to Immich", 0, 0}});
  startWorker([this, result = done->result, kind = done->scan->kind, flag = cancelFlag_,
               credentials = importCredentials_,
               importer = backend_.import.run](const std::shared_ptr<PostBox>& box) {
    const ProgressCallback progress = [this, box](const WorkProgress& value) {
      box->post([this, value] {
        if (std::holds_alternative<ImportCase::Running>(importState_)) {
          setImportState(ImportCase::Running{value});
        }
      });
    };
    std::function<void()> outcome;
    try {
      ImportSummary summary =
          importer(*result, kind, credentials, progress, [flag] { return flag->isSet(); });
      outcome = [this, summary] { setImportState(ImportCase::Done{summary}); };
    } catch (...) {
      outcome = [this, message = describe(std::current_exception())] {
        setImportState(ImportCase::Failed{message});
      };
    }
    box->post([this, outcome] {
      --runningWorkers_;
      outcome();
    });
  });
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
