#ifndef QUILLMERE_APP_SINGLE_INSTANCE_H_
#define QUILLMERE_APP_SINGLE_INSTANCE_H_

#include <QLocalServer>
#include <QObject>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <vector>

namespace quillmere {

// One running app per user: a second start hands its files to the first through a local socket
// and ends.
class SingleInstance : public QObject {
  Q_OBJECT

 public:
  using Receiver = std::function<void(const std::vector<std::filesystem::path>&)>;

  // `name` identifies the socket; the default is per user.
  explicit SingleInstance(QString name = defaultName(), QObject* parent = nullptr);

  // Sends `files` (absolute paths, possibly none) to a running instance. True when one took
  // them; then this process should end.
  bool handOver(const std::vector<std::filesystem::path>& files) const;
  // Becomes the running instance; `receiver` gets every later hand-over on this thread. False
  // when another instance still answers (or the socket can't be made): then nothing is received.
  bool listen(Receiver receiver);

  static QString defaultName();

 private:
  QString name_;
  QLocalServer server_;
  Receiver receiver_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_SINGLE_INSTANCE_H_
