// KeyPath — where a decoder stands in a JSON document, for error messages such as
// `[2].messages[7].role: unknown role "bot"`.
//
// A path is a chain of small values on the decoder's stack, one per level, so following the
// document costs no allocation; the text is built only when a decode fails.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sagely::detail {

class KeyPath {
public:
    /// The document's root.
    KeyPath() = default;

    /// The value under `key` of the object at this path. The key must outlive the child.
    KeyPath child(std::string_view key) const { return KeyPath(this, key, 0, false); }
    /// The element at `index` of the array at this path.
    KeyPath element(std::size_t index) const { return KeyPath(this, {}, index, true); }

    /// "[2].messages[7].role"; empty at the root.
    std::string toString() const;

    /// Throws DecodingError("<path>: <problem>"), or just the problem at the root.
    [[noreturn]] void fail(std::string_view problem) const;
    [[noreturn]] void failMissingKey() const;
    /// "expected <what>", e.g. "expected a string".
    [[noreturn]] void failExpected(std::string_view what) const;
    /// `unknown <what> "<raw>"`, e.g. `unknown role "bot"`.
    [[noreturn]] void failUnknown(std::string_view what, std::string_view raw) const;

private:
    KeyPath(const KeyPath* parent, std::string_view key, std::size_t index, bool isIndex)
        : m_parent(parent), m_key(key), m_index(index), m_isIndex(isIndex) {}
    void appendTo(std::string& out) const;

    const KeyPath* m_parent = nullptr;
    std::string_view m_key;
    std::size_t m_index = 0;
    bool m_isIndex = false;
};

}  // namespace sagely::detail
