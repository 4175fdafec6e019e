#include "ProviderRequests.h"

#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include <QCoreApplication>
#include <QMetaObject>

#include <exception>

namespace sagely::ui::detail {
namespace {

// One list per provider and address: a changed endpoint is another server.
std::string listKey(const CoachConfig& config) {
    return std::string(storageID(config.provider)) + " " +
           LLMClient::modelListURL(config).value_or("");
}

}  // namespace

ProviderRequests::ProviderRequests() : QObject(QCoreApplication::instance()) {}

ProviderRequests& ProviderRequests::shared() {
    static ProviderRequests* instance = nullptr;
    if (instance == nullptr) {
        instance = new ProviderRequests;  // owned by the application
        QObject::connect(instance, &QObject::destroyed, [] { instance = nullptr; });
    }
    return *instance;
}

ProviderRequests::~ProviderRequests() {
    m_cancellation.requestStop();
    for (Worker& worker : m_workers) worker.thread.join();
}

bool ProviderRequests::hasModelList(const CoachConfig& config) {
    return LLMClient::modelListURL(config).has_value();
}

const ProviderRequests::ModelList* ProviderRequests::modelList(const CoachConfig& config) const {
    const auto found = m_lists.find(listKey(config));
    return found == m_lists.end() ? nullptr : &found->second;
}

void ProviderRequests::loadModelList(const CoachConfig& config, bool reload) {
    if (!hasModelList(config)) return;
    const std::string key = listKey(config);
    ModelList& list = m_lists[key];
    if (list.loading || (!reload && (!list.models.empty() || !list.failure.isEmpty()))) return;
    list.loading = true;
    Q_EMIT modelListChanged();
    run([this, key, config] {
        ModelList loaded;
        try {
            loaded.models = LLMClient().listModels(config, m_cancellation);
        } catch (const CancelledError&) {
            return;  // the application is going away
        } catch (const std::exception& failure) {
            loaded.failure = QString::fromUtf8(failure.what());
        }
        QMetaObject::invokeMethod(
            this,
            [this, key, loaded = std::move(loaded)]() mutable {
                m_lists[key] = std::move(loaded);
                Q_EMIT modelListChanged();
            },
            Qt::QueuedConnection);
    });
}

void ProviderRequests::check(const CoachConfig& config,
                             std::function<void(const ConnectionCheck&)> done) {
    run([this, config, done = std::move(done)] {
        ConnectionCheck outcome;
        try {
            outcome = LLMClient().checkConnection(config, m_cancellation);
        } catch (const CancelledError&) {
            return;
        }
        QMetaObject::invokeMethod(
            this, [done, outcome] { done(outcome); }, Qt::QueuedConnection);
    });
}

void ProviderRequests::run(std::function<void()> work) {
    // Workers that are done are joined here, so a long session keeps no finished threads.
    std::erase_if(m_workers, [](Worker& worker) {
        if (!worker.finished->load()) return false;
        worker.thread.join();
        return true;
    });
    auto finished = std::make_shared<std::atomic<bool>>(false);
    std::thread thread([work = std::move(work), finished] {
        work();
        finished->store(true);
    });
    m_workers.push_back({std::move(thread), std::move(finished)});
}

}  // namespace sagely::ui::detail
