// Renders every screen of the app, light and dark, from a real scan (and, where the engine is
// built in, a real repair) of the sample export, so the screens can be looked at without a
// desktop. Usage: quillmere-screenshots OUTPUT_FOLDER (run with QT_QPA_PLATFORM=offscreen).

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "app/done_view.h"
#include "app/main_window.h"
#include "app/path_text.h"
#include "app/repair_model.h"
#include "app/repair_view.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace quillmere;

// Lets the test-only import run stop where a screen should be taken.
class Gate {
 public:
  void open() {
    std::lock_guard guard(lock_);
    open_ = true;
    opened_.notify_all();
  }
  void wait() {
    std::unique_lock guard(lock_);
    opened_.wait(guard, [this] { return open_; });
  }

 private:
  std::mutex lock_;
  std::condition_variable opened_;
  bool open_ = false;
};

QPalette darkPalette() {
  QPalette p;
  const QColor window(38, 40, 43), base(28, 30, 32), text(232, 232, 232);
  p.setColor(QPalette::Window, window);
  p.setColor(QPalette::WindowText, text);
  p.setColor(QPalette::Base, base);
  p.setColor(QPalette::AlternateBase, window);
  p.setColor(QPalette::Text, text);
  p.setColor(QPalette::Button, QColor(52, 55, 59));
  p.setColor(QPalette::ButtonText, text);
  p.setColor(QPalette::Highlight, QColor(61, 174, 233));
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::ToolTipBase, base);
  p.setColor(QPalette::ToolTipText, text);
  p.setColor(QPalette::PlaceholderText, QColor(140, 140, 140));
  p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(120, 120, 120));
  p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(120, 120, 120));
  p.setColor(QPalette::Disabled, QPalette::Text, QColor(120, 120, 120));
  return p;
}

template <typename Predicate>
bool waitFor(Predicate done, int timeoutMs = 300'000) {
  return QTest::qWaitFor(done, timeoutMs);
}

class Shooter {
 public:
  Shooter(QDir folder, QString theme) : folder_(std::move(folder)), theme_(std::move(theme)) {}

  void take(QWidget& widget, const QString& name) {
    QApplication::processEvents();
    QTest::qWait(30);
    const QString file = folder_.filePath(QStringLiteral("%1-%2.png").arg(name, theme_));
    if (!widget.grab().save(file)) std::fprintf(stderr, "could not write %s\n", qPrintable(file));
    std::printf("%s\n", qPrintable(file));
  }

  // Also at a large window size, to see how the page grows; the window returns to its size.
  void takeLarge(QWidget& window, const QString& name) {
    const QSize size = window.size();
    window.resize(1200, 820);
    take(window, name + QStringLiteral("-large"));
    window.resize(size);
    QApplication::processEvents();
  }

 private:
  QDir folder_;
  QString theme_;
};

int shootTheme(const QDir& folder, const QString& theme) {
  Shooter shoot(folder, theme);
  const std::filesystem::path examples = std::filesystem::path(QUILLMERE_SOURCE_DIR) / "examples";
  testing::TempDir output;
  auto importGate = std::make_shared<Gate>();
  RepairBackend backend = RepairBackend::core();
  // The samples scan in a blink: the scan holds its result until the scanning screen is taken.
  auto scanGate = std::make_shared<Gate>();
  backend.scan = [scan = backend.scan, scanGate](const std::vector<std::filesystem::path>& inputs,
                                                 const ProgressCallback& progress) {
    ScanResultPtr result = scan(inputs, progress);
    scanGate->wait();
    return result;
  };
  // No Immich server runs here: the import screens show a run that reports like a real one.
  backend.import.hasKnownCredentials = [] { return true; };
  backend.import.run = [importGate](const RepairResult& result, ExportKind,
                                    const std::optional<ImportCredentials>&,
                                    const ProgressCallback& progress, const CancelQuery&) {
    const auto items = static_cast<std::int64_t>(PhotosImporter::items(result).size());
    progress({"Adding to Immich", items / 2, items});
    importGate->wait();
    ImportSummary summary;
    summary.items = items;
    summary.imported = items - 1;
    summary.livePhotos = 1;
    summary.alreadyImported = 1;
    summary.albums = 2;
    summary.folderTitle = "Quillmere: Google Photos (Nov 23, 2026 14:07)";
    return summary;
  };
  RepairModel model(backend);
  MainWindow window(model);
  window.resize(window.minimumSize());  // the smallest the window gets: where layouts crowd
  window.show();
  if (!QTest::qWaitForWindowExposed(&window)) return 1;

  shoot.take(window, QStringLiteral("01-drop-zone"));
  model.scan({examples / "takeout-20240101T000000Z-001.zip",
              examples / "takeout-20240101T000000Z-002.zip"});
  waitFor([&] {
    const auto* scanning = std::get_if<StageCase::Scanning>(&model.stage());
    return scanning != nullptr && scanning->progress.total > 0;
  });
  shoot.take(window, QStringLiteral("02-scanning"));
  scanGate->open();
  if (!waitFor([&] { return !std::holds_alternative<StageCase::Scanning>(model.stage()); })) {
    return 1;
  }
  shoot.take(window, QStringLiteral("03-scan-summary"));
  // Shown as a person would see a folder of their own, not as a scratch folder.
  qputenv("HOME", QFile::encodeName(toQString(output.path())));
  std::filesystem::create_directory(output.path() / "Pictures");
  model.setDestination(output.path() / "Pictures");
  shoot.take(window, QStringLiteral("04-scan-summary-destination"));
  shoot.takeLarge(window, QStringLiteral("04-scan-summary-destination"));
  window.setMode(MainWindow::Mode::verify);
  shoot.take(window, QStringLiteral("12-verify"));
  window.setMode(MainWindow::Mode::backup);
  shoot.take(window, QStringLiteral("13-backup"));
  window.setMode(MainWindow::Mode::repair);

  if (backend.repair) {
    model.repair();
    shoot.take(window, QStringLiteral("05-repairing"));
    if (!waitFor([&] { return !std::holds_alternative<StageCase::Repairing>(model.stage()); })) {
      return 1;
    }
    shoot.take(window, QStringLiteral("06-done"));
    shoot.takeLarge(window, QStringLiteral("06-done"));
    if (DoneView* done = window.repairView()->doneView()) {
      done->addToImmich();
      if (QMessageBox* box = done->confirmation()) {
        QTest::qWait(50);
        shoot.take(*box, QStringLiteral("07-confirm-import"));
        box->reject();
      }
      model.importIntoPhotos();
      waitFor([&] {
        const auto* running = std::get_if<ImportCase::Running>(&model.importState());
        return running != nullptr && running->progress.total > 0;
      });
      shoot.take(window, QStringLiteral("08-import-running"));
      importGate->open();
      waitFor([&] { return std::holds_alternative<ImportCase::Done>(model.importState()); });
      shoot.take(window, QStringLiteral("09-import-done"));
      shoot.takeLarge(window, QStringLiteral("09-import-done"));
    }
  } else {
    std::fprintf(stderr, "the repair engine isn't built in yet: no result screens\n");
  }

  model.startOver();
  model.scan({examples / "no-such-export"});
  waitFor([&] { return std::holds_alternative<StageCase::Failed>(model.stage()); });
  shoot.take(window, QStringLiteral("11-failed"));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: quillmere-screenshots OUTPUT_FOLDER\n");
    return 2;
  }
  QDir folder(QString::fromLocal8Bit(argv[1]));
  if (!folder.mkpath(QStringLiteral("."))) return 1;
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  const QPalette light = QApplication::style()->standardPalette();
  QApplication::setPalette(light);
  int failures = shootTheme(folder, QStringLiteral("light"));
  QApplication::setPalette(darkPalette());
  failures += shootTheme(folder, QStringLiteral("dark"));
  return failures == 0 ? 0 : 1;
}
