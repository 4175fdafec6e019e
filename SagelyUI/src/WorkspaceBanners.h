// The banners of the workspace's detail pane: the knowledge banner at the top (loading, then
// briefly ready) and, at the bottom, either the missing-key banner or a plain error row.
#pragma once

#include "Primitives.h"

#include <QWidget>

#include <functional>
#include <string>

namespace sagely::ui::detail {

class KnowledgeBanner : public RoundedPanel {
    Q_OBJECT
public:
    explicit KnowledgeBanner(QWidget* parent = nullptr);
    /// "Loading product knowledge..." with the book symbol in blue.
    void showLoading();
    /// "Knowledge is ready." with the check mark in green.
    void showReady();
    QString text() const;

private:
    SymbolView* m_symbol;
    StyledLabel* m_text;
};

struct BannerActions {
    std::function<void()> onOpenSettings;
    std::function<void()> onOpenGuide;
    std::function<void()> onDismiss;
};

/// The banner for a missing key: a fixed heading, the host's explanation, and the buttons of
/// the actions the host supplied (Dismiss always).
QWidget* missingKeyBanner(const std::string& message, const BannerActions& actions);

/// The banner of a local-only coach whose host had no answer: no model was asked. Offers the
/// guide (when the host has one) and Dismiss; settings would not help here.
QWidget* localOnlyBanner(const std::function<void()>& onOpenGuide,
                         const std::function<void()>& onDismiss);

/// A row with a warning symbol, the error text and Dismiss.
QWidget* errorBanner(const std::string& error, const std::function<void()>& onDismiss);

}  // namespace sagely::ui::detail
