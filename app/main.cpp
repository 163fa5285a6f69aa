#include <QApplication>
#include <QIcon>
#include <cstdlib>

#include "app/app_delegate.h"
#include "app/command_line.h"
#include "app/main_window.h"
#include "app/single_instance.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Quillmere"));
  QApplication::setApplicationVersion(QStringLiteral("1.0.1"));
  QApplication::setDesktopFileName(QStringLiteral("org.quillmere.Quillmere"));
  QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("org.quillmere.Quillmere")));
  QApplication::setQuitOnLastWindowClosed(true);

  const QStringList arguments = QApplication::arguments();
  const quillmere::CommandLine line = quillmere::CommandLine::parse(arguments);
  quillmere::SingleInstance instance;
  // Files opened from the desktop go to the window already running; a "--scan" start is a new
  // run of its own.
  if (line.scan.empty() && instance.handOver(line.openedFiles)) return EXIT_SUCCESS;

  quillmere::AppDelegate delegate;
  instance.listen(
      [&delegate](const std::vector<std::filesystem::path>& files) { delegate.open(files); });
  delegate.applicationDidFinishLaunching(arguments);
  const int code = QApplication::exec();
  // Closing the window ends a scan or repair in flight with the process; its worker is not
  // waited for.
  if (delegate.repair().busy()) std::quick_exit(code);
  return code;
}
