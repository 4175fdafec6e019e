// Spinner — "⠋ Thinking… 3s" on standard error while the coach waits for a reply.
//
// Drawn only when standard error is a terminal; otherwise every call does nothing, so redirected
// output never holds spinner frames. The owner's loop calls tick() often (every 100 ms or so);
// stop() (or destruction) erases the line.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>

namespace sagely::cli {

class Spinner {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    Spinner(std::ostream& err, bool enabled, Clock clock = std::chrono::steady_clock::now);
    ~Spinner();
    Spinner(const Spinner&) = delete;
    Spinner& operator=(const Spinner&) = delete;

    void start(std::string label);
    /// Redraws the frame and the elapsed whole seconds.
    void tick();
    /// A note after the seconds ("Retrying in 4 s…"); empty for none. Redrawn at once.
    void setNote(std::string note);
    void stop();

private:
    std::ostream& m_err;
    bool m_enabled;
    Clock m_clock;
    bool m_running = false;
    std::string m_label;
    std::string m_note;
    std::chrono::steady_clock::time_point m_started;
    std::size_t m_frame = 0;
};

}  // namespace sagely::cli
