#include "cli/Replies.h"

#include "cli/Failures.h"
#include "cli/Rendering.h"
#include "cli/TerminalText.h"

#include <sagely/CoachConversation.h>

#include <algorithm>
#include <cstdint>
#include <ostream>

namespace sagely::cli {
namespace {

// 64-bit FNV-1a, continued from `hash`.
constexpr std::uint64_t kEmptyHash = 14695981039346656037u;
std::uint64_t extendedHash(std::uint64_t hash, std::string_view bytes) {
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 1099511628211u;
    return hash;
}

}  // namespace

StreamedReplyWriter::StreamedReplyWriter(Host& host)
    : m_host(host), m_renderer(host.usesColor()), m_writtenHash(kEmptyHash) {}

void StreamedReplyWriter::update(std::string_view text) {
    write(text, /*complete=*/false);
}

void StreamedReplyWriter::finish(const CoachMessage& reply, std::vector<std::string>& suggestions) {
    const std::string& text = reply.content();
    if (text.size() < m_writtenSize ||
        extendedHash(kEmptyHash, std::string_view(text).substr(0, m_writtenSize)) !=
            m_writtenHash) {
        // The model rewrote text already written (the on-device model's snapshots may): what
        // was written cannot be taken back, so the reply follows, whole.
        m_host.out << "\n";
        m_writtenSize = 0;
        m_writtenHash = kEmptyHash;
    }
    write(text, /*complete=*/true);
    if (!text.empty() && !text.ends_with('\n')) m_host.out << "\n";
    if (reply.card()) m_host.out << "\n" << m_renderer.card(*reply.card(), suggestions);
    if (reply.lesson()) m_host.out << "\n" << m_renderer.lesson(*reply.lesson(), suggestions);
    m_host.out.flush();
}

// Whole lines only, so that styling sees each line whole; the rest once the reply is complete.
void StreamedReplyWriter::write(std::string_view text, bool complete) {
    if (text.size() <= m_writtenSize) return;
    std::string_view fresh = text.substr(m_writtenSize);
    if (!complete) fresh = fresh.substr(0, fresh.rfind('\n') + 1);  // npos + 1 is 0
    for (std::size_t start = 0; start < fresh.size();) {
        const std::size_t end = std::min(fresh.find('\n', start), fresh.size());
        m_host.out << m_renderer.line(fresh.substr(start, end - start));
        if (end < fresh.size()) m_host.out << "\n";
        start = end + 1;
    }
    m_writtenSize += fresh.size();
    m_writtenHash = extendedHash(m_writtenHash, fresh);
    m_host.out.flush();
}

void printReply(Host& host, const CoachMessage& reply, bool json,
                std::vector<std::string>& suggestions, StreamedReplyWriter* streamed) {
    if (json) {
        host.out << terminalSafeJson(encodeJson(reply)) << "\n";
        return;
    }
    if (streamed && streamed->started()) return streamed->finish(reply, suggestions);
    host.out << Renderer(host.usesColor()).assistantMessage(reply, suggestions);
}

int reportUnanswered(Host& host, const AskOutcome& outcome, const CoachConfig& config,
                     bool offline) {
    if (outcome.interrupted) {
        host.err << "Cancelled.\n";
        return exitInterrupted;
    }
    const FailureReport report = describeFailure(outcome.error.value_or(""), config, offline);
    host.err << terminalSafe(report.sentence) << "\n";
    return report.exitCode;
}

}  // namespace sagely::cli
