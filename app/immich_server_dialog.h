#ifndef QUILLMERE_APP_IMMICH_SERVER_DIALOG_H_
#define QUILLMERE_APP_IMMICH_SERVER_DIALOG_H_

#include <QDialog>
#include <QFutureWatcher>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <functional>
#include <optional>
#include <string>

#include "app/import_state.h"

namespace quillmere {

// Asks for the Immich server's address and an API key, and checks them before it closes. The
// check runs on a worker thread (`Check` must be safe to call there); the dialog closes only
// when it passes. The answer lasts for this session only: the app keeps no settings.
class ImmichServerDialog : public QDialog {
  Q_OBJECT

 public:
  using Check = std::function<std::optional<std::string>(const ImportCredentials&)>;
  ImmichServerDialog(Check check, QWidget* parent = nullptr);
  ImportCredentials credentials() const;
  bool isChecking() const;

 protected:
  void accept() override;

 private:
  void checked();
  void setChecking(bool checking);

  Check check_;
  QFutureWatcher<std::optional<std::string>> checking_;
  QPushButton* connect_ = nullptr;
  QLineEdit* url_;
  QLineEdit* key_;
  QLabel* problem_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_IMMICH_SERVER_DIALOG_H_
