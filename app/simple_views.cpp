#include "app/simple_views.h"

#include <QPushButton>
#include <QVBoxLayout>

#include "app/widgets.h"

namespace quillmere {
namespace {

QLabel* centred(QLabel* label) {
  label->setAlignment(Qt::AlignHCenter);
  return label;
}

}  // namespace

FailedView::FailedView(std::function<void()> retry, QWidget* parent)
    : QWidget(parent), message_(centred(makeLabel(QString(), TextStyle::body, 1, this))) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(40, 40, 40, 40);
  column->setSpacing(12);
  column->addStretch();
  column->addWidget(makeSymbol(Symbol::exclamationTriangle, Tint::orange, 40, this), 0,
                    Qt::AlignHCenter);
  column->addWidget(centred(makeLabel(tr("Something went wrong"), TextStyle::title2, 0, this)));
  message_->setObjectName(QStringLiteral("failedMessage"));
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  column->addWidget(message_);
  auto* startOver = new QPushButton(tr("Start Over"), this);
  startOver->setObjectName(QStringLiteral("startOver"));
  connect(startOver, &QPushButton::clicked, this, [retry = std::move(retry)] { retry(); });
  column->addWidget(startOver, 0, Qt::AlignHCenter);
  column->addStretch();
}

ComingSoonView::ComingSoonView(const QString& title, const QString& line, Symbol symbol,
                               QWidget* parent)
    : QWidget(parent) {
  auto* column = new QVBoxLayout(this);
  column->setSpacing(10);
  column->addStretch();
  column->addWidget(makeSymbol(symbol, Tint::secondary, 52, this), 0, Qt::AlignHCenter);
  column->addWidget(centred(makeLabel(title, TextStyle::title2, 0, this)));
  column->addWidget(centred(makeLabel(line, TextStyle::body, 1, this)));
  column->addWidget(centred(makeLabel(tr("Coming in a later version."), TextStyle::body, 0, this)));
  column->addStretch();
}

}  // namespace quillmere
