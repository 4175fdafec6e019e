// CoachSettingsContentPadding — the outer padding of the settings form: the style's default
// layout margins when enabled, none when disabled (a form embedded in the host's own preferences
// window already sits inside the host's margins).
#pragma once

#include <sagely/ui/Export.h>

#include <QMargins>

class QLayout;
class QWidget;

namespace sagely::ui {

struct SAGELY_UI_EXPORT CoachSettingsContentPadding {
    bool enabled = true;

    /// The margins the content gets inside `widget` (whose style decides the default).
    QMargins margins(const QWidget* widget) const;
    /// Gives the layout those margins (the style of the layout's widget decides).
    void apply(QLayout* layout) const;
};

}  // namespace sagely::ui
