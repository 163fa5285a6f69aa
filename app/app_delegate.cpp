#include "app/app_delegate.h"

#include "app/command_line.h"
#include "app/main_window.h"

namespace quillmere {

AppDelegate::AppDelegate(RepairBackend backend, QObject* parent)
    : QObject(parent),
      repair_(std::move(backend)),
      window_(std::make_unique<MainWindow>(repair_)) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching(const QStringList& arguments) {
  window_->show();
  window_->raise();
  window_->activateWindow();
  const CommandLine line = CommandLine::parse(arguments);
  if (line.out) repair_.setDestination(line.out);
  if (!line.scan.empty()) {
    repair_.scan(line.scan);
  } else if (!line.openedFiles.empty()) {
    open(line.openedFiles);
  }
}

void AppDelegate::open(const std::vector<std::filesystem::path>& files) {
  if (!files.empty()) repair_.open(files);
  window_->raise();
  window_->activateWindow();
}

}  // namespace quillmere
