// How the views look in a light and a dark palette: a sidebar set apart from the content by its
// colour and a visible divider, text that reaches WCAG AA contrast on every surface the views
// draw it on, and symbols that fill the frames they are given.
#include "UiTestSupport.h"

#include <sagely/ui/CoachCardView.h>
#include <sagely/ui/CoachSettingsView.h>
#include <sagely/ui/CoachSymbols.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include "Primitives.h"
#include "Style.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>
#include <QPushButton>
#include <QSplitter>

#include <iostream>

namespace sagely::testing {
namespace {

using namespace ui::detail;
using ui::CoachBranding;
using ui::CoachWorkspaceView;

// Runs the test body under the light (application default) or the dark palette.
class LookTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        m_previous = QApplication::palette();
        if (GetParam()) QApplication::setPalette(darkPalette());
        world.useOpenAI("");
    }
    void TearDown() override {
        view.reset();
        coach.reset();
        QApplication::setPalette(m_previous);
    }
    QPalette palette() const { return QApplication::palette(); }
    void makeWorkspace() {
        coach = world.makeCoach();
        view = std::make_unique<CoachWorkspaceView>(*coach, tesselBranding(),
                                                    CoachWorkspaceView::Actions{[] {}, [] {}});
        view->resize(900, 600);
        view->show();
        settle();
    }
    const char* name() const { return GetParam() ? "dark" : "light"; }

    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;

private:
    QPalette m_previous;
};

TEST_P(LookTest, TheSidebarHasItsOwnColourAndAVisibleDivider) {
    makeWorkspace();
    coach->newConversation();
    settle();
    auto* sidebar = visibleChild(view.get(), QStringLiteral("sidebar"));
    auto* detail = visibleChild(view.get(), QStringLiteral("detailPane"));
    ASSERT_NE(sidebar, nullptr);
    ASSERT_NE(detail, nullptr);
    const QImage image = view->grab().toImage();
    const int y = view->height() - 40;
    const QColor side = image.pixelColor(sidebar->mapTo(view.get(), QPoint(20, 0)).x(), y);
    const QColor content =
        image.pixelColor(detail->mapTo(view.get(), QPoint(detail->width() / 2, 0)).x(), 200);
    EXPECT_EQ(side, sidebarBackground(palette()).toRgb()) << name();
    EXPECT_EQ(content, controlBackground(palette()).toRgb()) << name();
    EXPECT_GE(contrastRatio(side, content), 1.05) << name();
    // The line between them stands out from both.
    const int dividerX = detail->mapTo(view.get(), QPoint(0, 0)).x() - 1;
    const QColor divider = image.pixelColor(dividerX, y);
    EXPECT_GE(contrastRatio(divider, side), 1.2) << name() << " " << divider.name().toStdString();
    EXPECT_GE(contrastRatio(divider, content), 1.2) << name();
    saveScreenshot(view.get(), QStringLiteral("look-sidebar-%1").arg(QLatin1String(name())));
}

struct Pair {
    const char* what;
    QColor text;
    QColor background;
};

TEST_P(LookTest, EveryTextAndBackgroundPairReachesWcagAA) {
    const QPalette p = palette();
    const QColor base = controlBackground(p);
    const QColor side = sidebarBackground(p);
    auto over = [&](Tint tint, double opacity, const QColor& below) {
        return composite(withOpacity(color(tint, p), opacity), below);
    };
    const QColor settingsPanel = over(Tint::primary, 0.04, side);
    std::vector<Pair> pairs = {
        {"primary text on the content", textColor(Tint::primary, p), base},
        {"secondary text on the content", textColor(Tint::secondary, p), base},
        {"tertiary time on the content", textColor(Tint::tertiary, p), base},
        {"title in the sidebar", textColor(Tint::primary, p), side},
        {"date in the sidebar", textColor(Tint::secondary, p), side},
        {"hint in the empty sidebar", textColor(Tint::tertiary, p), side},
        {"title in the selected row", textColor(Tint::primary, p), over(Tint::accent, 0.22, side)},
        {"date in the selected row", textColor(Tint::secondary, p), over(Tint::accent, 0.22, side)},
        {"text in the assistant bubble", textColor(Tint::primary, p),
         over(Tint::secondary, 0.1, base)},
        {"white text in the user bubble", textColor(Tint::white, p),
         fillBehindWhiteText(Tint::blue, p)},
        {"white text on a prominent button", textColor(Tint::white, p),
         fillBehindWhiteText(Tint::accent, p)},
        {"step number on its badge", textColor(Tint::blue, p),
         over(Tint::blue, 0.12, over(Tint::secondary, 0.1, base))},
        {"chip text in the suggestion panel", textColor(Tint::primary, p),
         over(Tint::blue, 0.05, base)},
        {"loading banner text", textColor(Tint::secondary, p), over(Tint::blue, 0.08, base)},
        {"ready banner text", textColor(Tint::secondary, p), over(Tint::green, 0.08, base)},
        {"missing-key message", textColor(Tint::secondary, p), over(Tint::orange, 0.08, base)},
        {"missing-key Open Guide button", textColor(Tint::accent, p),
         over(Tint::accent, 0.12, over(Tint::orange, 0.08, base))},
        {"error text", textColor(Tint::primary, p), over(Tint::orange, 0.1, base)},
        {"error banner Dismiss", textColor(Tint::blue, p), over(Tint::orange, 0.1, base)},
        {"settings section help", textColor(Tint::secondary, p), settingsPanel},
        {"availability note", textColor(Tint::orange, p), settingsPanel},
        {"Saved label", textColor(Tint::green, p), settingsPanel},
        {"FREE badge", textColor(Tint::green, p), over(Tint::green, 0.15, settingsPanel)},
        {"current provider box", textColor(Tint::secondary, p),
         over(Tint::accent, 0.1, settingsPanel)},
        {"bordered accent button in settings", textColor(Tint::accent, p),
         over(Tint::accent, 0.12, settingsPanel)},
    };
    for (Tint tint : {Tint::blue, Tint::green, Tint::orange}) {
        const QColor card = over(tint, 0.08, over(Tint::secondary, 0.1, base));
        pairs.push_back({"card or lesson text", textColor(Tint::primary, p), card});
        pairs.push_back(
            {"card subtitle and Try Next heading", textColor(Tint::secondary, p), card});
        pairs.push_back({"Try Next button text", textColor(tint, p), over(tint, 0.12, card)});
        pairs.push_back({"lesson AI Canvas button", textColor(tint, p), over(tint, 0.12, card)});
        pairs.push_back({"lesson step number", textColor(tint, p), over(tint, 0.12, card)});
        pairs.push_back({"callout text", textColor(Tint::primary, p), over(tint, 0.08, card)});
    }
    for (const Pair& pair : pairs) {
        const double ratio = contrastRatio(pair.text, pair.background);
        std::cout << name() << ": " << pair.what << " " << pair.text.name().toStdString() << " on "
                  << pair.background.name().toStdString() << " = "
                  << QString::number(ratio, 'f', 2).toStdString() << ":1\n";
        EXPECT_GE(ratio, 4.5) << name() << ": " << pair.what;
    }
}

TEST_P(LookTest, TheViewsDrawTheirTextInTheReadableColours) {
    ui::CoachSettingsView settings(world.settings.get());
    world.settings->selectProvider(CoachConfig::Provider::apple);
    settings.setAppleStatusSource([] { return AppleIntelligenceInfo::Status::needsSetup; });
    settings.show();
    settle();
    auto* note = visibleChild<QLabel>(&settings, QStringLiteral("availabilityNote"));
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(note->palette().color(QPalette::WindowText), textColor(Tint::orange, palette()));
    CoachCard card{CoachCard::Style::warning, "Check", std::nullopt, {}, {"Try this"}};
    ui::CoachCardView cardView(card, [](const std::string&) {});
    cardView.show();
    settle();
    auto* button = visibleChild<QPushButton>(&cardView, QStringLiteral("suggestionButton"));
    ASSERT_NE(button, nullptr);
    const QColor orange = textColor(Tint::orange, palette());
    EXPECT_TRUE(button->styleSheet().contains(QStringLiteral("color: rgba(%1,%2,%3,")
                                                  .arg(orange.red())
                                                  .arg(orange.green())
                                                  .arg(orange.blue())))
        << button->styleSheet().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Palettes, LookTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Dark" : "Light"; });

// The box of the pixels a symbol paints, at the given size.
QRect inkBox(const QString& symbol, int size) {
    const QImage image = ui::CoachSymbols::pixmap(symbol, size, Qt::black, 1.0).toImage();
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixelColor(x, y).alpha() > 64) box |= QRect(x, y, 1, 1);
    return box;
}

TEST(SymbolSizeTest, EverySymbolFillsItsFrame) {
    for (const QString& symbol : ui::CoachSymbols::names()) {
        const QRect box = inkBox(symbol, 48);
        EXPECT_GE(std::max(box.width(), box.height()), 32) << symbol.toStdString();
    }
}

TEST(SymbolSizeTest, TheKeyAndTheAvatarSymbolsAreLargeEnoughToRead) {
    CoachWorld world;
    world.useOpenAI("");
    auto coach = world.makeCoach({.resolver = [](const std::string&) {
        return std::optional<CoachLocalActionResult>({"An answer.", {}, {}});
    }});
    CoachWorkspaceView view(*coach, tesselBranding());
    view.resize(900, 600);
    view.show();
    view.setMessageInput(QStringLiteral("Hello"));
    view.send();
    settle();
    coach->setError(std::string(AICoach::kNoAPIKeyCode));
    settle();
    auto* key = visibleChild<SymbolView>(&view, QStringLiteral("missingKeySymbol"));
    ASSERT_NE(key, nullptr);
    const QRect keyInk = inkBox(key->symbol(), key->symbolSize());
    EXPECT_GE(keyInk.width(), 12);
    EXPECT_GE(keyInk.height(), 12);
    std::vector<SymbolView*> avatars;
    for (auto* avatar : visibleChildren<SymbolView>(&view, QStringLiteral("avatar")))
        if (avatar->symbol() == QStringLiteral("sparkles")) avatars.push_back(avatar);
    ASSERT_EQ(avatars.size(), 1u);
    EXPECT_EQ(avatars[0]->width(), 24);
    const QRect sparkles = inkBox(avatars[0]->symbol(), avatars[0]->symbolSize());
    EXPECT_GE(sparkles.height(), 13);
    EXPECT_GE(sparkles.width(), 13);
}

}  // namespace
}  // namespace sagely::testing
