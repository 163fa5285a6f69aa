#ifndef QUILLMERE_APP_FILE_MANAGER_H_
#define QUILLMERE_APP_FILE_MANAGER_H_

#include <filesystem>

namespace quillmere::FileManager {

// Asks the desktop's file manager to show `item` selected in its folder
// (org.freedesktop.FileManager1); where no file manager answers, opens `item` itself (a folder
// opens in whatever the desktop uses for folders).
void showItem(const std::filesystem::path& item);

// Opens `file` with the desktop's default application for it.
void openFile(const std::filesystem::path& file);

}  // namespace quillmere::FileManager

#endif  // QUILLMERE_APP_FILE_MANAGER_H_
