#include "app/working_view.h"

#include <QVBoxLayout>

namespace quillmere {

WorkingView::WorkingView(QWidget* parent)
    : QWidget(parent),
      title_(makeLabel(QString(), TextStyle::title2, 0, this)),
      progress_(new ProgressDisplay(this)),
      stop_(new QPushButton(tr("Stop"), this)) {
  auto* column = new QVBoxLayout(this);
  column->setSpacing(16);
  column->addStretch();
  title_->setAlignment(Qt::AlignHCenter);
  column->addWidget(title_);
  column->addWidget(progress_, 0, Qt::AlignHCenter);
  stop_->setObjectName(QStringLiteral("stop"));
  column->addWidget(stop_, 0, Qt::AlignHCenter);
  column->addStretch();
  connect(stop_, &QPushButton::clicked, this, [this] {
    if (cancel_) cancel_();
  });
}

void WorkingView::show(const QString& title, const WorkProgress& progress,
                       std::function<void()> cancel) {
  title_->setText(title);
  progress_->setProgress(progress);
  cancel_ = std::move(cancel);
  stop_->setVisible(static_cast<bool>(cancel_));
}

}  // namespace quillmere
