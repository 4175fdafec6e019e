#include "cli/Spinner.h"

#include <array>
#include <ostream>
#include <string_view>

namespace sagely::cli {
namespace {

constexpr std::array<std::string_view, 10> kFrames = {"⠋", "⠙", "⠹", "⠸", "⠼",
                                                      "⠴", "⠦", "⠧", "⠇", "⠏"};
constexpr std::string_view kClearLine = "\r\x1b[2K";

}  // namespace

Spinner::Spinner(std::ostream& err, bool enabled, Clock clock)
    : m_err(err), m_enabled(enabled), m_clock(std::move(clock)) {}

Spinner::~Spinner() {
    stop();
}

void Spinner::start(std::string label) {
    m_label = std::move(label);
    m_started = m_clock();
    m_running = true;
    m_frame = 0;
    tick();
}

void Spinner::tick() {
    if (!m_enabled || !m_running) return;
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::seconds>(m_clock() - m_started).count();
    m_err << kClearLine << kFrames[m_frame++ % kFrames.size()] << ' ' << m_label << "… " << elapsed
          << 's' << (m_note.empty() ? "" : "  ") << m_note << std::flush;
}

void Spinner::setNote(std::string note) {
    m_note = std::move(note);
    tick();
}

void Spinner::stop() {
    if (m_enabled && m_running) m_err << kClearLine << std::flush;
    m_running = false;
}

}  // namespace sagely::cli
