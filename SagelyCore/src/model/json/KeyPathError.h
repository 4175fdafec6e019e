// KeyPathError — a DecodingError whose key path is put together on the way out: the value that
// is wrong throws it with the problem alone, and each object or array it passes through puts
// its key or index in front, giving `[2].messages[7].role: unknown role "bot"`. Following the
// document costs nothing; the text is built only when a decode fails.
#pragma once

#include <sagely/Error.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sagely::detail {

class KeyPathError : public DecodingError {
public:
    /// A problem of the value being decoded itself.
    explicit KeyPathError(std::string problem) : KeyPathError(std::move(problem), {}) {}

    /// The same problem, seen from the object that holds the value under `key`.
    KeyPathError underKey(std::string_view key) const;
    /// The same problem, seen from the array that holds the value at `index`.
    KeyPathError underIndex(std::size_t index) const;

private:
    struct Step {
        std::string key;  // for a step into an object
        std::size_t index = 0;
        bool isIndex = false;
    };
    KeyPathError(std::string problem, std::vector<Step> path);
    KeyPathError under(Step step) const;
    static std::string text(const std::vector<Step>& path, const std::string& problem);

    std::vector<Step> m_path;  // from the outermost value in
    std::string m_problem;
};

/// Runs `read`, naming `key` in front of the path of any failure.
template <class Read>
auto underKey(std::string_view key, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const KeyPathError& error) {
        throw error.underKey(key);
    }
}

/// Runs `read`, naming `[index]` in front of the path of any failure.
template <class Read>
auto underIndex(std::size_t index, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const KeyPathError& error) {
        throw error.underIndex(index);
    }
}

}  // namespace sagely::detail
