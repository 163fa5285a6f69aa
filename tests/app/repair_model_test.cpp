#include "app/repair_model.h"

#include <QSignalSpy>
#include <QTest>
#include <thread>

#include "app/app_delegate.h"
#include "core/sources/quillmere_error.h"
#include "tests/app/app_test_support.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

using testing::fakeBackend;
using testing::fakeRepair;
using testing::fakeScan;
using testing::Gate;
using testing::in;

constexpr int kScanTimeoutMs = 120'000;

class RepairModelTest : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  // The real scanner on the sample export: the summary arrives, the export stays as it was.
  void scansTheSampleExport_data() {
    QTest::addColumn<QStringList>("inputs");
    QTest::addColumn<qlonglong>("zipParts");
    QTest::addColumn<int>("kind");
    QTest::addColumn<qlonglong>("items");
    QTest::addColumn<qlonglong>("photosMissingDate");
    QTest::newRow("folder") << QStringList{"google-takeout"} << 0LL
                            << int(ExportKind::googleTakeout) << 10LL << 9LL;
    QTest::newRow("two zip parts")
        << QStringList{"takeout-20240101T000000Z-001.zip", "takeout-20240101T000000Z-002.zip"}
        << 2LL << int(ExportKind::googleTakeout) << 10LL << 9LL;
    QTest::newRow("snapchat") << QStringList{"snapchat"} << 0LL << int(ExportKind::snapchat) << 5LL
                              << 4LL;
  }

  void scansTheSampleExport() {
    QFETCH(QStringList, inputs);
    QFETCH(qlonglong, zipParts);
    QFETCH(int, kind);
    QFETCH(qlonglong, items);
    QFETCH(qlonglong, photosMissingDate);
    const auto examples = testing::examplesFolder();
    const auto before = testing::snapshotTree(examples);
    std::vector<std::filesystem::path> urls;
    for (const QString& input : inputs) urls.push_back(examples / input.toStdString());

    RepairModel model;
    QSignalSpy stages(&model, &RepairModel::stageChanged);
    model.scan(urls);
    QVERIFY(in<StageCase::Scanning>(model));
    QCOMPARE(std::get<StageCase::Scanning>(model.stage()).progress,
             (WorkProgress{"Reading the export", 0, 0}));
    QCOMPARE(model.inputs(), urls);
    QTRY_VERIFY_WITH_TIMEOUT(!in<StageCase::Scanning>(model), kScanTimeoutMs);
    QVERIFY(in<StageCase::Scanned>(model));
    const ScanResult& scan = *std::get<StageCase::Scanned>(model.stage()).scan;
    QCOMPARE(int(scan.kind), kind);
    QCOMPARE(scan.summary.items, items);
    QCOMPARE(scan.summary.zipParts, zipParts);
    QCOMPARE(scan.summary.photosMissingDate, photosMissingDate);
    QVERIFY(stages.count() >= 2);  // scanning, (progress…), scanned
    QVERIFY(std::holds_alternative<ImportCase::Idle>(model.importState()));
    QVERIFY(testing::snapshotTree(examples) == before);
  }

  void missingExportFailsWithNothingToRepair() {
    testing::TempDir empty;
    RepairModel model;
    model.scan({empty / "does-not-exist"});
    QTRY_VERIFY_WITH_TIMEOUT(!in<StageCase::Scanning>(model), kScanTimeoutMs);
    QCOMPARE(std::get<StageCase::Failed>(model.stage()).message,
             std::string(QuillmereError::nothingToRepair().what()));
    QCOMPARE(std::string(QuillmereError::nothingToRepair().what()),
             std::string("No photos or videos were found in the selected export."));
  }

  void scannerErrorIsShownAsItStands() {
    RepairBackend backend;
    backend.scan = [](const std::vector<std::filesystem::path>&,
                      const ProgressCallback&) -> ScanResultPtr {
      throw QuillmereError::notAZip("part.zip");
    };
    RepairModel model(backend);
    model.scan({"/x/part.zip"});
    QTRY_VERIFY(in<StageCase::Failed>(model));
    QCOMPARE(std::get<StageCase::Failed>(model.stage()).message,
             std::string(QuillmereError::notAZip("part.zip").what()));
  }

  // Progress reported before the outcome is shown; a report that comes after it is dropped.
  void lateScanProgressIsDropped() {
    auto gate = std::make_shared<Gate>();
    auto saved = std::make_shared<ProgressCallback>();
    RepairBackend backend = fakeBackend(fakeScan({}));
    const ScanResultPtr scan = fakeScan({});
    backend.scan = [gate, saved, scan](const std::vector<std::filesystem::path>&,
                                       const ProgressCallback& progress) {
      progress({"Matching photos to metadata", 3, 7});
      gate->wait();
      *saved = progress;
      return scan;
    };
    RepairModel model(backend);
    model.scan({"/e"});
    QTRY_COMPARE(std::get<StageCase::Scanning>(model.stage()).progress,
                 (WorkProgress{"Matching photos to metadata", 3, 7}));
    gate->open();
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    std::thread late([saved] { (*saved)({"Reading the export", 9, 9}); });
    late.join();
    QTest::qWait(50);
    QVERIFY(in<StageCase::Scanned>(model));
    QCOMPARE(std::get<StageCase::Scanned>(model.stage()).scan, scan);
  }

  void openedFilesAreIgnoredWhileScanningOrRepairing() {
    auto scanGate = std::make_shared<Gate>();
    auto repairGate = std::make_shared<Gate>();
    RepairBackend backend = fakeBackend(fakeScan({}), fakeRepair({}));
    const ScanResultPtr scan = fakeScan({});
    backend.scan = [scanGate, scan](const std::vector<std::filesystem::path>&,
                                    const ProgressCallback&) {
      scanGate->wait();
      return scan;
    };
    backend.repair = [repairGate](const ScanResult&, const RepairOptions&, const ProgressCallback&,
                                  const CancelQuery&) {
      repairGate->wait();
      return fakeRepair({});
    };
    AppDelegate app(backend);
    RepairModel& model = app.repair();
    model.scan({"/first"});
    app.open({"/second"});
    QCOMPARE(model.inputs(), (std::vector<std::filesystem::path>{"/first"}));
    scanGate->open();
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    model.setDestination("/out");
    model.repair();
    QVERIFY(in<StageCase::Repairing>(model));
    app.open({"/third"});
    QVERIFY(in<StageCase::Repairing>(model));
    QCOMPARE(model.inputs(), (std::vector<std::filesystem::path>{"/first"}));
    repairGate->open();
    QTRY_VERIFY(in<StageCase::Done>(model));
    // From the result, opened files replace the run with a new scan.
    app.open({"/fourth"});
    QVERIFY(in<StageCase::Scanning>(model));
    QCOMPARE(model.inputs(), (std::vector<std::filesystem::path>{"/fourth"}));
    QTRY_VERIFY(in<StageCase::Scanned>(model));
  }

  void startOverKeepsTheDestination() {
    RepairModel model(fakeBackend(fakeScan({})));
    QSignalSpy destinations(&model, &RepairModel::destinationChanged);
    model.setDestination("/out");
    model.setDestination("/out");  // the same folder again notifies nobody
    QCOMPARE(destinations.count(), 1);
    model.scan({"/e"});
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    model.startOver();
    QVERIFY(in<StageCase::Empty>(model));
    QVERIFY(model.inputs().empty());
    QCOMPARE(model.destination(), std::optional<std::filesystem::path>("/out"));
  }

  void repairNeedsAScanAndADestination() {
    int runs = 0;
    RepairBackend backend = fakeBackend(fakeScan({}), fakeRepair({}));
    backend.repair = [&runs](const ScanResult&, const RepairOptions&, const ProgressCallback&,
                             const CancelQuery&) {
      ++runs;
      return fakeRepair({});
    };
    RepairModel model(backend);
    model.setDestination("/out");
    model.repair();  // nothing scanned yet
    QVERIFY(in<StageCase::Empty>(model));
    model.setDestination(std::nullopt);
    model.scan({"/e"});
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    model.repair();  // no destination
    QVERIFY(in<StageCase::Scanned>(model));
    QCOMPARE(runs, 0);
  }

  // The engine sees the destination and keywords on; its progress shows; Stop reaches it through
  // a flag of its own, and the partial result ends in done.
  void stopDuringARepairEndsInDone() {
    auto started = std::make_shared<Gate>();
    RepairOptions seen;
    const ScanResultPtr scan = fakeScan({.items = 4});
    RepairBackend backend = fakeBackend(scan);
    backend.repair = [started, &seen](const ScanResult& scan, const RepairOptions& options,
                                      const ProgressCallback& progress,
                                      const CancelQuery& isCancelled) {
      seen = options;
      auto result = fakeRepair({});
      for (std::size_t i = 0; i < scan.units.size(); ++i) {
        if (isCancelled()) break;
        progress({"Repairing", static_cast<std::int64_t>(i), 4});
        result->rows.push_back({});
        if (i == 0) started->open();
        while (i == 1 && !isCancelled()) std::this_thread::yield();
      }
      result->summary.items = 4;
      result->summary.files = static_cast<std::int64_t>(result->rows.size());
      return result;
    };
    RepairModel model(backend);
    model.scan({"/e"});
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    const CancelFlagPtr scanFlag = model.cancelFlag();
    model.setDestination("/out");
    model.repair();
    QVERIFY(model.cancelFlag() != scanFlag);
    QCOMPARE(std::get<StageCase::Repairing>(model.stage()).progress,
             (WorkProgress{"Repairing", 0, 4}));
    QCOMPARE(std::get<StageCase::Repairing>(model.stage()).scan, scan);
    started->wait();
    QTRY_COMPARE(std::get<StageCase::Repairing>(model.stage()).progress.done, 1);
    model.cancel();
    QTRY_VERIFY(in<StageCase::Done>(model));
    const auto& done = std::get<StageCase::Done>(model.stage());
    QCOMPARE(done.scan, scan);
    QCOMPARE(done.result->rows.size(), std::size_t{2});
    QCOMPARE(seen.destination, std::filesystem::path("/out"));
    QVERIFY(seen.albumsAsKeywords);
  }

  void repairErrorEndsInFailed() {
    RepairBackend backend = fakeBackend(fakeScan({}));
    backend.repair = [](const ScanResult&, const RepairOptions&, const ProgressCallback&,
                        const CancelQuery&) -> RepairResultPtr {
      throw QuillmereError::outputInsideSource("/e/out");
    };
    RepairModel model(backend);
    model.setDestination("/e/out");
    model.scan({"/e"});
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    model.repair();
    QTRY_VERIFY(in<StageCase::Failed>(model));
    QCOMPARE(std::get<StageCase::Failed>(model.stage()).message,
             std::string(QuillmereError::outputInsideSource("/e/out").what()));
  }

  // Each import gets its own flag, its progress is guarded by the import state, and a stopped
  // import ends in done.
  void importRunsAndStops() {
    auto gate = std::make_shared<Gate>();
    RepairBackend backend = fakeBackend(fakeScan({}), fakeRepair({}));
    backend.import.run = [gate](const RepairResult&, ExportKind,
                                const std::optional<ImportCredentials>& credentials,
                                const ProgressCallback& progress, const CancelQuery& isCancelled) {
      progress({"Adding to Immich", 0, 2});
      gate->wait();
      ImportSummary summary;
      summary.items = 2;
      summary.imported = isCancelled() ? 1 : 2;
      summary.folderTitle = credentials ? credentials->url : "default";
      return summary;
    };
    backend.import.itemCount = [](const RepairResult&) { return std::int64_t{2}; };
    RepairModel model(backend);
    model.importIntoPhotos();  // not done yet: nothing happens
    QVERIFY(std::holds_alternative<ImportCase::Idle>(model.importState()));
    model.setDestination("/out");
    model.scan({"/e"});
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    model.repair();
    QTRY_VERIFY(in<StageCase::Done>(model));
    const CancelFlagPtr repairFlag = model.cancelFlag();
    model.setImportCredentials({"http://immich.local", "key"});
    model.importIntoPhotos();
    QVERIFY(model.cancelFlag() != repairFlag);
    QCOMPARE(std::get<ImportCase::Running>(model.importState()).progress,
             (WorkProgress{"Connecting to Immich", 0, 0}));
    QTRY_COMPARE(std::get<ImportCase::Running>(model.importState()).progress,
                 (WorkProgress{"Adding to Immich", 0, 2}));
    model.cancel();
    gate->open();
    QTRY_VERIFY(std::holds_alternative<ImportCase::Done>(model.importState()));
    const ImportSummary& summary = std::get<ImportCase::Done>(model.importState()).summary;
    QCOMPARE(summary.imported, 1);
    QCOMPARE(summary.folderTitle, std::string("http://immich.local"));
    QVERIFY(in<StageCase::Done>(model));
    // A new scan leaves the import state as it was; only starting over resets it.
    model.scan({"/e"});
    QVERIFY(std::holds_alternative<ImportCase::Done>(model.importState()));
    QTRY_VERIFY(in<StageCase::Scanned>(model));
    model.startOver();
    QVERIFY(std::holds_alternative<ImportCase::Idle>(model.importState()));
  }
};

}  // namespace
}  // namespace quillmere

std::unique_ptr<QObject> makeRepairModelTest() {
  return std::make_unique<quillmere::RepairModelTest>();
}

#include "repair_model_test.moc"
