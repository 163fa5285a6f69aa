#include "app/single_instance.h"

#include <unistd.h>

#include <QLocalSocket>

#include "app/path_text.h"

namespace quillmere {
namespace {

constexpr int kTimeoutMs = 2000;

// One path per line, UTF-8 or whatever bytes the file system uses; an empty message still
// tells the running window to come forward.
QByteArray encode(const std::vector<std::filesystem::path>& files) {
  QByteArray message;
  for (const auto& file : files) {
    message += QByteArray::fromStdString(file.native());
    message += '\n';
  }
  return message;
}

std::vector<std::filesystem::path> decode(const QByteArray& message) {
  std::vector<std::filesystem::path> files;
  for (const QByteArray& line : message.split('\n')) {
    if (!line.isEmpty()) files.emplace_back(line.toStdString());
  }
  return files;
}

}  // namespace

SingleInstance::SingleInstance(QString name, QObject* parent)
    : QObject(parent), name_(std::move(name)) {}

QString SingleInstance::defaultName() {
  return QStringLiteral("quillmere-%1").arg(static_cast<qulonglong>(::getuid()));
}

bool SingleInstance::handOver(const std::vector<std::filesystem::path>& files) const {
  QLocalSocket socket;
  socket.connectToServer(name_);
  if (!socket.waitForConnected(kTimeoutMs)) return false;
  socket.write(encode(files));
  socket.disconnectFromServer();
  return socket.state() == QLocalSocket::UnconnectedState || socket.waitForDisconnected(kTimeoutMs);
}

bool SingleInstance::listen(Receiver receiver) {
  receiver_ = std::move(receiver);
  server_.setSocketOptions(QLocalServer::UserAccessOption);
  // Another window that still answers keeps the name (a "--scan" start runs beside it). Ask
  // before listening: with access options, listening would silently replace its socket.
  QLocalSocket probe;
  probe.connectToServer(name_);
  if (probe.waitForConnected(kTimeoutMs)) return false;
  // A socket left behind by a crashed instance is taken over.
  QLocalServer::removeServer(name_);
  if (!server_.listen(name_)) return false;
  connect(&server_, &QLocalServer::newConnection, this, [this] {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
      connect(socket, &QLocalSocket::disconnected, socket, [this, socket] {
        const QByteArray message = socket->readAll();
        socket->deleteLater();
        if (receiver_) receiver_(decode(message));
      });
    }
  });
  return true;
}

}  // namespace quillmere
