#ifndef QUILLMERE_APP_DROP_ZONE_H_
#define QUILLMERE_APP_DROP_ZONE_H_

#include <QList>
#include <QUrl>
#include <QWidget>

namespace quillmere {

class RepairModel;

// The first screen: a dashed outline that takes dropped zip parts and folders and starts their
// scan, with a button that opens the export panel instead.
class DropZone : public QWidget {
  Q_OBJECT

 public:
  explicit DropZone(RepairModel& model, QWidget* parent = nullptr);
  bool targeted() const { return targeted_; }
  // What a drop does: scans the local files and folders among `urls`, in their order.
  void drop(const QList<QUrl>& urls);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragLeaveEvent(QDragLeaveEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  void setTargeted(bool targeted);

  RepairModel& model_;
  bool targeted_ = false;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_DROP_ZONE_H_
