#include "Style.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFontDatabase>
#include <QFontMetrics>

#include <algorithm>

namespace sagely::ui::detail {
namespace {

QColor pick(const QPalette& palette, QColor light, QColor dark) {
    return isDark(palette) ? dark : light;
}

double pointSizeScale(TextStyle style) {
    // Relative to the body size, as the desktop type ramp has them (body 13 pt).
    switch (style) {
        case TextStyle::body:
            return 1.0;
        case TextStyle::headline:
            return 1.0;
        case TextStyle::callout:
            return 12.0 / 13.0;
        case TextStyle::subheadline:
            return 11.0 / 13.0;
        case TextStyle::caption:
            return 10.0 / 13.0;
        case TextStyle::caption2:
            return 9.5 / 13.0;
        case TextStyle::title2:
            return 17.0 / 13.0;
    }
    return 1.0;
}

}  // namespace

QString localized(const char* text) {
    return QCoreApplication::translate("SagelyUI", text);
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

QColor withOpacity(QColor color, double opacity) {
    color.setAlphaF(std::clamp(color.alphaF() * opacity, 0.0, 1.0));
    return color;
}

QColor color(Tint tint, const QPalette& palette) {
    const QColor text = palette.color(QPalette::WindowText);
    switch (tint) {
        case Tint::primary:
            return text;
        case Tint::secondary:
            return withOpacity(text, 0.62);
        case Tint::tertiary:
            return withOpacity(text, 0.38);
        case Tint::blue:
            return pick(palette, QColor(0x00, 0x7A, 0xFF), QColor(0x0A, 0x84, 0xFF));
        case Tint::green:
            return pick(palette, QColor(0x28, 0xA7, 0x45), QColor(0x30, 0xD1, 0x58));
        case Tint::orange:
            return pick(palette, QColor(0xF0, 0x8A, 0x00), QColor(0xFF, 0x9F, 0x0A));
        case Tint::white:
            return QColor(Qt::white);
        case Tint::accent:
            return palette.color(QPalette::Highlight);
    }
    return text;
}

QColor controlBackground(const QPalette& palette) {
    return palette.color(QPalette::Base);
}

QFont styleFont(TextStyle style, FontOptions options) {
    QFont result = QApplication::font();
    if (options.monospaced) {
        const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        result.setFamilies(fixed.families());
    }
    const double body = std::max(result.pointSizeF(), 10.0);
    result.setPointSizeF(std::max(body * pointSizeScale(style), 7.5));
    if (style == TextStyle::headline || options.bold) result.setWeight(QFont::Bold);
    if (options.semibold) result.setWeight(QFont::DemiBold);
    result.setItalic(options.italic);
    return result;
}

int symbolSize(TextStyle style) {
    const QFontMetrics metrics(styleFont(style));
    return std::max(10, metrics.height() - 2);
}

}  // namespace sagely::ui::detail
