#include <sagely/ui/CoachSymbols.h>

#include <QDir>
#include <QFile>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QPixmapCache>
#include <QSvgRenderer>

#include <mutex>

// Resources of a static library must be registered by hand, outside any namespace.
static void registerSymbolResources() {
    Q_INIT_RESOURCE(SagelyIcons);
}

namespace sagely::ui {
namespace {

const QString kPrefix = QStringLiteral(":/sagely/icons/");

void ensureResources() {
    static std::once_flag once;
    std::call_once(once, registerSymbolResources);
}

QString resourcePath(const QString& name) {
    return kPrefix + name + QStringLiteral(".svg");
}

// The SVG text of a symbol, read from the resources once; empty when there is no such symbol.
QByteArray svgText(const QString& name) {
    ensureResources();
    static QHash<QString, QByteArray> cache;
    auto found = cache.find(name);
    if (found != cache.end()) return found.value();
    QFile file(resourcePath(name));
    const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    cache.insert(name, text);
    return text;
}

QImage tinted(QSvgRenderer& svg, QSize pixels, const QColor& color) {
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter, QRectF(QPointF(0, 0), QSizeF(pixels)));
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}

// Draws the symbol afresh at whatever size a button or label asks for.
class SymbolIconEngine final : public QIconEngine {
public:
    SymbolIconEngine(QString name, QColor color) : m_name(std::move(name)), m_color(color) {}
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        QColor color = m_color;
        if (mode == QIcon::Disabled) color.setAlphaF(color.alphaF() * 0.35);
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        painter->drawPixmap(rect, CoachSymbols::pixmap(m_name, rect.width(), color, ratio));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap result(size);
        result.fill(Qt::transparent);
        QPainter painter(&result);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return result;
    }
    QIconEngine* clone() const override { return new SymbolIconEngine(m_name, m_color); }

private:
    QString m_name;
    QColor m_color;
};

}  // namespace

QStringList CoachSymbols::names() {
    ensureResources();
    QStringList result;
    for (const QString& file : QDir(kPrefix).entryList({QStringLiteral("*.svg")}, QDir::Files))
        result << file.chopped(4);
    result.sort();
    return result;
}

bool CoachSymbols::contains(const QString& name) {
    return !svgText(name).isEmpty();
}

QPixmap CoachSymbols::pixmap(const QString& name, int size, const QColor& color,
                             qreal devicePixelRatio) {
    const QByteArray text = svgText(name);
    if (text.isEmpty() || size <= 0) return {};
    const QString key = QStringLiteral("sagely-symbol:%1:%2:%3:%4")
                            .arg(name)
                            .arg(size)
                            .arg(color.rgba(), 0, 16)
                            .arg(devicePixelRatio);
    QPixmap result;
    if (QPixmapCache::find(key, &result)) return result;
    QSvgRenderer svg(text);
    if (!svg.isValid()) return {};
    const int pixels = qRound(size * devicePixelRatio);
    result = QPixmap::fromImage(tinted(svg, QSize(pixels, pixels), color));
    result.setDevicePixelRatio(devicePixelRatio);
    QPixmapCache::insert(key, result);
    return result;
}

QIcon CoachSymbols::icon(const QString& name, const QColor& color) {
    return QIcon(new SymbolIconEngine(name, color));
}

}  // namespace sagely::ui
