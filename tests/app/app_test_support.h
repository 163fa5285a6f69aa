#ifndef QUILLMERE_TESTS_APP_APP_TEST_SUPPORT_H_
#define QUILLMERE_TESTS_APP_APP_TEST_SUPPORT_H_

#include <QObject>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>

#include "app/repair_model.h"

namespace quillmere::testing {

// Holds a fake worker until the test lets it go.
class Gate {
 public:
  void open();
  void wait();

 private:
  std::mutex lock_;
  std::condition_variable opened_;
  bool open_ = false;
};

// When it goes out of scope, opens `gate` (if any) and waits until `model`'s workers have
// delivered their outcomes, so a failed check never leaves a worker blocked or running past
// the test. Declare it after the model and whatever the workers use.
class WorkerGuard {
 public:
  WorkerGuard(RepairModel& model, std::shared_ptr<Gate> gate = nullptr)
      : model_(model), gate_(std::move(gate)) {}
  ~WorkerGuard();

 private:
  RepairModel& model_;
  std::shared_ptr<Gate> gate_;
};

// A scan result with `summary`, of `kind`, with one placeholder file per item so the model
// counts it as something found.
ScanResultPtr fakeScan(const ScanSummary& summary, ExportKind kind = ExportKind::googleTakeout,
                       std::vector<std::filesystem::path> inputs = {});

// A repair result for the run folder `outputFolder` with `summary`.
RepairResultPtr fakeRepair(const RepairSummary& summary,
                           std::filesystem::path outputFolder = "/tmp/Quillmere Repair");

// A backend whose scan returns `scan` and whose repair returns `result`.
RepairBackend fakeBackend(ScanResultPtr scan, RepairResultPtr result = nullptr);

// True when the model's stage is the case `Case`.
template <typename Case>
bool in(const RepairModel& model) {
  return std::holds_alternative<Case>(model.stage());
}

// The examples/ folder of the source tree.
std::filesystem::path examplesFolder();

// Runs the test classes; `argv[1]`, when given, names the one to run.
int runAppTests(int argc, char** argv);

}  // namespace quillmere::testing

Q_DECLARE_METATYPE(quillmere::RepairSummary)
Q_DECLARE_METATYPE(quillmere::ScanSummary)

// The test classes, one per file.
std::unique_ptr<QObject> makeCommandLineTest();
std::unique_ptr<QObject> makeRepairModelTest();
std::unique_ptr<QObject> makeViewsTest();
std::unique_ptr<QObject> makeRepairFlowTest();

#endif  // QUILLMERE_TESTS_APP_APP_TEST_SUPPORT_H_
