#include "app/file_manager.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDesktopServices>
#include <QUrl>

#include "app/path_text.h"

namespace quillmere::FileManager {

void showItem(const std::filesystem::path& item) {
  const QUrl url = QUrl::fromLocalFile(toQString(item));
  QDBusInterface manager(QStringLiteral("org.freedesktop.FileManager1"),
                         QStringLiteral("/org/freedesktop/FileManager1"),
                         QStringLiteral("org.freedesktop.FileManager1"),
                         QDBusConnection::sessionBus());
  if (manager.isValid()) {
    const QDBusReply<void> reply =
        manager.call(QStringLiteral("ShowItems"), QStringList{url.toString()}, QString());
    if (reply.isValid()) return;
  }
  QDesktopServices::openUrl(url);
}

void openFile(const std::filesystem::path& file) {
  QDesktopServices::openUrl(QUrl::fromLocalFile(toQString(file)));
}

}  // namespace quillmere::FileManager
