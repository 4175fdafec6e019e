#include "cli/Arguments.h"

#include <algorithm>
#include <cctype>

namespace sagely::cli {
namespace {

const DeclaredOption* findDeclared(const std::vector<DeclaredOption>& declared,
                                   const std::string& name) {
    if (name == "help") {
        static const DeclaredOption help{"help", false};
        return &help;
    }
    auto it = std::find_if(declared.begin(), declared.end(),
                           [&](const DeclaredOption& option) { return option.name == name; });
    return it == declared.end() ? nullptr : &*it;
}

// "-0.5" is a (negative) value, not an option.
bool isOption(const std::string& word) {
    if (word.size() < 2 || word[0] != '-') return false;
    return !std::isdigit(static_cast<unsigned char>(word[1])) && word[1] != '.';
}

// Reads the option at `i` and its value into `options`; returns the index of the last word used.
std::size_t readOption(std::span<const std::string> arguments, std::size_t i,
                       const std::vector<DeclaredOption>& declared,
                       std::map<std::string, std::string>& options) {
    const std::string& word = arguments[i];
    if (!word.starts_with("--")) throw UsageError("unknown option '" + word + "'");
    const auto equals = word.find('=');
    const std::string name = word.substr(2, equals == std::string::npos ? equals : equals - 2);
    const DeclaredOption* option = findDeclared(declared, name);
    if (!option) throw UsageError("unknown option '--" + name + "'");
    if (!option->takesValue) {
        if (equals != std::string::npos) throw UsageError("option '--" + name + "' takes no value");
        options[name] = "";
    } else if (equals != std::string::npos) {
        options[name] = word.substr(equals + 1);
    } else if (i + 1 < arguments.size()) {
        options[name] = arguments[++i];
    } else {
        throw UsageError("option '--" + name + "' needs a value");
    }
    return i;
}

}  // namespace

std::optional<std::string> ParsedArguments::value(const std::string& name) const {
    auto it = m_options.find(name);
    if (it == m_options.end()) return std::nullopt;
    return it->second;
}

std::string ParsedArguments::joinedPositionals() const {
    std::string joined;
    for (const auto& word : m_positionals) {
        if (!joined.empty()) joined += ' ';
        joined += word;
    }
    return joined;
}

ParsedArguments parseArguments(std::span<const std::string> arguments,
                               const std::vector<DeclaredOption>& declared) {
    ParsedArguments parsed;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word == "--") {
            parsed.m_positionals.insert(parsed.m_positionals.end(), arguments.begin() + i + 1,
                                        arguments.end());
            break;
        }
        if (isOption(word))
            i = readOption(arguments, i, declared, parsed.m_options);
        else
            parsed.m_positionals.push_back(word);
    }
    return parsed;
}

}  // namespace sagely::cli
