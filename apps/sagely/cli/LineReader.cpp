#include "cli/LineReader.h"

#include <istream>
#include <ostream>

namespace sagely::cli {

std::optional<std::string> StreamLineReader::readLine(const std::string& prompt) {
    if (m_promptOut) *m_promptOut << prompt << std::flush;
    std::string line;
    if (!std::getline(m_in, line)) return std::nullopt;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

}  // namespace sagely::cli
