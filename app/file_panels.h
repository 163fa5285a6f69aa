#ifndef QUILLMERE_APP_FILE_PANELS_H_
#define QUILLMERE_APP_FILE_PANELS_H_

#include <QWidget>
#include <filesystem>
#include <optional>
#include <vector>

namespace quillmere::FilePanels {

// "Choose your photo export": zip files and folders, several at once, in the panel's order.
// Absent when the user cancels.
std::optional<std::vector<std::filesystem::path>> pickExport(QWidget* parent);

// "Where should the repaired copies go?": one folder (new folders may be made in the panel).
// Absent when the user cancels.
std::optional<std::filesystem::path> pickDestination(QWidget* parent);

}  // namespace quillmere::FilePanels

#endif  // QUILLMERE_APP_FILE_PANELS_H_
