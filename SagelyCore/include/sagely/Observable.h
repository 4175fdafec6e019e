// Observable — a published property: a value that tells its subscribers when it changes.
//
// set() notifies will-change subscribers with (old value, new value) before the value is stored,
// then stores it, then notifies did-change subscribers with the new value. Every set notifies,
// even when the value is equal. modify() changes the value in place with the same notifications;
// it copies the value only when a will-change subscriber needs the old one beside the new.
// Subscribing does not deliver the current value. Subscriptions are RAII tokens: destroying one
// unsubscribes. Notification runs over a snapshot, so (un)subscribing inside a handler is safe; a
// handler that throws is skipped, never unwinding the notifier.
//
// Thread rules: main thread only, like everything the engine and store publish.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace sagely {

/// Keeps a subscription alive; unsubscribes when destroyed or reset.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : m_cancel(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : m_cancel(std::exchange(other.m_cancel, {})) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            m_cancel = std::exchange(other.m_cancel, {});
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset() {
        if (auto cancel = std::exchange(m_cancel, {})) cancel();
    }

private:
    std::function<void()> m_cancel;
};

/// A list of handlers that can be called with a snapshot and unsubscribed by token.
template <typename... Args>
class Signal {
public:
    using Handler = std::function<void(const Args&...)>;

    [[nodiscard]] Subscription subscribe(Handler handler) const {
        auto entry = std::make_shared<Handler>(std::move(handler));
        m_state->handlers.push_back(entry);
        std::weak_ptr<State> weakState = m_state;
        std::weak_ptr<Handler> weakEntry = entry;
        return Subscription([weakState, weakEntry] {
            auto state = weakState.lock();
            auto handler = weakEntry.lock();
            if (!state || !handler) return;
            std::erase(state->handlers, handler);
        });
    }

    bool hasSubscribers() const { return !m_state->handlers.empty(); }

    void emit(const Args&... args) const {
        auto snapshot = m_state->handlers;
        for (const auto& handler : snapshot) {
            // Skip handlers unsubscribed by an earlier handler of this round.
            if (std::find(m_state->handlers.begin(), m_state->handlers.end(), handler) ==
                m_state->handlers.end())
                continue;
            try {
                (*handler)(args...);
            } catch (...) {
                // An observer's failure stays with the observer.
            }
        }
    }

private:
    struct State {
        std::vector<std::shared_ptr<Handler>> handlers;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

template <typename T>
class Property {
public:
    Property() = default;
    explicit Property(T initial) : m_value(std::move(initial)) {}
    Property(const Property&) = delete;
    Property& operator=(const Property&) = delete;

    const T& get() const { return m_value; }
    operator const T&() const { return m_value; }

    void set(T newValue) {
        m_willChange.emit(m_value, newValue);
        m_value = std::move(newValue);
        m_didChange.emit(m_value);
    }

    /// Applies `change` (a callable taking T&) to the value. Without will-change subscribers it
    /// changes the stored value itself, so a large value (a long list) costs only the change.
    template <typename Change>
    void modify(Change&& change) {
        if (m_willChange.hasSubscribers()) {
            T changed = m_value;
            change(changed);
            set(std::move(changed));
            return;
        }
        change(m_value);
        m_didChange.emit(m_value);
    }

    /// Called with (old value, new value) before the new value is stored.
    [[nodiscard]] Subscription onWillChange(std::function<void(const T&, const T&)> handler) const {
        return m_willChange.subscribe(std::move(handler));
    }
    /// Called with the new value after it is stored.
    [[nodiscard]] Subscription onDidChange(std::function<void(const T&)> handler) const {
        return m_didChange.subscribe(std::move(handler));
    }

private:
    T m_value{};
    Signal<T, T> m_willChange;
    Signal<T> m_didChange;
};

}  // namespace sagely
