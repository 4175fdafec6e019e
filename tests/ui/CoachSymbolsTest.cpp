// The icons: every symbol the views draw ships with the library and paints in the colour asked.
#include "UiTestSupport.h"

#include <sagely/ui/CoachSymbols.h>

#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QPainter>

namespace sagely::testing {
namespace {

using ui::CoachSymbols;

const char* const kUsedSymbols[] = {
    "sparkles",
    "plus.circle.fill",
    "bubble.left.and.text.bubble.right",
    "book.pages",
    "checkmark.circle.fill",
    "arrow.right.circle",
    "arrow.up.circle.fill",
    "book",
    "gearshape",
    "key.fill",
    "exclamationmark.triangle.fill",
    "person.fill",
    "sparkles.rectangle.stack",
    "lightbulb.fill",
    "checkmark.seal.fill",
    "paintbrush.pointed",
    "eye",
    "eye.slash",
    "chevron.right",
    "chevron.down",
    "laptopcomputer",
};

TEST(CoachSymbolsTest, EverySymbolTheViewsUseShips) {
    const QStringList names = CoachSymbols::names();
    for (const char* symbol : kUsedSymbols) {
        EXPECT_TRUE(CoachSymbols::contains(QString::fromLatin1(symbol))) << symbol;
        EXPECT_TRUE(names.contains(QString::fromLatin1(symbol))) << symbol;
    }
    EXPECT_FALSE(CoachSymbols::contains(QStringLiteral("no.such.symbol")));
    EXPECT_TRUE(CoachSymbols::pixmap(QStringLiteral("no.such.symbol"), 16, Qt::red).isNull());
}

TEST(CoachSymbolsTest, SymbolsPaintOnlyInTheirColour) {
    const QColor orange(0xF0, 0x8A, 0x00);
    for (const char* symbol : kUsedSymbols) {
        const QImage image =
            CoachSymbols::pixmap(QString::fromLatin1(symbol), 32, orange).toImage();
        ASSERT_EQ(image.size(), QSize(32, 32)) << symbol;
        int opaque = 0;
        int transparent = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                if (pixel.alpha() == 255) {
                    ++opaque;
                    EXPECT_EQ(pixel.rgb(), orange.rgb()) << symbol;
                } else if (pixel.alpha() == 0) {
                    ++transparent;
                }
            }
        }
        EXPECT_GT(opaque, 20) << symbol;
        EXPECT_GT(transparent, 100) << symbol;
    }
}

TEST(CoachSymbolsTest, IconsScaleAndDimWhenDisabled) {
    const QIcon icon = CoachSymbols::icon(QStringLiteral("gearshape"), Qt::blue);
    const QImage normal = icon.pixmap(QSize(48, 48)).toImage();
    const QImage disabled = icon.pixmap(QSize(48, 48), QIcon::Disabled).toImage();
    ASSERT_EQ(normal.size(), QSize(48, 48));
    int maxNormal = 0;
    int maxDisabled = 0;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 48; ++x) {
            maxNormal = std::max(maxNormal, normal.pixelColor(x, y).alpha());
            maxDisabled = std::max(maxDisabled, disabled.pixelColor(x, y).alpha());
        }
    EXPECT_EQ(maxNormal, 255);
    EXPECT_LT(maxDisabled, 128);
    EXPECT_GT(maxDisabled, 0);
}

TEST(CoachSymbolsTest, ContactSheetForReview) {
    const QStringList names = CoachSymbols::names();
    QImage sheet(names.size() * 40, 40, QImage::Format_ARGB32_Premultiplied);
    sheet.fill(Qt::white);
    QPainter painter(&sheet);
    for (int i = 0; i < names.size(); ++i)
        painter.drawPixmap(i * 40 + 4, 4, CoachSymbols::pixmap(names[i], 32, Qt::black));
    painter.end();
    QDir().mkpath(QStringLiteral(SAGELY_SCREENSHOT_DIR));
    EXPECT_TRUE(sheet.save(QStringLiteral(SAGELY_SCREENSHOT_DIR "/symbols.png")));
}

}  // namespace
}  // namespace sagely::testing
