#include "Style.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QHash>
#include <QPair>

#include <algorithm>
#include <cmath>
#include <vector>

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

QColor sidebarBackground(const QPalette& palette) {
    const QColor window = palette.color(QPalette::Window);
    // A palette whose window and base colours are the same still gets a sidebar of its own.
    if (contrastRatio(window, controlBackground(palette)) >= 1.05) return window;
    return isDark(palette) ? window.lighter(125) : window.darker(106);
}

QColor paneDivider(const QPalette& palette) {
    return composite(withOpacity(color(Tint::primary, palette), isDark(palette) ? 0.3 : 0.18),
                     sidebarBackground(palette));
}

namespace {

double luminance(const QColor& color) {
    auto channel = [](double value) {
        return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    const QColor rgb = color.toRgb();
    return 0.2126 * channel(rgb.redF()) + 0.7152 * channel(rgb.greenF()) +
           0.0722 * channel(rgb.blueF());
}

QColor mixed(const QColor& from, const QColor& to, double amount) {
    auto mix = [amount](double a, double b) { return a + (b - a) * amount; };
    QColor result;
    result.setRgbF(float(mix(from.redF(), to.redF())), float(mix(from.greenF(), to.greenF())),
                   float(mix(from.blueF(), to.blueF())));
    return result;
}

// The target is a little above 4.5:1, so that rounding to 8-bit channels never drops below it.
constexpr double kReadableRatio = 4.6;

// The surfaces text is drawn on: the content, the sidebar, and either of them under the
// strongest tinted fill the views put behind text (a button on a card, a selected row).
std::vector<QColor> textSurfaces(const QPalette& palette) {
    std::vector<QColor> surfaces;
    for (const QColor& ground : {controlBackground(palette), sidebarBackground(palette)}) {
        surfaces.push_back(ground);
        for (Tint tint : {Tint::blue, Tint::green, Tint::orange, Tint::accent, Tint::secondary})
            surfaces.push_back(composite(withOpacity(color(tint, palette), 0.32), ground));
    }
    return surfaces;
}

QColor readableOn(const QColor& text, const std::vector<QColor>& surfaces, const QColor& away) {
    auto worst = [&](const QColor& candidate) {
        double lowest = 21.0;
        for (const QColor& surface : surfaces)
            lowest = std::min(lowest, contrastRatio(candidate, surface));
        return lowest;
    };
    QColor result = text;
    for (int step = 1; step <= 50 && worst(result) < kReadableRatio; ++step)
        result = mixed(text, away, step / 50.0);
    return result;
}

}  // namespace

double contrastRatio(const QColor& first, const QColor& second) {
    const double a = luminance(first);
    const double b = luminance(second);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

QColor composite(const QColor& top, const QColor& bottom) {
    const double alpha = top.alphaF();
    QColor opaqueTop = top;
    opaqueTop.setAlphaF(1.0);
    return mixed(bottom.toRgb(), opaqueTop.toRgb(), alpha);
}

QColor textColor(Tint tint, const QPalette& palette) {
    if (tint == Tint::white) return QColor(Qt::white);
    // Every label asks on every palette change; the answer depends only on the palette.
    static QHash<QPair<qint64, int>, QColor> cache;
    const QPair<qint64, int> key(palette.cacheKey(), int(tint));
    if (const auto found = cache.constFind(key); found != cache.constEnd()) return *found;
    const QColor ground = controlBackground(palette);
    const QColor drawn = composite(color(tint, palette), ground);
    const QColor away = isDark(palette) ? QColor(Qt::white) : QColor(Qt::black);
    const QColor result = readableOn(drawn, textSurfaces(palette), away);
    if (cache.size() > 512) cache.clear();
    cache.insert(key, result);
    return result;
}

QColor fillBehindWhiteText(Tint tint, const QPalette& palette) {
    return readableOn(composite(color(tint, palette), controlBackground(palette)),
                      {QColor(Qt::white)}, QColor(Qt::black));
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
