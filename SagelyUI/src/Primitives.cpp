#include "Primitives.h"

#include <sagely/ui/CoachSymbols.h>

#include <QCoreApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QPainter>
#include <QPainterPath>
#include <QTextDocument>

#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

namespace sagely::ui::detail {
namespace {

bool isPaletteEvent(const QEvent* event) {
    return event->type() == QEvent::PaletteChange ||
           event->type() == QEvent::ApplicationPaletteChange ||
           event->type() == QEvent::StyleChange || event->type() == QEvent::ParentChange;
}

// The palette the widget inherits, without the foreground roles we set on it ourselves.
QPalette inheritedPalette(const QWidget* widget) {
    return widget->parentWidget() ? widget->parentWidget()->palette() : QPalette();
}

QString rgba(const QColor& color) {
    return QStringLiteral("rgba(%1,%2,%3,%4)")
        .arg(color.red())
        .arg(color.green())
        .arg(color.blue())
        .arg(QString::number(color.alphaF(), 'f', 3));
}

}  // namespace

StyledLabel::StyledLabel(const QString& text, TextStyle style, Tint tint, FontOptions options,
                         QWidget* parent)
    : QLabel(text, parent), m_tint(tint) {
    setFont(styleFont(style, options));
    setTextFormat(Qt::PlainText);
    applyTint();
}

void StyledLabel::setTint(Tint tint) {
    m_tint = tint;
    applyTint();
}

void StyledLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (isPaletteEvent(event)) applyTint();
}

void StyledLabel::applyTint() {
    if (m_applying) return;
    m_applying = true;
    QPalette palette = this->palette();
    const QColor text = textColor(m_tint, inheritedPalette(this));
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Text, text);
    setPalette(palette);
    m_applying = false;
}

SymbolView::SymbolView(const QString& symbol, Tint tint, int symbolSize, QWidget* parent)
    : QWidget(parent), m_symbol(symbol), m_tint(tint), m_symbolSize(symbolSize) {
    setFixedSize(symbolSize, symbolSize);
}

void SymbolView::setCircle(Circle circle, int frame) {
    m_circle = circle;
    setFixedSize(frame, frame);
    update();
}

void SymbolView::setSymbol(const QString& symbol) {
    m_symbol = symbol;
    update();
}

void SymbolView::setTint(Tint tint) {
    m_tint = tint;
    update();
}

void SymbolView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_circle) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(withOpacity(color(m_circle->tint, palette()), m_circle->opacity));
        painter.drawEllipse(rect());
    }
    const QRect target((width() - m_symbolSize) / 2, (height() - m_symbolSize) / 2, m_symbolSize,
                       m_symbolSize);
    painter.drawPixmap(target, CoachSymbols::pixmap(m_symbol, m_symbolSize,
                                                    color(m_tint, palette()), devicePixelRatioF()));
}

NumberBadge::NumberBadge(long long number, Tint tint, QWidget* parent)
    : QWidget(parent), m_text(QString::number(number)), m_tint(tint) {
    setFixedSize(24, 24);
    setFont(styleFont(TextStyle::caption, {.bold = true}));
    setAccessibleName(m_text);
}

void NumberBadge::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor tint = color(m_tint, palette());
    painter.setPen(Qt::NoPen);
    painter.setBrush(withOpacity(tint, 0.12));
    painter.drawEllipse(rect());
    painter.setPen(textColor(m_tint, palette()));
    painter.setFont(font());
    painter.drawText(rect(), Qt::AlignCenter, m_text);
}

BulletDot::BulletDot(int diameter, Tint tint, double opacity, int topOffset, QWidget* parent)
    : QWidget(parent),
      m_diameter(diameter),
      m_tint(tint),
      m_opacity(opacity),
      m_topOffset(topOffset) {
    setFixedSize(diameter, diameter + topOffset);
}

void BulletDot::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(withOpacity(color(m_tint, palette()), m_opacity));
    painter.drawEllipse(QRectF(0, m_topOffset, m_diameter, m_diameter));
}

RoundedPanel::RoundedPanel(Tint fill, double fillOpacity, int radius, QWidget* parent)
    : QFrame(parent), m_fill(fill), m_fillOpacity(fillOpacity), m_radius(radius) {}

void RoundedPanel::setStroke(Tint stroke, double opacity) {
    m_stroke = std::make_pair(stroke, opacity);
    update();
}

void RoundedPanel::setCarriesWhiteText(bool carries) {
    m_carriesWhiteText = carries;
    update();
}

void RoundedPanel::setFill(Tint fill, double opacity) {
    m_fill = fill;
    m_fillOpacity = opacity;
    update();
}

void RoundedPanel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath shape;
    shape.addRoundedRect(bounds, m_radius, m_radius);
    painter.fillPath(shape, m_carriesWhiteText
                                ? fillBehindWhiteText(m_fill, palette())
                                : withOpacity(color(m_fill, palette()), m_fillOpacity));
    if (m_stroke) {
        painter.setPen(QPen(withOpacity(color(m_stroke->first, palette()), m_stroke->second), 1));
        painter.drawPath(shape);
    }
}

Divider::Divider(Qt::Orientation orientation, QWidget* parent)
    : QWidget(parent), m_orientation(orientation) {
    if (orientation == Qt::Horizontal) {
        setFixedHeight(1);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    } else {
        setFixedWidth(1);
        setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
    }
}

void Divider::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), withOpacity(color(Tint::primary, palette()), 0.14));
}

TintedButton::TintedButton(const QString& text, ButtonStyle style, Tint tint, TextStyle textStyle,
                           QWidget* parent)
    : QPushButton(text, parent), m_style(style), m_tint(tint) {
    setFont(styleFont(textStyle));
    setCursor(Qt::PointingHandCursor);
    applyStyle();
}

void TintedButton::setSymbol(const QString& symbol, std::optional<Tint> symbolTint) {
    m_symbol = symbol;
    m_symbolTint = symbolTint;
    applyStyle();
}

void TintedButton::setTint(Tint tint) {
    m_tint = tint;
    applyStyle();
}

void TintedButton::changeEvent(QEvent* event) {
    QPushButton::changeEvent(event);
    if (isPaletteEvent(event)) applyStyle();
}

void TintedButton::applyStyle() {
    if (m_applying) return;
    m_applying = true;
    const QPalette base = inheritedPalette(this);
    const QColor tint = color(m_tint, base);
    QColor foreground = textColor(m_tint, base);
    QString background = QStringLiteral("transparent");
    QString border = QStringLiteral("none");
    if (m_style == ButtonStyle::bordered) {
        background = rgba(withOpacity(tint, 0.12));
        border = QStringLiteral("1px solid ") + rgba(withOpacity(tint, 0.35));
    } else if (m_style == ButtonStyle::borderedProminent) {
        background = rgba(fillBehindWhiteText(m_tint, base));
        border = QStringLiteral("1px solid ") + rgba(fillBehindWhiteText(m_tint, base));
        foreground = Qt::white;
    }
    const QString padding =
        m_style == ButtonStyle::plain ? QStringLiteral("1px 2px") : QStringLiteral("3px 10px");
    setStyleSheet(QStringLiteral("QPushButton { color: %1; background: %2; border: %3; "
                                 "border-radius: 6px; padding: %4; text-align: left; }"
                                 "QPushButton:pressed { background: %5; }"
                                 "QPushButton:disabled { color: %6; }")
                      .arg(rgba(foreground), background, border, padding,
                           rgba(withOpacity(tint, 0.28)), rgba(color(Tint::tertiary, base))));
    if (!m_symbol.isEmpty())
        setIcon(
            CoachSymbols::icon(m_symbol, m_symbolTint ? color(*m_symbolTint, base) : foreground));
    m_applying = false;
}

SymbolButton::SymbolButton(const QString& symbol, Tint tint, int symbolSize, QWidget* parent)
    : QPushButton(parent), m_symbol(symbol), m_tint(tint) {
    setFlat(true);
    setIconSize(QSize(symbolSize, symbolSize));
    setFixedSize(symbolSize + 6, symbolSize + 6);
    setCursor(Qt::PointingHandCursor);
    setStyleSheet(QStringLiteral("QPushButton { border: none; background: transparent; }"));
    applyIcon();
}

void SymbolButton::setSymbol(const QString& symbol) {
    m_symbol = symbol;
    applyIcon();
}

void SymbolButton::setTint(Tint tint) {
    m_tint = tint;
    applyIcon();
}

void SymbolButton::changeEvent(QEvent* event) {
    QPushButton::changeEvent(event);
    if (isPaletteEvent(event)) applyIcon();
}

void SymbolButton::applyIcon() {
    setIcon(CoachSymbols::icon(m_symbol, color(m_tint, palette())));
}

int TextBlockLabel::idealTextWidth() const {
    if (m_measuredText == text() && m_measuredFont == font()) return m_idealWidth;
    m_measuredText = text();
    m_measuredFont = font();
    if (textFormat() == Qt::RichText) {
        QTextDocument document;
        document.setDefaultFont(font());
        document.setDocumentMargin(0);
        document.setHtml(text());
        m_idealWidth = int(std::ceil(document.idealWidth()));
    } else {
        const QFontMetrics metrics(font());
        m_idealWidth = 0;
        for (const QString& line : text().split(u'\n'))
            m_idealWidth = std::max(m_idealWidth, metrics.horizontalAdvance(line));
    }
    return m_idealWidth;
}

QSize TextBlockLabel::sizeHint() const {
    const QMargins margins = contentsMargins();
    const int frame = 2 * (frameWidth() + margin()) + margins.left() + margins.right();
    const int width = std::min(idealTextWidth() + frame + 1, maximumWidth());
    return {width, heightForWidth(width)};
}

QSize TextBlockLabel::minimumSizeHint() const {
    // Narrow enough to give way in a tight pane; the height comes from heightForWidth() at the
    // width the layout settles on, so the minimum claims a single line only.
    const QMargins margins = contentsMargins();
    const int lineHeight = fontMetrics().height() + margins.top() + margins.bottom();
    return {std::min(sizeHint().width(), 80), lineHeight};
}

ElidedLabel::ElidedLabel(const QString& text, TextStyle style, Tint tint, QWidget* parent)
    : StyledLabel(QString(), style, tint, {}, parent) {
    setFullText(text);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void ElidedLabel::setFullText(const QString& text) {
    setText(text);
    setToolTip(text);
}

QString ElidedLabel::shownText() const {
    return fontMetrics().elidedText(text(), Qt::ElideRight, contentsRect().width());
}

QSize ElidedLabel::minimumSizeHint() const {
    // Any width will do: the text gives way with "…".
    return {0, StyledLabel::minimumSizeHint().height()};
}

void ElidedLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.setFont(font());
    painter.drawText(contentsRect(), int(alignment()) | Qt::TextSingleLine, shownText());
}

StyledLabel* textLabel(const QString& text, Qt::TextFormat format, TextStyle style, Tint tint,
                       FontOptions options) {
    auto* label = new TextBlockLabel(QString(), style, tint, options);
    label->setTextFormat(format);
    label->setText(text);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse);
    label->setOpenExternalLinks(true);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    label->setSizePolicy(policy);
    return label;
}

QWidget* tryNextList(const std::vector<std::string>& suggestions, Tint tint,
                     const std::function<void(const std::string&)>& onSelected) {
    auto* list = new QWidget;
    list->setObjectName(QStringLiteral("tryNext"));
    auto* column = vstack(list, 6);
    auto* heading = new StyledLabel(localized("Try Next").toUpper(), TextStyle::caption,
                                    Tint::secondary, {.bold = true});
    heading->setObjectName(QStringLiteral("tryNextHeading"));
    column->addWidget(heading);
    for (const std::string& suggestion : suggestions) {
        auto* button = new TintedButton(QString::fromStdString(suggestion), ButtonStyle::bordered,
                                        tint, TextStyle::callout);
        button->setObjectName(QStringLiteral("suggestionButton"));
        QObject::connect(button, &QPushButton::clicked, list, [onSelected, suggestion] {
            if (onSelected) onSelected(suggestion);
        });
        column->addWidget(button, 0, Qt::AlignLeft);
    }
    return list;
}

QVBoxLayout* vstack(QWidget* parent, int spacing, int margin) {
    auto* layout = new QVBoxLayout(parent);
    layout->setSpacing(spacing);
    layout->setContentsMargins(margin, margin, margin, margin);
    return layout;
}

QHBoxLayout* hstack(QWidget* parent, int spacing, int margin) {
    auto* layout = new QHBoxLayout(parent);
    layout->setSpacing(spacing);
    layout->setContentsMargins(margin, margin, margin, margin);
    return layout;
}

QVBoxLayout* nestedVStack(QBoxLayout* outer, int spacing, int stretch) {
    auto* layout = new QVBoxLayout();
    layout->setSpacing(spacing);
    layout->setContentsMargins(0, 0, 0, 0);
    outer->addLayout(layout, stretch);
    return layout;
}

QHBoxLayout* nestedHStack(QBoxLayout* outer, int spacing, int stretch) {
    auto* layout = new QHBoxLayout();
    layout->setSpacing(spacing);
    layout->setContentsMargins(0, 0, 0, 0);
    outer->addLayout(layout, stretch);
    return layout;
}

}  // namespace sagely::ui::detail
