#include "app/symbols.h"

#include <QFile>
#include <QIcon>
#include <QPainter>
#include <QSvgRenderer>

// The bundled pictures live in a static library, whose resources must be registered by hand.
static void registerBundledIcons() { Q_INIT_RESOURCE(icons); }

namespace quillmere {
namespace {

struct SymbolNames {
  const char* theme;    // freedesktop icon name; "-symbolic" is tried first
  const char* bundled;  // file in the app's resources
};

SymbolNames names(Symbol symbol) {
  switch (symbol) {
    case Symbol::calendar:
      return {"x-office-calendar", "calendar"};
    case Symbol::textformat:
      return {"format-text-bold", "textformat"};
    case Symbol::clockQuestion:
      return {"appointment-missed", "clock-question"};
    case Symbol::mappin:
      return {"mark-location", "mappin"};
    case Symbol::textBubble:
      return {"mail-message-new", "text-bubble"};
    case Symbol::rectangleStack:
      return {"folder-pictures", "rectangle-stack"};
    case Symbol::checkmarkCircleFill:
      return {"emblem-ok", "checkmark-circle-fill"};
    case Symbol::exclamationTriangleFill:
      return {"dialog-warning", "exclamation-triangle-fill"};
    case Symbol::exclamationTriangle:
      return {"dialog-warning", "exclamation-triangle"};
    case Symbol::folder:
      return {"folder", "folder"};
    case Symbol::photoStack:
      return {"image-x-generic", "photo-stack"};
    case Symbol::checkmarkSeal:
      return {"security-high", "checkmark-seal"};
    case Symbol::externalDrive:
      return {"drive-harddisk", "external-drive"};
  }
  return {"image-missing", "photo-stack"};
}

bool isDark(const QPalette& palette) { return palette.color(QPalette::Window).lightness() < 128; }

QPixmap bundled(const char* name, const QColor& tint, int size, qreal ratio) {
  static const bool registered = (registerBundledIcons(), true);
  (void)registered;
  QFile file(QStringLiteral(":/icons/%1.svg").arg(QLatin1String(name)));
  if (!file.open(QIODevice::ReadOnly)) return {};
  QByteArray svg = file.readAll();
  svg.replace("#000", tint.name().toLatin1());
  QSvgRenderer renderer(svg);
  const int pixels = qRound(size * ratio);
  QPixmap pixmap(pixels, pixels);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  renderer.render(&painter);
  painter.end();
  pixmap.setDevicePixelRatio(ratio);
  return pixmap;
}

}  // namespace

QColor tintColor(Tint tint, const QPalette& palette) {
  const bool dark = isDark(palette);
  switch (tint) {
    case Tint::accent:
      return palette.color(QPalette::Highlight);
    case Tint::secondary:
      return secondaryTextColor(palette);
    case Tint::orange:
      return dark ? QColor(255, 159, 10) : QColor(230, 120, 0);
    case Tint::yellow:
      return dark ? QColor(255, 214, 10) : QColor(200, 150, 0);
    case Tint::blue:
      return dark ? QColor(10, 132, 255) : QColor(0, 110, 230);
    case Tint::purple:
      return dark ? QColor(191, 90, 242) : QColor(150, 60, 200);
    case Tint::green:
      return dark ? QColor(48, 209, 88) : QColor(30, 150, 60);
  }
  return palette.color(QPalette::WindowText);
}

QColor secondaryTextColor(const QPalette& palette, int level) {
  const QColor text = palette.color(QPalette::WindowText);
  const QColor window = palette.color(QPalette::Window);
  const qreal keep = level <= 1 ? 0.65 : 0.45;
  return QColor::fromRgbF(text.redF() * keep + window.redF() * (1 - keep),
                          text.greenF() * keep + window.greenF() * (1 - keep),
                          text.blueF() * keep + window.blueF() * (1 - keep));
}

QPixmap symbolPixmap(Symbol symbol, const QColor& tint, int size, qreal devicePixelRatio) {
  const SymbolNames name = names(symbol);
  const QString theme = QLatin1String(name.theme);
  const QString symbolicName = theme + QStringLiteral("-symbolic");
  if (QIcon::hasThemeIcon(symbolicName)) {
    QPixmap pixmap = QIcon::fromTheme(symbolicName).pixmap(QSize(size, size), devicePixelRatio);
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), tint);
    return pixmap;
  }
  if (QIcon::hasThemeIcon(theme)) {
    return QIcon::fromTheme(theme).pixmap(QSize(size, size), devicePixelRatio);
  }
  return bundled(name.bundled, tint, size, devicePixelRatio);
}

}  // namespace quillmere
