#include "tests/app/app_test_support.h"

#include <QApplication>
#include <QTest>
#include <cstring>

#include "core/scan/media_file.h"
#include "core/sources/folder_file.h"

namespace quillmere::testing {

void Gate::open() {
  std::lock_guard guard(lock_);
  open_ = true;
  opened_.notify_all();
}

void Gate::wait() {
  std::unique_lock guard(lock_);
  opened_.wait(guard, [this] { return open_; });
}

WorkerGuard::~WorkerGuard() {
  if (gate_ != nullptr) gate_->open();
  if (!QTest::qWaitFor([this] { return !model_.busy(); }, 300'000)) {
    qFatal("a worker is still running; stopping rather than hanging");
  }
}

ScanResultPtr fakeScan(const ScanSummary& summary, ExportKind kind,
                       std::vector<std::filesystem::path> inputs) {
  auto scan = std::make_shared<ScanResult>(std::move(inputs));
  scan->kind = kind;
  scan->summary = summary;
  for (int i = 0; i < std::max<std::int64_t>(1, summary.items); ++i) {
    auto source = std::make_shared<FolderFile>("/e/IMG_" + std::to_string(i) + ".jpg",
                                               "IMG_" + std::to_string(i) + ".jpg", 0);
    scan->files.push_back(std::make_shared<MediaFile>(i, source, MediaKind::photo));
    scan->units.push_back(MediaUnit{i, MediaUnit::Kind::single, {scan->files.back()}});
  }
  return scan;
}

RepairResultPtr fakeRepair(const RepairSummary& summary, std::filesystem::path outputFolder) {
  auto result = std::make_shared<RepairResult>(std::move(outputFolder));
  result->summary = summary;
  return result;
}

RepairBackend fakeBackend(ScanResultPtr scan, RepairResultPtr result) {
  RepairBackend backend;
  backend.scan = [scan](const std::vector<std::filesystem::path>&, const ProgressCallback&) {
    return scan;
  };
  backend.repair = [result](const ScanResult&, const RepairOptions&, const ProgressCallback&,
                            const CancelQuery&) { return result; };
  return backend;
}

std::filesystem::path examplesFolder() {
  return std::filesystem::path(QUILLMERE_SOURCE_DIR) / "examples";
}

int runAppTests(int argc, char** argv) {
  struct Entry {
    const char* name;
    std::unique_ptr<QObject> (*make)();
  };
  const Entry entries[] = {{"CommandLineTest", makeCommandLineTest},
                           {"RepairModelTest", makeRepairModelTest},
                           {"ViewsTest", makeViewsTest},
                           {"RepairFlowTest", makeRepairFlowTest}};
  const char* only = argc > 1 && argv[1][0] != '-' ? argv[1] : nullptr;
  int failures = 0;
  for (const Entry& entry : entries) {
    if (only != nullptr && std::strcmp(only, entry.name) != 0) continue;
    std::unique_ptr<QObject> test = entry.make();
    failures += QTest::qExec(test.get(), 1, argv);
  }
  return failures == 0 ? 0 : 1;
}

}  // namespace quillmere::testing

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  return quillmere::testing::runAppTests(argc, argv);
}
