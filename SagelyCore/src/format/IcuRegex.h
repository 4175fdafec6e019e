// IcuRegex — a compiled ICU regular expression that can be shared between threads.
//
// A RegexPattern is immutable once compiled and ICU allows any number of threads to create
// matchers from it at the same time, so patterns are compiled once (typically into a
// function-local static). Matchers are per thread: each use borrows one from a small
// thread-local cache (creating it on first use), because building a matcher costs more than
// matching a short line. A pattern that fails to compile leaves the object inert: replacing
// passes the text through unchanged and finding finds nothing.
//
// ICU tries a pattern at every position of the text, which is slow for patterns that start with
// a broad class such as letters. The "…At" variants take the candidate positions instead: a
// caller that knows where a match can start (for example at each "S" or "s") lists those
// positions and the pattern is tried there only, with the same results as scanning the whole
// text, provided the list holds every position where a match can start (and the pattern cannot
// match the empty string, which none of the kit's candidate-driven patterns can).
#pragma once

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace sagely::detail {

/// A UTF-16 range [start, end) of the text.
using TextRange = std::pair<int32_t, int32_t>;

class IcuRegex {
public:
    /// Compiles the pattern with the given flags (UREGEX_CASE_INSENSITIVE, …; 0 for none).
    explicit IcuRegex(std::u16string_view pattern, uint32_t flags = 0);

    bool isValid() const { return m_pattern != nullptr; }

    /// Every match replaced with the template ("$1" names a capture group); the text itself when
    /// the pattern did not compile or ICU reports a failure.
    icu::UnicodeString replaceAll(const icu::UnicodeString& text,
                                  const icu::UnicodeString& replacement) const;

    /// Whether the pattern matches somewhere in the text.
    bool find(const icu::UnicodeString& text) const;

    /// The ranges of all matches, in order, as successive finds report them.
    std::vector<TextRange> matchRanges(const icu::UnicodeString& text) const;

    /// The matches that start at one of the candidate positions (ascending), skipping those that
    /// overlap an earlier match: the same list as matchRanges when every possible start is a
    /// candidate. With a group number, the range of that capture group in each of those matches
    /// ({-1, -1} where it took no part).
    std::vector<TextRange> matchRangesAt(const icu::UnicodeString& text,
                                         const std::vector<int32_t>& candidates,
                                         int32_t group = 0) const;

    class MatcherLease;

private:
    template <typename OnMatch>
    bool forEachMatchAt(const icu::UnicodeString& text, const std::vector<int32_t>& candidates,
                        OnMatch onMatch) const;

    std::unique_ptr<icu::RegexPattern> m_pattern;
    uint64_t m_id = 0;  // names this pattern's matchers in the thread-local cache
};

}  // namespace sagely::detail
