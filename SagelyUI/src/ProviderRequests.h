// ProviderRequests — the settings form's requests to a provider that are not questions: its
// live model list and the connection check. Each runs on a worker thread with an LLMClient; the
// result comes back on the GUI thread. Model lists are kept for the session, one per provider
// and list address, so reopening the settings shows them at once.
//
// One instance per application (a child of the QCoreApplication, created on first use). When it
// goes away with the application, running requests are cancelled and waited for (they stop
// within a fraction of a second), so quitting never waits for a silent server.
//
// Thread rules: GUI thread only.
#pragma once

#include <sagely/CancellationToken.h>
#include <sagely/CoachConfig.h>
#include <sagely/ConnectionCheck.h>
#include <sagely/ProviderModel.h>

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace sagely::ui::detail {

class ProviderRequests : public QObject {
    Q_OBJECT
public:
    struct ModelList {
        bool loading = false;
        std::vector<ProviderModel> models;
        /// Why the last load failed; empty when it did not.
        QString failure;
    };

    static ProviderRequests& shared();
    ~ProviderRequests() override;

    /// Whether the configuration has a model list to load.
    static bool hasModelList(const CoachConfig& config);
    /// What is known of the configuration's model list; null before its first load.
    const ModelList* modelList(const CoachConfig& config) const;
    /// Loads the list unless it is loading, or is loaded and `reload` is false. Emits
    /// modelListChanged when the loading starts and when it ends.
    void loadModelList(const CoachConfig& config, bool reload);

    /// Checks the configuration; `done` gets the outcome on the GUI thread, unless the
    /// application goes away first.
    void check(const CoachConfig& config, std::function<void(const ConnectionCheck&)> done);

Q_SIGNALS:
    void modelListChanged();

private:
    ProviderRequests();
    void run(std::function<void()> work);

    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };

    std::map<std::string, ModelList> m_lists;
    CancellationToken m_cancellation;
    std::vector<Worker> m_workers;
};

}  // namespace sagely::ui::detail
