#include <sagely/ui/CoachSettingsContentPadding.h>
#include <sagely/ui/CoachSettingsView.h>

#include "SettingsForm.h"
#include "SettingsTexts.h"

#include <QApplication>
#include <QLayout>
#include <QShowEvent>
#include <QStyle>
#include <QWidget>

namespace sagely::ui {

QMargins CoachSettingsContentPadding::margins(const QWidget* widget) const {
    if (!enabled) return {};
    // The style's padding for the content of a window, wherever the form happens to sit.
    const QStyle* style = widget ? widget->style() : QApplication::style();
    if (!style) return {11, 11, 11, 11};
    return {style->pixelMetric(QStyle::PM_LayoutLeftMargin),
            style->pixelMetric(QStyle::PM_LayoutTopMargin),
            style->pixelMetric(QStyle::PM_LayoutRightMargin),
            style->pixelMetric(QStyle::PM_LayoutBottomMargin)};
}

void CoachSettingsContentPadding::apply(QLayout* layout) const {
    if (layout) layout->setContentsMargins(margins(layout->parentWidget()));
}

CoachSettingsView::CoachSettingsView(CoachSettingsStore* settings, bool embedInPreferences,
                                     QWidget* parent)
    : QWidget(parent) {
    setObjectName(QStringLiteral("coachSettings"));
    setAccessibleName(detail::localized("Coach Settings"));
    setAccessibleDescription(detail::localized(
        "The provider that answers, its API key and model, and the style of the answers."));
    m_form = std::make_unique<detail::SettingsForm>(
        settings ? *settings : CoachSettingsStore::shared(), !embedInPreferences, this);
}

CoachSettingsView::~CoachSettingsView() = default;

CoachSettingsStore& CoachSettingsView::settings() const {
    return m_form->store;
}
bool CoachSettingsView::usesContentPadding() const {
    return m_form->usesContentPadding;
}
QString CoachSettingsView::draftAPIKey() const {
    return m_form->draftAPIKey;
}
bool CoachSettingsView::showsKey() const {
    return m_form->showKey;
}
bool CoachSettingsView::usesCustomModel() const {
    return m_form->useCustomModel;
}
AppleIntelligenceInfo::Status CoachSettingsView::appleStatus() const {
    return m_form->appleStatus;
}

void CoachSettingsView::setAppleStatusSource(AppleStatusSource source) {
    m_form->setStatusSource(std::move(source));
}

QString CoachSettingsView::providerEntryText(CoachConfig::Provider provider, bool keySaved) {
    return detail::providerEntryText(provider, keySaved);
}

QString CoachSettingsView::keyHelpText(CoachConfig::Provider provider) {
    return detail::keyHelpText(provider);
}

QString CoachSettingsView::endpointHelpText(CoachConfig::Provider provider) {
    return detail::endpointHelpText(provider);
}

void CoachSettingsView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!event->spontaneous()) m_form->appear();
}

}  // namespace sagely::ui
