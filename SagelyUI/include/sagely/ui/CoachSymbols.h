// CoachSymbols — the kit's own small monochrome icons, drawn in any colour.
//
// Icons are named after the symbols the views use ("sparkles", "gearshape", "eye.slash", …) and
// live in the library's Qt resources. A name without an icon gives a null pixmap.
//
// Thread rules: GUI thread only (they paint pixmaps).
#pragma once

#include <sagely/ui/Export.h>

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>
#include <QStringList>

namespace sagely::ui {

struct SAGELY_UI_EXPORT CoachSymbols {
    /// Every symbol the library ships, sorted by name.
    static QStringList names();
    /// Whether the symbol exists.
    static bool contains(const QString& name);
    /// The symbol in `color`, `size` device-independent pixels square, for `devicePixelRatio`.
    static QPixmap pixmap(const QString& name, int size, const QColor& color,
                          qreal devicePixelRatio = 1.0);
    /// The symbol in `color` as an icon (scales to any size).
    static QIcon icon(const QString& name, const QColor& color);
};

}  // namespace sagely::ui
