#include <sagely/CancellationToken.h>

#include <atomic>
#include <map>
#include <mutex>

namespace sagely {

struct CancellationToken::State {
    std::atomic<bool> stopped{false};
    std::recursive_mutex mutex;  // held while callbacks run, so unregistering waits for them
    std::map<unsigned long, std::function<void()>> callbacks;
    unsigned long nextId = 1;
};

CancellationToken::CancellationToken() : m_state(std::make_shared<State>()) {}

void CancellationToken::requestStop() const {
    std::lock_guard lock(m_state->mutex);
    if (m_state->stopped.exchange(true)) return;
    for (auto& [id, callback] : m_state->callbacks) callback();
}

bool CancellationToken::stopRequested() const {
    return m_state->stopped.load();
}

CancellationToken::Registration CancellationToken::onStop(std::function<void()> callback) const {
    std::lock_guard lock(m_state->mutex);
    if (m_state->stopped.load()) {
        callback();
        return {};
    }
    unsigned long id = m_state->nextId++;
    m_state->callbacks.emplace(id, std::move(callback));
    return Registration(m_state, id);
}

CancellationToken::Registration::Registration(Registration&& other) noexcept
    : m_state(std::move(other.m_state)), m_id(other.m_id) {}

CancellationToken::Registration& CancellationToken::Registration::operator=(
    Registration&& other) noexcept {
    if (this != &other) {
        reset();
        m_state = std::move(other.m_state);
        m_id = other.m_id;
    }
    return *this;
}

CancellationToken::Registration::~Registration() {
    reset();
}

void CancellationToken::Registration::reset() {
    if (!m_state) return;
    std::lock_guard lock(m_state->mutex);
    m_state->callbacks.erase(m_id);
    m_state.reset();
}

}  // namespace sagely
