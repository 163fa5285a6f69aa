#ifndef QUILLMERE_APP_SIMPLE_VIEWS_H_
#define QUILLMERE_APP_SIMPLE_VIEWS_H_

#include <QLabel>
#include <QWidget>
#include <functional>

#include "app/symbols.h"

namespace quillmere {

// A failed scan or repair: the message as it stands, and a way back.
class FailedView : public QWidget {
  Q_OBJECT

 public:
  explicit FailedView(std::function<void()> retry, QWidget* parent = nullptr);
  void setMessage(const QString& message) { message_->setText(message); }
  QString message() const { return message_->text(); }

 private:
  QLabel* message_;
};

// A mode of the window that a later version brings.
class ComingSoonView : public QWidget {
  Q_OBJECT

 public:
  ComingSoonView(const QString& title, const QString& line, Symbol symbol,
                 QWidget* parent = nullptr);
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_SIMPLE_VIEWS_H_
