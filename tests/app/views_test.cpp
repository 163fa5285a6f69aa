#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <map>

#include "app/done_view.h"
#include "app/drop_zone.h"
#include "app/main_window.h"
#include "app/path_text.h"
#include "app/repair_model.h"
#include "app/repair_view.h"
#include "app/scan_summary_view.h"
#include "app/simple_views.h"
#include "app/working_view.h"
#include "tests/app/app_test_support.h"

namespace quillmere {
namespace {

using testing::fakeBackend;
using testing::fakeRepair;
using testing::fakeScan;
using testing::Gate;

// The texts of every label under `widget` that isn't hidden, in the order they were made.
QStringList texts(const QWidget* widget) {
  QStringList all;
  for (const QLabel* label : widget->findChildren<QLabel*>()) {
    if (label->isHidden() || label->text().isEmpty()) continue;
    const QWidget* parent = label->parentWidget();
    bool hidden = false;
    for (; parent != nullptr && parent != widget; parent = parent->parentWidget()) {
      hidden = hidden || parent->isHidden();
    }
    if (!hidden) all << label->text();
  }
  return all;
}

QPushButton* button(const QWidget* widget, const char* name) {
  return widget->findChild<QPushButton*>(QLatin1String(name));
}

// A window whose model has scanned `scan` from `inputs`.
struct Scanned {
  explicit Scanned(ScanResultPtr scan, std::vector<std::filesystem::path> inputs = {"/e"},
                   RepairBackend backend = {})
      : model(withScan(std::move(backend), scan)), window(model) {
    model.scan(inputs);
    QTRY_VERIFY(std::holds_alternative<StageCase::Scanned>(model.stage()));
  }
  static RepairBackend withScan(RepairBackend backend, ScanResultPtr scan) {
    RepairBackend fake = fakeBackend(scan);
    if (backend.repair) fake.repair = backend.repair;
    fake.import = backend.import;
    return fake;
  }
  ScanSummaryView* summary() const { return window.repairView()->scanSummary(); }

  RepairModel model;
  MainWindow window;
};

// A window whose model has repaired a scan into "/out" with `backend`.
struct Repaired {
  explicit Repaired(const RepairBackend& backend) : model(backend), window(model) {
    model.setDestination("/out");
    model.scan({"/e"});
    QTRY_VERIFY(std::holds_alternative<StageCase::Scanned>(model.stage()));
    model.repair();
    QTRY_VERIFY(window.repairView()->doneView() != nullptr);
  }

  RepairModel model;
  MainWindow window;
};

// Every text of `expected` is shown, and none of `absent`.
void expectTexts(const QStringList& shown, const QStringList& expected, const QStringList& absent) {
  for (const QString& text : expected) {
    QVERIFY2(shown.contains(text),
             qPrintable(text + QStringLiteral(" | ") + shown.join(QStringLiteral(" | "))));
  }
  for (const QString& text : absent) QVERIFY2(!shown.contains(text), qPrintable(text));
}

class ViewsTest : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

  void windowAndModes() {
    RepairModel model(fakeBackend(fakeScan({})));
    MainWindow window(model);
    QCOMPARE(window.windowTitle(), QStringLiteral("Quillmere"));
    QCOMPARE(window.minimumSize(), QSize(720, 560));
    QCOMPARE(window.mode(), MainWindow::Mode::repair);
    QVERIFY(texts(&window).contains(QStringLiteral("Fix a broken photo export")));
    QVERIFY(texts(&window).contains(
        QStringLiteral("Drop a Google Takeout or Snapchat export here (zip files or folder). "
                       "Quillmere puts\nthe dates, places, captions and albums back into copies. "
                       "Your export is never changed.")));
    QVERIFY(texts(&window).contains(
        QStringLiteral("Tip: select all the zip parts at once (takeout-…-001.zip, -002.zip, … or "
                       "mydata~….zip).")));
    QCOMPARE(button(&window, "chooseExport")->text(), QStringLiteral("Choose Export…"));
    window.setMode(MainWindow::Mode::verify);
    QVERIFY(texts(&window).contains(
        QStringLiteral("Prove everything arrived before you delete the original.")));
    QVERIFY(texts(&window).contains(QStringLiteral("Coming in a later version.")));
    window.setMode(MainWindow::Mode::backup);
    QVERIFY(texts(&window).contains(QStringLiteral("Keep a backup")));
    QVERIFY(texts(&window).contains(
        QStringLiteral("A complete, browsable copy of your Google Photos on your own drive.")));
    QVERIFY(std::holds_alternative<StageCase::Empty>(model.stage()));
  }

  // Dropped files and folders are scanned in drop order; the outline follows the drag.
  void dropZoneScansWhatIsDropped() {
    RepairModel model(fakeBackend(fakeScan({})));
    MainWindow window(model);
    DropZone* zone = window.repairView()->dropZone();
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QStringLiteral("/d/takeout-002.zip")),
                  QUrl::fromLocalFile(QStringLiteral("/d/takeout-001.zip")),
                  QUrl(QStringLiteral("https://example.org/not-a-file.zip"))});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(zone, &enter);
    QVERIFY(zone->targeted());
    QDragLeaveEvent leave;
    QCoreApplication::sendEvent(zone, &leave);
    QVERIFY(!zone->targeted());
    zone->drop(data.urls());
    QVERIFY(std::holds_alternative<StageCase::Scanning>(model.stage()));
    QCOMPARE(model.inputs(),
             (std::vector<std::filesystem::path>{"/d/takeout-002.zip", "/d/takeout-001.zip"}));
    QTRY_VERIFY(std::holds_alternative<StageCase::Scanned>(model.stage()));
  }

  void summaryTexts_data() {
    QTest::addColumn<int>("kind");
    QTest::addColumn<ScanSummary>("summary");
    QTest::addColumn<std::vector<std::filesystem::path>>("inputs");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QStringList>("absent");

    QTest::newRow("no photo missing a date")
        << int(ExportKind::googleTakeout)
        << ScanSummary{.zipParts = 1,
                       .mediaFiles = 3,
                       .photos = 2,
                       .videos = 1,
                       .items = 1,
                       .withSidecar = 3}
        << std::vector<std::filesystem::path>{"/d/takeout-001.zip"}
        << QStringList{"Here's what's in your Google Photos export",
                       "takeout-001.zip · 1 zip part",
                       "1",
                       "item",
                       "3 files: 2 photos, 1 videos",
                       "albums",
                       "with Google's metadata",
                       "all matched",
                       "What Quillmere will fix",
                       "0 photos have no date in the file",
                       "none can be restored",
                       "0 photos have no place in the file",
                       "Videos are checked during the repair.",
                       "Repaired copies go into a new folder. Nothing in your export is changed "
                       "or deleted."}
        << QStringList{"0 can be restored", "0 albums"};
    QTest::newRow("two zip parts, grouped counts")
        << int(ExportKind::googleTakeout)
        << ScanSummary{.zipParts = 2,
                       .mediaFiles = 12345,
                       .photos = 12000,
                       .videos = 345,
                       .items = 12001,
                       .duplicateCopies = 1,
                       .withSidecar = 12000,
                       .withoutSidecar = 345,
                       .photosMissingDate = 1,
                       .datesRecoverable = 1,
                       .photosMissingLocation = 2,
                       .locationsRecoverable = 2,
                       .captionsInTakeout = 1,
                       .albums = 1}
        << std::vector<std::filesystem::path>{"/d/a.zip", "/d/b.zip"}
        << QStringList{"2 selections · 2 zip parts",
                       "12,001",
                       "12,345 files: 12,000 photos, 345 videos",
                       "album",
                       "1 album copy merged",
                       "345 without",
                       "1 photo has no date in the file",
                       "1 can be restored from Google's metadata",
                       "2 photos have no place in the file",
                       "2 can be restored",
                       "1 caption is only in Google's metadata",
                       "written into the files",
                       "1 album",
                       "saved as keywords and album lists"}
        << QStringList{};
    QTest::newRow("snapchat")
        << int(ExportKind::snapchat)
        << ScanSummary{.mediaFiles = 5,
                       .photos = 4,
                       .videos = 1,
                       .items = 5,
                       .withSidecar = 4,
                       .withoutSidecar = 1,
                       .photosMissingDate = 4,
                       .datesRecoverable = 4,
                       .photosMissingLocation = 4,
                       .captionsInTakeout = 2,
                       .overlays = 1,
                       .matchedByOrder = 2,
                       .dayOnly = 1}
        << std::vector<std::filesystem::path>{"/d/mydata/"}
        << QStringList{"Here's what's in your Snapchat export",
                       "mydata",
                       "overlay",
                       "captions, stickers, drawings",
                       "found in Snapchat's history",
                       "1 without",
                       "4 photos have no date in the file",
                       "4 can be restored from Snapchat's history",
                       "1 Memory has its captions or stickers in a separate file",
                       "merged back onto photos (originals kept); video overlays saved alongside "
                       "for now",
                       "3 items can only be dated to the day",
                       "the exact time isn't recoverable; these are marked in the change log"}
        << QStringList{"albums", "2 captions are only in Google's metadata",
                       "written into the files"};
  }

  void summaryTexts() {
    QFETCH(int, kind);
    QFETCH(ScanSummary, summary);
    QFETCH(std::vector<std::filesystem::path>, inputs);
    QFETCH(QStringList, expected);
    QFETCH(QStringList, absent);
    Scanned scanned(fakeScan(summary, ExportKind(kind)), inputs);
    const QStringList shown = texts(scanned.summary());
    expectTexts(shown, expected, absent);
    if (QTest::currentTestFailed()) return;
    // Findings in their fixed order: date first, place after the day-only row.
    const qsizetype date =
        shown.indexOf(QRegularExpression(QStringLiteral(".* no date in the file")));
    const qsizetype place =
        shown.indexOf(QRegularExpression(QStringLiteral(".* no place in the file")));
    QVERIFY(date >= 0 && place > date);
  }

  void displayPathShortensTheHomeFolder_data() {
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("shown");
    QTest::newRow("inside") << "/home/ana/Pictures/Fixed"
                            << "~/Pictures/Fixed";
    QTest::newRow("the home folder itself") << "/home/ana"
                                            << "/home/ana";
    QTest::newRow("a sibling sharing its beginning") << "/home/anabel/x"
                                                     << "/home/anabel/x";
    QTest::newRow("elsewhere") << "/mnt/photos"
                               << "/mnt/photos";
  }

  void displayPathShortensTheHomeFolder() {
    QFETCH(QString, path);
    QFETCH(QString, shown);
    const QByteArray home = qgetenv("HOME");
    qputenv("HOME", "/home/ana");
    const QString got = displayPath(toPath(path));
    qputenv("HOME", home);
    QCOMPARE(got, shown);
  }

  void destinationEnablesTheRepair() {
    auto gate = std::make_shared<Gate>();
    RepairBackend backend;
    backend.repair = [gate](const ScanResult&, const RepairOptions&,
                            const ProgressCallback& progress, const CancelQuery&) {
      progress({"Repairing", 1204, 3890});
      gate->wait();
      return fakeRepair({});
    };
    Scanned scanned(fakeScan({.items = 3}), {"/e"}, backend);
    QPushButton* repair = button(scanned.summary(), "repair");
    QCOMPARE(repair->text(), QStringLiteral("Repair Copies"));
    QVERIFY(!repair->isEnabled());
    QVERIFY(!button(scanned.summary(), "chooseDestination")->isHidden());
    QCOMPARE(button(scanned.summary(), "chooseDestination")->text(),
             QStringLiteral("Choose Where to Save…"));
    scanned.model.setDestination("/home/u/Fixed");
    QVERIFY(repair->isEnabled());
    QVERIFY(button(scanned.summary(), "chooseDestination")->isHidden());
    QCOMPARE(button(scanned.summary(), "changeDestination")->text(), QStringLiteral("Change…"));
    QVERIFY(texts(scanned.summary()).contains(QStringLiteral("/home/u/Fixed")));

    // Return starts the repair from the window.
    scanned.window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&scanned.window));
    QTest::keyClick(&scanned.window, Qt::Key_Return);
    QVERIFY(std::holds_alternative<StageCase::Repairing>(scanned.model.stage()));
    WorkingView* working = scanned.window.repairView()->workingView();
    QCOMPARE(working->title(), QStringLiteral("Repairing copies"));
    QVERIFY(working->canStop());
    QTRY_COMPARE(working->progress().text(), QStringLiteral("Repairing — 1,204 of 3,890"));
    QVERIFY(working->progress().determinate());
    // Esc stops the repair through the model's flag.
    QTest::keyClick(&scanned.window, Qt::Key_Escape);
    QVERIFY(scanned.model.cancelFlag()->isSet());
    gate->open();
    QTRY_VERIFY(std::holds_alternative<StageCase::Done>(scanned.model.stage()));
  }

  void scanningShowsNoStop() {
    auto gate = std::make_shared<Gate>();
    RepairBackend backend = fakeBackend(fakeScan({}));
    backend.scan = [gate](const std::vector<std::filesystem::path>&, const ProgressCallback&) {
      gate->wait();
      return fakeScan({});
    };
    RepairModel model(backend);
    MainWindow window(model);
    model.scan({"/e"});
    WorkingView* working = window.repairView()->workingView();
    QCOMPARE(working->title(), QStringLiteral("Scanning your export"));
    QVERIFY(!working->canStop());
    QVERIFY(!working->progress().determinate());
    QCOMPARE(working->progress().text(), QStringLiteral("Reading the export"));
    gate->open();
    QTRY_VERIFY(std::holds_alternative<StageCase::Scanned>(model.stage()));
  }

  void failedViewShowsTheMessage() {
    RepairBackend backend = fakeBackend(nullptr);
    RepairModel model(backend);
    MainWindow window(model);
    model.setDestination("/out");
    model.scan({"/e"});
    QTRY_VERIFY(std::holds_alternative<StageCase::Failed>(model.stage()));
    FailedView* failed = window.repairView()->failedView();
    QCOMPARE(failed->message(),
             QStringLiteral("No photos or videos were found in the selected export."));
    QVERIFY(texts(failed).contains(QStringLiteral("Something went wrong")));
    button(failed, "startOver")->click();
    QVERIFY(std::holds_alternative<StageCase::Empty>(model.stage()));
    QVERIFY(model.destination().has_value());
  }

  void resultTexts_data() {
    QTest::addColumn<RepairSummary>("summary");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QStringList>("absent");
    QTest::newRow("need a look, nothing failed")
        << RepairSummary{.fixed = 1204,
                         .unchanged = 2,
                         .couldntFix = 3,
                         .datesWritten = 7,
                         .zonesGuessed = 1234,
                         .locationsWritten = 5,
                         .captionsWritten = 2}
        << QStringList{"Repair finished",
                       "/tmp/Quillmere Repair",
                       "1,204",
                       "files fixed",
                       "already correct",
                       "copied as-is",
                       "3",
                       "need a look",
                       "listed in couldnt-fix.csv",
                       "dates restored",
                       "1234 time zones guessed",
                       "places restored",
                       "captions restored"}
        << QStringList{"Repair finished with problems", "overlays merged"};
    QTest::newRow("failures and overlays")
        << RepairSummary{.couldntFix = 1, .failed = 2, .captionsWritten = 4, .overlaysMerged = 1}
        << QStringList{"Repair finished with problems", "need a look", "overlays merged",
                       "originals in Extras"}
        << QStringList{"Repair finished", "captions restored", "time zones guessed"};
  }

  void resultTexts() {
    QFETCH(RepairSummary, summary);
    QFETCH(QStringList, expected);
    QFETCH(QStringList, absent);
    RepairBackend backend = fakeBackend(fakeScan({}), fakeRepair(summary));
    Repaired repaired(backend);
    MainWindow& window = repaired.window;
    QVERIFY(window.repairView()->doneView() != nullptr);
    const QStringList shown = texts(window.repairView()->doneView());
    expectTexts(shown, expected, absent);
    if (QTest::currentTestFailed()) return;
    // "need a look" counts the couldn't-fix and the failed rows together.
    const qsizetype look = shown.indexOf(QStringLiteral("need a look"));
    QCOMPARE(shown[look - 1], ViewTexts::count(summary.couldntFix + summary.failed));
  }

  // The result's two stat rows sit close together and the page keeps a readable width, at the
  // smallest window and at a large one; a row of stats never takes the free height.
  void resultLayoutStaysCompact() {
    Repaired repaired(fakeBackend(fakeScan({}), fakeRepair({.fixed = 12, .zonesGuessed = 2})));
    MainWindow& window = repaired.window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    for (const QSize size : {window.minimumSize(), QSize(1400, 900)}) {
      window.resize(size);
      QTest::qWait(20);
      DoneView* done = window.repairView()->doneView();
      QVERIFY(done != nullptr);
      const QRect page = done->widget()->geometry();
      QVERIFY2(page.width() <= kPageWidth, qPrintable(QString::number(page.width())));
      QVERIFY(page.left() >= 0 && page.right() < done->viewport()->width());
      // Six stats in two rows of three, each row the box around its texts, keyed by its top.
      std::map<int, QRect> rows;
      for (const QWidget* stat : done->findChildren<QWidget*>(QStringLiteral("stat"))) {
        QRect texts;
        for (const QLabel* label : stat->findChildren<QLabel*>()) {
          texts = texts.united(QRect(label->mapTo(done, QPoint(0, 0)), label->size()));
        }
        rows[texts.top()] = rows[texts.top()].united(texts);
      }
      QCOMPARE(rows.size(), std::size_t{2});
      const int gap = rows.rbegin()->second.top() - rows.begin()->second.bottom();
      QVERIFY2(
          gap > 0 && gap <= 32,
          qPrintable(
              QStringLiteral("gap %1 at %2x%3").arg(gap).arg(size.width()).arg(size.height())));
    }
  }

  void addingToImmich() {
    auto gate = std::make_shared<Gate>();
    RepairBackend backend = fakeBackend(fakeScan({}), fakeRepair({}));
    backend.import.itemCount = [](const RepairResult&) { return std::int64_t{1}; };
    backend.import.hasKnownCredentials = [] { return true; };
    backend.import.run = [gate](const RepairResult&, ExportKind,
                                const std::optional<ImportCredentials>&,
                                const ProgressCallback& progress, const CancelQuery&) {
      progress({"Adding to Immich", 0, 1});
      gate->wait();
      return ImportSummary{.items = 6,
                           .imported = 0,
                           .alreadyImported = 5,
                           .failed = 1,
                           .folderTitle = "Quillmere: Google Photos (Mar 5, 2025 14:07)"};
    };
    Repaired repaired(backend);
    RepairModel& model = repaired.model;
    MainWindow& window = repaired.window;
    QVERIFY(window.repairView()->doneView() != nullptr);
    DoneView* done = window.repairView()->doneView();
    QCOMPARE(button(done, "addToImmich")->text(), QStringLiteral("Add to Immich…"));
    QCOMPARE(button(done, "showInFileManager")->text(), QStringLiteral("Show in File Manager"));
    QCOMPARE(button(done, "openChangeLog")->text(), QStringLiteral("Open Change Log"));
    QVERIFY(!done->confirming());

    button(done, "addToImmich")->click();
    QVERIFY(done->confirming());
    QMessageBox* box = done->confirmation();
    QCOMPARE(box->text(), QStringLiteral("Add 1 items to your Immich library?"));
    QCOMPARE(box->informativeText(),
             QStringLiteral("They'll go into albums on your Immich server, with dates, places, "
                            "and Live Photos restored. Quillmere only adds; it never changes or "
                            "deletes anything in your library."));
    QStringList labels;
    for (QAbstractButton* b : box->buttons()) labels << b->text();
    labels.sort();
    QCOMPARE(labels, (QStringList{"Add to Immich", "Cancel"}));
    for (QAbstractButton* b : box->buttons()) {
      if (b->text() == QStringLiteral("Add to Immich")) b->click();
    }
    QVERIFY(std::holds_alternative<ImportCase::Running>(model.importState()));
    QVERIFY(!button(done, "addToImmich")->isEnabled());
    QVERIFY(!button(done, "repairAnother")->isEnabled());
    QTRY_VERIFY(texts(done).contains(QStringLiteral("Adding to Immich — 0 of 1")));
    gate->open();
    QTRY_VERIFY(std::holds_alternative<ImportCase::Done>(model.importState()));
    QTRY_VERIFY(button(done, "addToImmich")->isEnabled());
    const QStringList shown = texts(done);
    QVERIFY2(shown.contains(QStringLiteral(
                 "Added 0 items to Immich, in the albums of “Quillmere: Google Photos (Mar 5, "
                 "2025 14:07)”")),
             qPrintable(shown.join(QStringLiteral(" | "))));
    QVERIFY(shown.contains(QStringLiteral("5 items already added earlier, skipped")));
    QVERIFY(
        shown.contains(QStringLiteral("1 item couldn't be added (see Report/photos-import.csv)")));
    QVERIFY(!shown.join(QString()).contains(QStringLiteral("Live Photo")));
  }

  void importFailureShowsTheHint() {
    RepairBackend backend = fakeBackend(fakeScan({}), fakeRepair({}));
    backend.import.itemCount = [](const RepairResult&) { return std::int64_t{3}; };
    backend.import.run = [](const RepairResult&, ExportKind,
                            const std::optional<ImportCredentials>&, const ProgressCallback&,
                            const CancelQuery&) -> ImportSummary {
      throw std::runtime_error("Quillmere couldn't sign in to Immich at http://x.");
    };
    Repaired repaired(backend);
    RepairModel& model = repaired.model;
    MainWindow& window = repaired.window;
    QVERIFY(window.repairView()->doneView() != nullptr);
    model.importIntoPhotos();
    QTRY_VERIFY(std::holds_alternative<ImportCase::Failed>(model.importState()));
    const QStringList shown = texts(window.repairView()->doneView());
    QVERIFY(shown.contains(QStringLiteral("Quillmere couldn't sign in to Immich at http://x.")));
    QVERIFY(
        shown.contains(QStringLiteral("Or upload the Photos folder yourself with Immich's web "
                                      "page or its command-line tool.")));
  }
};

}  // namespace
}  // namespace quillmere

std::unique_ptr<QObject> makeViewsTest() { return std::make_unique<quillmere::ViewsTest>(); }

#include "views_test.moc"
