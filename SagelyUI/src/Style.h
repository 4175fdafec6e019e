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
/// The sidebar's background: the window colour, set apart from the content's.
QColor sidebarBackground(const QPalette& palette);
/// The divider between the sidebar and the content.
QColor paneDivider(const QPalette& palette);

/// The WCAG contrast ratio of two colours (alpha ignored), from 1 to 21.
double contrastRatio(const QColor& first, const QColor& second);
/// `top`, with its alpha, laid over the opaque `bottom`.
QColor composite(const QColor& top, const QColor& bottom);
/// The opaque colour text of a tint is drawn in: the tint itself, moved away from the
/// backgrounds until it reads at 4.5:1 on every surface the views put text on.
QColor textColor(Tint tint, const QPalette& palette);
/// A fill behind white text (the user's bubble, prominent buttons): the tint, darkened until
/// white reads on it at 4.5:1.
QColor fillBehindWhiteText(Tint tint, const QPalette& palette);

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
