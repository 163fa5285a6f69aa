#ifndef QUILLMERE_APP_SYMBOLS_H_
#define QUILLMERE_APP_SYMBOLS_H_

#include <QColor>
#include <QPalette>
#include <QPixmap>

namespace quillmere {

// The pictures the window uses. Each is the desktop theme's icon of the nearest meaning when
// the theme has one, else a picture bundled with the app.
enum class Symbol {
  calendar,
  textformat,
  clockQuestion,
  mappin,
  textBubble,
  rectangleStack,
  checkmarkCircleFill,
  exclamationTriangleFill,
  exclamationTriangle,
  folder,
  photoStack,
  checkmarkSeal,
  externalDrive,
};

// The colours symbols are drawn in.
enum class Tint { accent, secondary, orange, yellow, blue, purple, green };

// A tint as a colour that reads well on `palette`'s window colour (light or dark).
QColor tintColor(Tint tint, const QPalette& palette);

// Text of lesser importance: `level` 1 for secondary, 2 for tertiary.
QColor secondaryTextColor(const QPalette& palette, int level = 1);

// `symbol` drawn `size` logical pixels square, for a screen of `devicePixelRatio`. Monochrome
// pictures (the theme's symbolic icons and the bundled ones) take the colour `tint`.
QPixmap symbolPixmap(Symbol symbol, const QColor& tint, int size, qreal devicePixelRatio);

}  // namespace quillmere

#endif  // QUILLMERE_APP_SYMBOLS_H_
