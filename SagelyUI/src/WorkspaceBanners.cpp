#include "WorkspaceBanners.h"

#include "SpokenText.h"

#include <QFontMetrics>
#include <QHBoxLayout>
#include <QVBoxLayout>

namespace sagely::ui::detail {

KnowledgeBanner::KnowledgeBanner(QWidget* parent) : RoundedPanel(Tint::blue, 0.08, 0, parent) {
    setObjectName(QStringLiteral("knowledgeBanner"));
    auto* row = hstack(this, 8, 10);
    m_symbol =
        new SymbolView(QStringLiteral("book.pages"), Tint::blue, symbolSize(TextStyle::callout));
    m_symbol->setObjectName(QStringLiteral("knowledgeBannerSymbol"));
    row->addWidget(m_symbol);
    m_text = new StyledLabel(QString(), TextStyle::callout, Tint::secondary);
    m_text->setObjectName(QStringLiteral("knowledgeBannerText"));
    row->addWidget(m_text, 1);
    hide();
}

namespace {

void describe(QWidget* banner, const QString& name, const QString& description) {
    banner->setAccessibleName(name);
    banner->setAccessibleDescription(description);
}

}  // namespace

void KnowledgeBanner::showLoading() {
    m_symbol->setSymbol(QStringLiteral("book.pages"));
    m_symbol->setTint(Tint::blue);
    setFill(Tint::blue, 0.08);
    m_text->setText(localized("Loading product knowledge..."));
    describe(this, m_text->text(), QString());
    show();
    announce(this);
}

void KnowledgeBanner::showReady() {
    m_symbol->setSymbol(QStringLiteral("checkmark.circle.fill"));
    m_symbol->setTint(Tint::green);
    setFill(Tint::green, 0.08);
    m_text->setText(localized("Knowledge is ready."));
    describe(this, m_text->text(), QString());
    show();
    announce(this);
}

QString KnowledgeBanner::text() const {
    return m_text->text();
}

namespace {

TintedButton* button(const char* text, ButtonStyle style, Tint tint, TextStyle textStyle,
                     const char* name, const std::function<void()>& action) {
    auto* result = new TintedButton(localized(text), style, tint, textStyle);
    result->setObjectName(QString::fromLatin1(name));
    QObject::connect(result, &QPushButton::clicked, result, [action] {
        if (action) action();
    });
    return result;
}

QHBoxLayout* missingKeyButtons(const BannerActions& actions) {
    auto* row = new QHBoxLayout;
    row->setSpacing(12);
    if (actions.onOpenSettings) {
        auto* settings =
            button("Open Settings", ButtonStyle::borderedProminent, Tint::accent,
                   TextStyle::caption, "bannerOpenSettingsButton", actions.onOpenSettings);
        settings->setSymbol(QStringLiteral("gearshape"));
        row->addWidget(settings);
    }
    if (actions.onOpenGuide) {
        auto* guide = button("Open Guide", ButtonStyle::bordered, Tint::accent, TextStyle::caption,
                             "bannerOpenGuideButton", actions.onOpenGuide);
        guide->setSymbol(QStringLiteral("book"));
        row->addWidget(guide);
    }
    row->addWidget(button("Dismiss", ButtonStyle::plain, Tint::secondary, TextStyle::caption,
                          "dismissErrorButton", actions.onDismiss));
    row->addStretch(1);
    return row;
}

// A heading with its symbol, an explanation and the buttons, on a softly orange panel.
QWidget* noticeBanner(const QString& name, const QString& symbol, const QString& heading,
                      const QString& message, const BannerActions& actions) {
    auto* outer = new QWidget;
    outer->setObjectName(name + QStringLiteral("Banner"));
    auto* outerLayout = vstack(outer, 0);
    outerLayout->setContentsMargins(12, 0, 12, 8);
    auto* panel = new RoundedPanel(Tint::orange, 0.08, 8);
    outerLayout->addWidget(panel);
    auto* column = vstack(panel, 8, 12);
    auto* headingRow = nestedHStack(column, 6);
    // As tall as a line of the heading, as a symbol set in that text would be.
    auto* mark =
        new SymbolView(symbol, Tint::orange, QFontMetrics(styleFont(TextStyle::callout)).height());
    mark->setObjectName(name + QStringLiteral("Symbol"));
    headingRow->addWidget(mark, 0, Qt::AlignVCenter);
    auto* title = new StyledLabel(heading, TextStyle::callout, Tint::primary, {.bold = true});
    title->setObjectName(name + QStringLiteral("Title"));
    headingRow->addWidget(title, 1);
    auto* explanation = textLabel(message, Qt::PlainText, TextStyle::caption, Tint::secondary);
    explanation->setObjectName(name + QStringLiteral("Message"));
    column->addWidget(explanation);
    column->addLayout(missingKeyButtons(actions));
    describe(outer, heading, message);
    return outer;
}

}  // namespace

QWidget* missingKeyBanner(const std::string& message, const BannerActions& actions) {
    return noticeBanner(QStringLiteral("missingKey"), QStringLiteral("key.fill"),
                        localized("Sagely needs an API key"), QString::fromStdString(message),
                        actions);
}

QWidget* localOnlyBanner(const std::function<void()>& onOpenGuide,
                         const std::function<void()>& onDismiss) {
    return noticeBanner(QStringLiteral("localOnly"), QStringLiteral("book"),
                        localized("Sagely answers only from this app\u2019s help"),
                        localized("No model is asked in this mode, and the help has no answer to "
                                  "this question. Try other words."),
                        {{}, onOpenGuide, onDismiss});
}

QWidget* errorBanner(const std::string& error, const std::function<void()>& onDismiss) {
    auto* panel = new RoundedPanel(Tint::orange, 0.1, 0);
    panel->setObjectName(QStringLiteral("errorBanner"));
    auto* row = hstack(panel, 8, 8);
    row->addWidget(new SymbolView(QStringLiteral("exclamationmark.triangle.fill"), Tint::orange,
                                  symbolSize(TextStyle::callout)),
                   0, Qt::AlignTop);
    auto* text = textLabel(QString::fromStdString(error), Qt::PlainText, TextStyle::callout);
    text->setObjectName(QStringLiteral("errorText"));
    row->addWidget(text, 1);
    row->addWidget(button("Dismiss", ButtonStyle::plain, Tint::blue, TextStyle::callout,
                          "dismissErrorButton", onDismiss),
                   0, Qt::AlignTop);
    describe(panel, localized("Error"), QString::fromStdString(error));
    return panel;
}

}  // namespace sagely::ui::detail
