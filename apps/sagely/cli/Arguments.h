// Arguments — the command line of one sagely command: its options and its positional words.
//
// Options are long only: "--name VALUE", "--name=VALUE" or a bare "--flag". "--" ends the
// options; everything after it is positional, and so is a word such as "-0.5" that reads as a
// negative number. "--help" is known to every command. An option the
// command does not declare, a missing value or a value given to a flag is refused with a
// UsageError whose text is the one-line reason shown to the user.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace sagely::cli {

/// A mistake on the command line; what() is the one-line reason.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct DeclaredOption {
    std::string name;  // without the leading "--"
    bool takesValue = false;
};

class ParsedArguments {
public:
    bool has(const std::string& name) const { return m_options.contains(name); }
    /// The option's value (the last one given), or none.
    std::optional<std::string> value(const std::string& name) const;
    const std::vector<std::string>& positionals() const { return m_positionals; }
    /// The positional words joined by single blanks (a question typed without quotes).
    std::string joinedPositionals() const;

private:
    friend ParsedArguments parseArguments(std::span<const std::string>,
                                          const std::vector<DeclaredOption>&);
    std::map<std::string, std::string> m_options;
    std::vector<std::string> m_positionals;
};

/// Parses `arguments` (the words after the command name) against the command's options.
ParsedArguments parseArguments(std::span<const std::string> arguments,
                               const std::vector<DeclaredOption>& declared);

}  // namespace sagely::cli
