// The visual vocabulary every view shares: named colours resolved against the current palette
// (so dark palettes get their own shades), text styles scaled from the application font, and the
// few spacing constants the views repeat.
#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QString>

namespace sagely::ui::detail {

enum class Tint { primary, secondary, tertiary, blue, green, orange, white, accent };

/// A fixed text of the views, localisable with the text itself as its source.
QString localized(const char* text);

/// The colour of a tint in the given palette.
QColor color(Tint tint, const QPalette& palette);
/// The colour with its alpha multiplied by `opacity`.
QColor withOpacity(QColor color, double opacity);
/// Whether the palette is a dark one.
bool isDark(const QPalette& palette);
/// The pane background under the whole workspace.
QColor controlBackground(const QPalette& palette);

enum class TextStyle { body, headline, callout, subheadline, caption, caption2, title2 };

struct FontOptions {
    bool bold = false;
    bool semibold = false;
    bool italic = false;
    bool monospaced = false;
};

/// The font of a text style, derived from the application font.
QFont styleFont(TextStyle style, FontOptions options = {});
/// The pixel size of a symbol drawn in the given text style.
int symbolSize(TextStyle style);

}  // namespace sagely::ui::detail
