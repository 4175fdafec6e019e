// CancellationToken — a small, copyable stop flag shared between the thread that asks for a
// result and the thread that works on it.
//
// Copies share one state. requestStop() is thread-safe and idempotent; it runs every registered
// callback once, on the calling thread (a callback registered after the stop runs at once).
// Callbacks must be quick and must not throw.
#pragma once

#include <sagely/Export.h>

#include <functional>
#include <memory>

namespace sagely {

class SAGELY_EXPORT CancellationToken {
public:
    class Registration;

    CancellationToken();

    void requestStop() const;
    bool stopRequested() const;

    /// Registers a callback run on requestStop(); it is unregistered when the returned
    /// Registration is destroyed. Destroying the registration while the callback runs on another
    /// thread waits for the callback to finish.
    [[nodiscard]] Registration onStop(std::function<void()> callback) const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

class SAGELY_EXPORT CancellationToken::Registration {
public:
    Registration() = default;
    Registration(Registration&& other) noexcept;
    Registration& operator=(Registration&& other) noexcept;
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration();

private:
    friend class CancellationToken;
    Registration(std::shared_ptr<State> state, unsigned long id)
        : m_state(std::move(state)), m_id(id) {}
    void reset();
    std::shared_ptr<State> m_state;
    unsigned long m_id = 0;
};

}  // namespace sagely
