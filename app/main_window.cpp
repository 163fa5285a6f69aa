#include "app/main_window.h"

#include <QHBoxLayout>
#include <QShortcut>
#include <QToolBar>
#include <QToolButton>

#include "app/repair_model.h"
#include "app/repair_view.h"
#include "app/simple_views.h"

namespace quillmere {
namespace {

// Three checkable buttons that read as one segmented control.
QWidget* makeModeSwitch(QButtonGroup* group, QWidget* parent) {
  auto* box = new QWidget(parent);
  box->setObjectName(QStringLiteral("Mode"));
  box->setAccessibleName(MainWindow::tr("Mode"));
  box->setFixedWidth(280);
  auto* row = new QHBoxLayout(box);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  const QString labels[] = {MainWindow::tr("Repair"), MainWindow::tr("Verify"),
                            MainWindow::tr("Backup")};
  for (int i = 0; i < 3; ++i) {
    auto* button = new QToolButton(box);
    button->setText(labels[i]);
    button->setCheckable(true);
    button->setAutoRaise(false);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    group->addButton(button, i);
    row->addWidget(button);
  }
  // The chosen mode in the accent colour, so it reads as chosen in light and dark palettes.
  box->setStyleSheet(QStringLiteral(
      "QToolButton { padding: 3px 10px; border: 1px solid palette(mid);"
      " background: palette(button); color: palette(button-text); }"
      "QToolButton:checked { background: palette(highlight); color: palette(highlighted-text);"
      " border-color: palette(highlight); }"));
  group->setExclusive(true);
  group->button(0)->setChecked(true);
  return box;
}

}  // namespace

MainWindow::MainWindow(RepairModel& model, QWidget* parent)
    : QMainWindow(parent),
      model_(model),
      repairView_(new RepairView(model, this)),
      pages_(new QStackedWidget(this)),
      modes_(new QButtonGroup(this)) {
  setWindowTitle(tr("Quillmere"));
  setMinimumSize(720, 560);
  resize(760, 640);
  auto* toolbar = new QToolBar(tr("Mode"), this);
  toolbar->setMovable(false);
  toolbar->setFloatable(false);
  toolbar->setContextMenuPolicy(Qt::PreventContextMenu);
  auto* left = new QWidget(toolbar);
  left->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  auto* right = new QWidget(toolbar);
  right->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  toolbar->addWidget(left);
  toolbar->addWidget(makeModeSwitch(modes_, toolbar));
  toolbar->addWidget(right);
  addToolBar(Qt::TopToolBarArea, toolbar);

  pages_->addWidget(repairView_);
  pages_->addWidget(new ComingSoonView(
      tr("Verify"), tr("Prove everything arrived before you delete the original."),
      Symbol::checkmarkSeal, pages_));
  pages_->addWidget(
      new ComingSoonView(tr("Keep a backup"),
                         tr("A complete, browsable copy of your Google Photos on your own drive."),
                         Symbol::externalDrive, pages_));
  setCentralWidget(pages_);
  connect(modes_, &QButtonGroup::idClicked, pages_, &QStackedWidget::setCurrentIndex);

  // Return repairs from the summary; Esc stops whatever can be stopped.
  for (const auto key : {Qt::Key_Return, Qt::Key_Enter}) {
    auto* start = new QShortcut(QKeySequence(key), this);
    connect(start, &QShortcut::activated, this, [this] {
      if (mode() == Mode::repair) model_.repair();
    });
  }
  auto* stop = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  connect(stop, &QShortcut::activated, this, [this] {
    if (std::holds_alternative<StageCase::Repairing>(model_.stage()) ||
        std::holds_alternative<ImportCase::Running>(model_.importState())) {
      model_.cancel();
    }
  });
}

void MainWindow::setMode(Mode mode) {
  const int index = static_cast<int>(mode);
  modes_->button(index)->setChecked(true);
  pages_->setCurrentIndex(index);
}

}  // namespace quillmere
