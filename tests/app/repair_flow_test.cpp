// The model and the window on the real core: the sample export scanned, repaired into a
// temporary folder, stopped part way, and added to the stand-in Immich server.

#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <fstream>
#include <map>
#include <set>

#include "app/done_view.h"
#include "app/immich_server_dialog.h"
#include "app/main_window.h"
#include "app/repair_model.h"
#include "app/repair_view.h"
#include "app/working_view.h"
#include "core/metadata/write_method.h"
#include "tests/app/app_test_support.h"
#include "tests/support/immich_standin.h"
#include "tests/support/photo_checks.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::Gate;
using testing::in;

// Generous: the test build runs under the sanitizers on a shared machine. A stuck worker fails
// the test at these limits instead of holding up the whole run.
constexpr int kWorkTimeoutMs = 180'000;

std::vector<fs::path> sampleInputs(const QString& name) {
  const fs::path examples = testing::examplesFolder();
  if (name == QStringLiteral("zip parts")) {
    return {examples / "takeout-20240101T000000Z-001.zip",
            examples / "takeout-20240101T000000Z-002.zip"};
  }
  return {examples / name.toStdString()};
}

// Scans `inputs` and repairs them into `destination`, through the model's own operations.
// Returns false (after a failed check) when a stage doesn't come.
bool scanAndRepair(RepairModel& model, const std::vector<fs::path>& inputs,
                   const fs::path& destination) {
  model.setDestination(destination);
  model.scan(inputs);
  [&] { QTRY_VERIFY_WITH_TIMEOUT(!in<StageCase::Scanning>(model), kWorkTimeoutMs); }();
  if (!in<StageCase::Scanned>(model)) return false;
  model.repair();
  [&] { QTRY_VERIFY_WITH_TIMEOUT(!in<StageCase::Repairing>(model), kWorkTimeoutMs); }();
  return in<StageCase::Done>(model);
}

// The texts of the visible labels under `widget`, joined for messages and searched whole.
QStringList shownTexts(const QWidget* widget) {
  QStringList all;
  for (const QLabel* label : widget->findChildren<QLabel*>()) {
    if (label->isVisibleTo(widget) && !label->text().isEmpty()) all << label->text();
  }
  return all;
}

// Number of lines of a text file.
std::size_t lineCount(const fs::path& file) {
  std::ifstream in(file);
  std::size_t lines = 0;
  for (std::string line; std::getline(in, line);) ++lines;
  return lines;
}

class RepairFlowTest : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  // Every file of the sample export ends up repaired on disk, as the result says, with the
  // dates exiftool reads back; the export is left byte for byte as it was.
  void repairsTheSampleExport_data() {
    QTest::addColumn<QString>("input");
    QTest::addColumn<RepairSummary>("expected");
    // zonesGuessed depends on the machine's zone and is left out of the comparison.
    const RepairSummary takeout{.items = 10,
                                .files = 14,
                                .fixed = 13,
                                .unchanged = 1,
                                .datesWritten = 10,
                                .locationsWritten = 12,
                                .captionsWritten = 2};
    QTest::newRow("folder") << QStringLiteral("google-takeout") << takeout;
    QTest::newRow("zip parts") << QStringLiteral("zip parts") << takeout;
    QTest::newRow("snapchat") << QStringLiteral("snapchat")
                              << RepairSummary{.items = 5,
                                               .files = 5,
                                               .fixed = 5,
                                               .datesWritten = 5,
                                               .locationsWritten = 2,
                                               .overlaysMerged = 1};
  }

  void repairsTheSampleExport() {
    QFETCH(QString, input);
    QFETCH(RepairSummary, expected);
    const fs::path examples = testing::examplesFolder();
    const auto before = testing::snapshotTree(examples);
    testing::TempDir out;
    RepairModel model;
    const testing::WorkerGuard guard(model);
    QVERIFY(scanAndRepair(model, sampleInputs(input), out.path()));

    const auto& done = std::get<StageCase::Done>(model.stage());
    const RepairResult& result = *done.result;
    RepairSummary summary = result.summary;
    summary.zonesFromLocation = summary.zonesInferred = summary.zonesGuessed = 0;
    expected.xmpFallbacks = summary.xmpFallbacks;
    QCOMPARE(summary, expected);
    QCOMPARE(result.outputFolder().parent_path(), out.path());
    QCOMPARE(result.rows.size(), std::size_t(expected.files));
    QVERIFY(!fs::exists(result.outputFolder() / ".work"));
    for (const char* report : {"README.txt", "Report/changes.csv", "Report/summary.json"}) {
      QVERIFY2(fs::is_regular_file(result.outputFolder() / report), report);
    }
    QCOMPARE(lineCount(result.reportFolder() / "changes.csv"), result.rows.size() + 1);

    // Every copy the rows name is on disk, and nothing else is under Photos but sidecars.
    std::set<fs::path> named;
    int datesChecked = 0;
    for (const RepairRow& row : result.rows) {
      QVERIFY2(!row.output.empty(), row.source.c_str());
      const fs::path copy = result.outputFolder() / row.output;
      QVERIFY2(fs::is_regular_file(copy), row.output.c_str());
      named.insert(copy);
      if (row.method != label(WriteMethod::embedded) || row.dateAfter.empty()) continue;
      const nlohmann::json tags = testing::exiftoolTags(copy);
      for (const char* tag : {"ExifIFD:DateTimeOriginal", "Keys:CreationDate"}) {
        if (!tags.contains(tag)) continue;
        QVERIFY2(tags[tag].get<std::string>().starts_with(row.dateAfter),
                 (row.output + ": " + tags[tag].dump() + " vs " + row.dateAfter).c_str());
        ++datesChecked;
      }
    }
    QVERIFY(datesChecked >= 3);
    for (const auto& entry : fs::recursive_directory_iterator(result.outputFolder() / "Photos")) {
      if (!entry.is_regular_file() || entry.path().extension() == ".xmp") continue;
      QVERIFY2(named.count(entry.path()) == 1, entry.path().c_str());
    }
    QVERIFY(testing::snapshotTree(examples) == before);
  }

  // "Stop" on the working view ends the real engine after the item in progress: the result
  // screen shows what was finished, with its report, and the export is untouched.
  void stopDuringARepairShowsThePartialResult() {
    const fs::path examples = testing::examplesFolder();
    const auto before = testing::snapshotTree(examples);
    testing::TempDir out;
    // The engine reports item 3 and then waits, so the stop lands at a known place.
    constexpr std::int64_t kStopAt = 3;
    auto paused = std::make_shared<Gate>();
    RepairBackend backend = RepairBackend::core();
    backend.repair = [paused, engine = backend.repair](
                         const ScanResult& scan, const RepairOptions& options,
                         const ProgressCallback& progress, const CancelQuery& isCancelled) {
      const ProgressCallback pausing = [paused, progress](const WorkProgress& value) {
        progress(value);
        if (value.done == kStopAt) paused->wait();
      };
      return engine(scan, options, pausing, isCancelled);
    };
    RepairModel model(backend);
    const testing::WorkerGuard guard(model, paused);
    MainWindow window(model);
    window.show();
    model.setDestination(out.path());
    model.scan({examples / "google-takeout"});
    QTRY_VERIFY_WITH_TIMEOUT(in<StageCase::Scanned>(model), kWorkTimeoutMs);
    const auto units = std::int64_t(std::get<StageCase::Scanned>(model.stage()).scan->units.size());
    model.repair();
    QTRY_VERIFY_WITH_TIMEOUT(
        in<StageCase::Repairing>(model) &&
            std::get<StageCase::Repairing>(model.stage()).progress.done == kStopAt,
        kWorkTimeoutMs);
    auto* working = window.findChild<WorkingView*>();
    QVERIFY(working != nullptr && working->isVisible() && working->canStop());
    QCOMPARE(working->progress().text(), QStringLiteral("Repairing — 3 of %1").arg(units));
    working->findChild<QPushButton*>(QStringLiteral("stop"))->click();
    paused->open();
    QTRY_VERIFY_WITH_TIMEOUT(!in<StageCase::Repairing>(model), kWorkTimeoutMs);

    QVERIFY(in<StageCase::Done>(model));
    const RepairResult& result = *std::get<StageCase::Done>(model.stage()).result;
    std::set<std::int64_t> items;
    for (const RepairRow& row : result.rows) items.insert(row.item);
    QCOMPARE(std::int64_t(items.size()), kStopAt + 1);  // the item in progress was finished
    QCOMPARE(result.summary.items, units);
    QCOMPARE(result.summary.files, std::int64_t(result.rows.size()));
    QCOMPARE(lineCount(result.reportFolder() / "changes.csv"), result.rows.size() + 1);
    QVERIFY(!fs::exists(result.outputFolder() / ".work"));

    DoneView* done = window.repairView()->doneView();
    QVERIFY(done != nullptr);
    const QStringList shown = shownTexts(done);
    QVERIFY2(shown.contains(QStringLiteral("Repair finished")), qPrintable(shown.join(" | ")));
    QVERIFY(shown.contains(ViewTexts::count(result.summary.fixed)));
    QVERIFY(testing::snapshotTree(examples) == before);
  }

  // The result screen's "Add to Immich…" on a real repair against the stand-in server: with no
  // server configured it asks for one and checks the key; the items arrive in their albums and
  // the status says so; a second run adds nothing new.
  void addsTheRepairToImmich() {
    const fs::path examples = testing::examplesFolder();
    const auto before = testing::snapshotTree(examples);
    testing::TempDir out;
    testing::TempDir home;  // no auth.yml of Immich's own
    const ScopedEnvironment homeVariable("HOME", home.path().c_str());
    const ScopedEnvironment urlVariable("IMMICH_INSTANCE_URL", nullptr);
    const ScopedEnvironment keyVariable("IMMICH_API_KEY", nullptr);
    testing::ImmichStandIn server;
    RepairModel model;
    const testing::WorkerGuard guard(model);
    MainWindow window(model);
    QVERIFY(scanAndRepair(model, sampleInputs(QStringLiteral("zip parts")), out.path()));
    DoneView* done = window.repairView()->doneView();
    QVERIFY(done != nullptr);
    const RepairResult& result = *std::get<StageCase::Done>(model.stage()).result;
    const std::int64_t count = model.backend().import.itemCount(result);
    QVERIFY(count > 0);

    done->addToImmich();
    auto* ask = done->findChild<ImmichServerDialog*>();
    QVERIFY(ask != nullptr);
    QVERIFY(done->confirmation() == nullptr);
    ask->findChild<QLineEdit*>(QStringLiteral("serverAddress"))
        ->setText(QString::fromStdString(server.url()));
    auto* key = ask->findChild<QLineEdit*>(QStringLiteral("apiKey"));
    key->setText(QStringLiteral("wrong-key"));
    QPushButton* connectButton = nullptr;
    for (QPushButton* b : ask->findChildren<QPushButton*>()) {
      if (b->text() == QStringLiteral("Connect")) connectButton = b;
    }
    QVERIFY(connectButton != nullptr);
    connectButton->click();  // refused: the dialog stays and says why
    QVERIFY(ask->isChecking());
    QTRY_VERIFY_WITH_TIMEOUT(!ask->findChild<QLabel*>(QStringLiteral("problem"))->isHidden(),
                             30000);
    QVERIFY(done->confirmation() == nullptr);
    key->setText(QString::fromLatin1(testing::ImmichStandIn::key));
    connectButton->click();
    // Accepted: the dialog closes and goes away, and the model remembers the server.
    QTRY_COMPARE_WITH_TIMEOUT(
        model.importCredentials(),
        (std::optional<ImportCredentials>({server.url(), testing::ImmichStandIn::key})), 30000);

    for (int run = 0; run < 2; ++run) {
      if (run == 1) done->addToImmich();  // the server given before is remembered
      QMessageBox* box = done->confirmation();
      QVERIFY(box != nullptr);
      QCOMPARE(box->text(), QStringLiteral("Add %1 items to your Immich library?").arg(count));
      for (QAbstractButton* b : box->buttons()) {
        if (b->text() == QStringLiteral("Add to Immich")) b->click();
      }
      QVERIFY(std::holds_alternative<ImportCase::Running>(model.importState()));
      QTRY_VERIFY_WITH_TIMEOUT(!std::holds_alternative<ImportCase::Running>(model.importState()),
                               kWorkTimeoutMs);
      if (const auto* failed = std::get_if<ImportCase::Failed>(&model.importState())) {
        QFAIL(failed->message.c_str());
      }
      const auto* imported = std::get_if<ImportCase::Done>(&model.importState());
      QVERIFY(imported != nullptr);
      const ImportSummary& summary = imported->summary;
      QCOMPARE(summary.items, count);
      QCOMPARE(summary.failed, 0);
      QCOMPARE(summary.imported, run == 0 ? count : 0);
      QCOMPARE(summary.alreadyImported, run == 0 ? 0 : count);
      const QStringList shown = shownTexts(done);
      const QString headline = QStringLiteral("Added %1 items to Immich, in the albums of “%2”")
                                   .arg(summary.imported)
                                   .arg(QString::fromStdString(summary.folderTitle));
      QVERIFY2(shown.contains(headline), qPrintable(shown.join(" | ")));
      if (run == 1) {
        QVERIFY(
            shown.contains(QStringLiteral("%1 items already added earlier, skipped").arg(count)));
      }
    }

    // What the server holds: one asset per file of an item, and the album of every item.
    const nlohmann::json state = server.state();
    std::int64_t files = 0;
    for (const ImportItem& item : PhotosImporter::items(result)) {
      files += std::int64_t(item.paths().size());
    }
    QCOMPARE(std::int64_t(state["assets"].size()), files);
    const nlohmann::json all = server.albumNamed("All imported items");
    QVERIFY(!all.is_null());
    QCOMPARE(std::int64_t(all["assets"].size()), count);
    const auto& summary = std::get<ImportCase::Done>(model.importState()).summary;
    QCOMPARE(all["description"].get<std::string>(), "Added by " + summary.folderTitle);
    QVERIFY(testing::snapshotTree(examples) == before);
  }
};

}  // namespace
}  // namespace quillmere

std::unique_ptr<QObject> makeRepairFlowTest() {
  return std::make_unique<quillmere::RepairFlowTest>();
}

#include "repair_flow_test.moc"
