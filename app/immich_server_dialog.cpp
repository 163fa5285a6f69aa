#include "app/immich_server_dialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGuiApplication>
#include <QPushButton>
#include <QVBoxLayout>

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
  buttons->addButton(tr("Connect"), QDialogButtonBox::AcceptRole)->setDefault(true);
  buttons->addButton(QDialogButtonBox::Cancel);
  connect(buttons, &QDialogButtonBox::accepted, this, &ImmichServerDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &ImmichServerDialog::reject);
  column->addWidget(buttons);
  setMinimumWidth(460);
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
  QGuiApplication::setOverrideCursor(Qt::WaitCursor);
  const std::optional<std::string> problem = check_ ? check_(given) : std::nullopt;
  QGuiApplication::restoreOverrideCursor();
  if (problem) {
    problem_->setText(QString::fromStdString(*problem));
    problem_->show();
    return;
  }
  QDialog::accept();
}

}  // namespace quillmere
