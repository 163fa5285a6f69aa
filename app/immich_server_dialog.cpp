#include "app/immich_server_dialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QPushButton>
#include <QVBoxLayout>
#include <QtConcurrent>

#include "app/widgets.h"

namespace quillmere {

ImmichServerDialog::ImmichServerDialog(Check check, QWidget* parent)
    : QDialog(parent),
      check_(std::move(check)),
      url_(new QLineEdit(this)),
      key_(new QLineEdit(this)),
      problem_(makeLabel(QString(), TextStyle::callout, 0, this)) {
  setWindowTitle(tr("Connect to Immich"));
  auto* column = new QVBoxLayout(this);
  column->addWidget(
      makeLabel(tr("Which Immich server should the copies go to?"), TextStyle::headline, 0, this));
  column->addWidget(makeLabel(tr("Make an API key in Immich under Account Settings › API Keys, "
                                 "with the asset and album permissions."),
                              TextStyle::callout, 1, this));
  auto* form = new QFormLayout;
  url_->setObjectName(QStringLiteral("serverAddress"));
  url_->setPlaceholderText(QStringLiteral("https://photos.example.org"));
  key_->setObjectName(QStringLiteral("apiKey"));
  key_->setEchoMode(QLineEdit::Password);
  form->addRow(tr("Server address:"), url_);
  form->addRow(tr("API key:"), key_);
  column->addLayout(form);
  problem_->setObjectName(QStringLiteral("problem"));
  QPalette warning = problem_->palette();
  warning.setColor(QPalette::WindowText, tintColor(Tint::orange, warning));
  problem_->setPalette(warning);
  problem_->hide();
  column->addWidget(problem_);
  auto* buttons = new QDialogButtonBox(this);
  connect_ = buttons->addButton(tr("Connect"), QDialogButtonBox::AcceptRole);
  connect_->setDefault(true);
  buttons->addButton(QDialogButtonBox::Cancel);
  connect(buttons, &QDialogButtonBox::accepted, this, &ImmichServerDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &ImmichServerDialog::reject);
  column->addWidget(buttons);
  setMinimumWidth(460);
  connect(&checking_, &QFutureWatcher<std::optional<std::string>>::finished, this,
          &ImmichServerDialog::checked);
}

ImportCredentials ImmichServerDialog::credentials() const {
  return {url_->text().trimmed().toStdString(), key_->text().trimmed().toStdString()};
}

void ImmichServerDialog::accept() {
  const ImportCredentials given = credentials();
  if (given.url.empty() || given.key.empty()) {
    problem_->setText(tr("Enter the server address and an API key."));
    problem_->show();
    return;
  }
  if (!check_) {
    QDialog::accept();
    return;
  }
  // A server that doesn't answer can take minutes to give up: ask it off the interface thread,
  // so that the window stays responsive and Cancel still works.
  setChecking(true);
  checking_.setFuture(QtConcurrent::run([check = check_, given] { return check(given); }));
}

bool ImmichServerDialog::isChecking() const { return checking_.isRunning(); }

void ImmichServerDialog::checked() {
  setChecking(false);
  if (!isVisible()) return;  // cancelled while the server was being asked
  const std::optional<std::string> problem = checking_.result();
  if (problem) {
    problem_->setText(QString::fromStdString(*problem));
    problem_->show();
    return;
  }
  QDialog::accept();
}

void ImmichServerDialog::setChecking(bool checking) {
  url_->setEnabled(!checking);
  key_->setEnabled(!checking);
  connect_->setEnabled(!checking);
  connect_->setText(checking ? tr("Checking…") : tr("Connect"));
  if (checking) problem_->hide();
}

}  // namespace quillmere
