// Small building blocks the views are made of: labels and symbols that keep their tint when the
// palette changes, tinted rounded panels, number badges, bullet dots, dividers and tinted
// buttons.
#pragma once

#include "Style.h"

#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QString>
#include <QWidget>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class QBoxLayout;
class QHBoxLayout;
class QVBoxLayout;

namespace sagely::ui::detail {

/// A label in a text style and tint; the colour follows palette changes.
class StyledLabel : public QLabel {
public:
    StyledLabel(const QString& text, TextStyle style, Tint tint = Tint::primary,
                FontOptions options = {}, QWidget* parent = nullptr);
    void setTint(Tint tint);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyTint();
    Tint m_tint;
    bool m_applying = false;
};

/// A symbol in a tint, optionally centred on a filled circle; painted afresh on every paint.
class SymbolView : public QWidget {
public:
    struct Circle {
        Tint tint;
        double opacity;
    };
    SymbolView(const QString& symbol, Tint tint, int symbolSize, QWidget* parent = nullptr);
    /// Draws a circle behind the symbol and sizes the view to `frame` square.
    void setCircle(Circle circle, int frame);
    void setSymbol(const QString& symbol);
    void setTint(Tint tint);
    const QString& symbol() const { return m_symbol; }
    Tint tint() const { return m_tint; }
    int symbolSize() const { return m_symbolSize; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_symbol;
    Tint m_tint;
    int m_symbolSize;
    std::optional<Circle> m_circle;
};

/// A step number in bold caption text, centred on a tinted circle of 24 by 24.
class NumberBadge : public QWidget {
public:
    NumberBadge(long long number, Tint tint, QWidget* parent = nullptr);
    QString text() const { return m_text; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
    Tint m_tint;
};

/// A small filled circle pushed down from the top so that it sits on a first text line.
class BulletDot : public QWidget {
public:
    BulletDot(int diameter, Tint tint, double opacity, int topOffset, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int m_diameter;
    Tint m_tint;
    double m_opacity;
    int m_topOffset;
};

/// A rounded rectangle filled with a tint at an opacity, optionally outlined.
class RoundedPanel : public QFrame {
public:
    RoundedPanel(Tint fill, double fillOpacity, int radius, QWidget* parent = nullptr);
    void setStroke(Tint stroke, double opacity);
    void setFill(Tint fill, double opacity);
    /// Fills solidly, dark enough for white text on it.
    void setCarriesWhiteText(bool carries);
    Tint fillTint() const { return m_fill; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Tint m_fill;
    double m_fillOpacity;
    int m_radius;
    bool m_carriesWhiteText = false;
    std::optional<std::pair<Tint, double>> m_stroke;
};

/// A one-pixel separator line.
class Divider : public QWidget {
public:
    explicit Divider(Qt::Orientation orientation = Qt::Horizontal, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Qt::Orientation m_orientation;
};

/// How a tinted button is drawn.
enum class ButtonStyle { plain, bordered, borderedProminent };

/// A push button drawn in a style and tint; the colours follow palette changes.
class TintedButton : public QPushButton {
public:
    TintedButton(const QString& text, ButtonStyle style, Tint tint, TextStyle textStyle,
                 QWidget* parent = nullptr);
    /// Shows a symbol before the text, in the button's colour or in `symbolTint`.
    void setSymbol(const QString& symbol, std::optional<Tint> symbolTint = std::nullopt);
    void setTint(Tint tint);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyStyle();
    ButtonStyle m_style;
    Tint m_tint;
    QString m_symbol;
    std::optional<Tint> m_symbolTint;
    bool m_applying = false;
};

/// A plain icon-only button showing a symbol.
class SymbolButton : public QPushButton {
public:
    SymbolButton(const QString& symbol, Tint tint, int symbolSize, QWidget* parent = nullptr);
    void setSymbol(const QString& symbol);
    void setTint(Tint tint);
    const QString& symbol() const { return m_symbol; }
    Tint tint() const { return m_tint; }

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyIcon();
    QString m_symbol;
    Tint m_tint;
};

/// A wrapping label that asks for the width of its longest line (up to its maximum width)
/// rather than the narrow block a wrapping label picks by default, so short texts stay on one
/// line and long ones fill the space they are given.
class TextBlockLabel : public StyledLabel {
public:
    using StyledLabel::StyledLabel;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

private:
    int idealTextWidth() const;
    mutable QString m_measuredText;
    mutable QFont m_measuredFont;
    mutable int m_idealWidth = 0;
};

/// A one-line label that ends its text in "…" when it does not fit, and shows the whole text as
/// its tooltip; text() (and what a screen reader speaks) stays the whole text.
class ElidedLabel : public StyledLabel {
public:
    ElidedLabel(const QString& text, TextStyle style, Tint tint = Tint::primary,
                QWidget* parent = nullptr);
    void setFullText(const QString& text);
    /// The text as drawn at the current width.
    QString shownText() const;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};

/// A wrapping, selectable label for message text (rich or plain).
StyledLabel* textLabel(const QString& text, Qt::TextFormat format, TextStyle style,
                       Tint tint = Tint::primary, FontOptions options = {});

/// The "Try Next" heading and one bordered button per suggestion, tinted; pressing one calls
/// `onSelected` with its text. Used by cards and lessons.
QWidget* tryNextList(const std::vector<std::string>& suggestions, Tint tint,
                     const std::function<void(const std::string&)>& onSelected);

/// Layout helpers: a box with the given spacing and margins on `parent`.
QVBoxLayout* vstack(QWidget* parent, int spacing, int margin = 0);
QHBoxLayout* hstack(QWidget* parent, int spacing, int margin = 0);
/// A box layout nested in `outer` (appended to it with the given stretch).
QVBoxLayout* nestedVStack(QBoxLayout* outer, int spacing, int stretch = 0);
QHBoxLayout* nestedHStack(QBoxLayout* outer, int spacing, int stretch = 0);

}  // namespace sagely::ui::detail
