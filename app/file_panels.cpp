#include "app/file_panels.h"

#include <QAbstractItemView>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>

#include "app/path_text.h"

namespace quillmere::FilePanels {
namespace {

// Qt's file dialog has no message line of its own: put one under its controls.
void addMessage(QFileDialog& dialog, const QString& message) {
  auto* grid = qobject_cast<QGridLayout*>(dialog.layout());
  if (grid == nullptr) return;
  auto* label = new QLabel(message, &dialog);
  label->setWordWrap(true);
  grid->addWidget(label, grid->rowCount(), 0, 1, grid->columnCount());
}

}  // namespace

std::optional<std::vector<std::filesystem::path>> pickExport(QWidget* parent) {
  QFileDialog dialog(parent, QCoreApplication::translate("FilePanels", "Choose your photo export"));
  // Qt's own dialog, because no platform dialog picks files and folders together.
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  dialog.setFileMode(QFileDialog::ExistingFiles);
  dialog.setNameFilter(
      QCoreApplication::translate("FilePanels", "Zip archives and folders (*.zip *.ZIP)"));
  addMessage(dialog, QCoreApplication::translate(
                         "FilePanels",
                         "Pick the Google Takeout or Snapchat zip files (all parts), "
                         "or the unzipped folder."));
  for (auto* view : dialog.findChildren<QAbstractItemView*>()) {
    view->setSelectionMode(QAbstractItemView::ExtendedSelection);
  }
  // The dialog would open a selected folder instead of returning it: accept any selection of
  // existing zip files and folders as it stands. Double-clicking a folder still opens it.
  if (auto* buttons = dialog.findChild<QDialogButtonBox*>()) {
    QObject::disconnect(buttons, &QDialogButtonBox::accepted, &dialog, nullptr);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&dialog] {
      const QStringList chosen = dialog.selectedFiles();
      for (const QString& path : chosen) {
        if (!QFileInfo::exists(path)) return;
      }
      if (!chosen.isEmpty()) static_cast<QDialog&>(dialog).done(QDialog::Accepted);
    });
  }
  if (dialog.exec() != QDialog::Accepted) return std::nullopt;
  std::vector<std::filesystem::path> paths;
  for (const QString& file : dialog.selectedFiles()) paths.push_back(toPath(file));
  if (paths.empty()) return std::nullopt;
  return paths;
}

std::optional<std::filesystem::path> pickDestination(QWidget* parent) {
  QFileDialog dialog(
      parent, QCoreApplication::translate("FilePanels", "Where should the repaired copies go?"));
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  dialog.setFileMode(QFileDialog::Directory);
  dialog.setOption(QFileDialog::ShowDirsOnly);
  dialog.setLabelText(QFileDialog::Accept, QCoreApplication::translate("FilePanels", "Choose"));
  addMessage(dialog,
             QCoreApplication::translate(
                 "FilePanels", "Quillmere creates a new folder here. Your export isn't changed."));
  if (dialog.exec() != QDialog::Accepted) return std::nullopt;
  const QStringList chosen = dialog.selectedFiles();
  if (chosen.isEmpty()) return std::nullopt;
  return toPath(chosen.first());
}

}  // namespace quillmere::FilePanels
