#include "format/IcuRegex.h"

#include <algorithm>
#include <atomic>

namespace sagely::detail {
namespace {

using MatcherPointer = std::unique_ptr<icu::RegexMatcher>;

// Matchers kept for reuse on this thread, by pattern id. Bounded, so that patterns made and
// dropped on the fly cannot make it grow without end.
constexpr std::size_t kCachedMatchersPerThread = 64;
thread_local std::vector<std::pair<uint64_t, MatcherPointer>> t_matchers;

uint64_t nextPatternId() {
    static std::atomic<uint64_t> counter{0};
    return ++counter;
}

}  // namespace

// A matcher of the pattern, reset to the text, borrowed from the thread's cache for the
// lease's lifetime (so a nested use of the same pattern simply gets a matcher of its own).
class IcuRegex::MatcherLease {
public:
    MatcherLease(const IcuRegex& regex, const icu::UnicodeString& text) : m_id(regex.m_id) {
        auto cached = std::find_if(t_matchers.begin(), t_matchers.end(),
                                   [&](const auto& entry) { return entry.first == m_id; });
        if (cached != t_matchers.end()) {
            m_matcher = std::move(cached->second);
            t_matchers.erase(cached);
            m_matcher->reset(text);
        } else {
            m_matcher.reset(regex.m_pattern->matcher(text, m_status));
        }
        if (m_matcher) m_matcher->useTransparentBounds(false).useAnchoringBounds(true);
    }
    ~MatcherLease() {
        if (!m_matcher || U_FAILURE(m_status)) return;
        if (t_matchers.size() >= kCachedMatchersPerThread) t_matchers.erase(t_matchers.begin());
        t_matchers.emplace_back(m_id, std::move(m_matcher));
    }
    MatcherLease(const MatcherLease&) = delete;
    MatcherLease& operator=(const MatcherLease&) = delete;

    bool ok() const { return m_matcher && U_SUCCESS(m_status); }
    icu::RegexMatcher& operator*() const { return *m_matcher; }
    icu::RegexMatcher* operator->() const { return m_matcher.get(); }

private:
    uint64_t m_id;
    UErrorCode m_status = U_ZERO_ERROR;
    MatcherPointer m_matcher;
};

IcuRegex::IcuRegex(std::u16string_view pattern, uint32_t flags) : m_id(nextPatternId()) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    icu::UnicodeString source(pattern.data(), static_cast<int32_t>(pattern.size()));
    std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(source, flags, parseError, status));
    if (U_SUCCESS(status)) m_pattern = std::move(compiled);
}

icu::UnicodeString IcuRegex::replaceAll(const icu::UnicodeString& text,
                                        const icu::UnicodeString& replacement) const {
    if (!m_pattern) return text;
    MatcherLease matcher(*this, text);
    if (!matcher.ok()) return text;
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString result = matcher->replaceAll(replacement, status);
    return U_SUCCESS(status) ? result : text;
}

bool IcuRegex::find(const icu::UnicodeString& text) const {
    if (!m_pattern) return false;
    MatcherLease matcher(*this, text);
    UErrorCode status = U_ZERO_ERROR;
    return matcher.ok() && matcher->find(0, status) && U_SUCCESS(status);
}

std::vector<TextRange> IcuRegex::matchRanges(const icu::UnicodeString& text) const {
    std::vector<TextRange> ranges;
    if (!m_pattern) return ranges;
    MatcherLease matcher(*this, text);
    if (!matcher.ok()) return ranges;
    UErrorCode status = U_ZERO_ERROR;
    while (matcher->find(status) && U_SUCCESS(status)) {
        int32_t start = matcher->start(status);
        int32_t end = matcher->end(status);
        if (U_FAILURE(status)) break;
        ranges.emplace_back(start, end);
    }
    return ranges;
}

// Tries the pattern anchored at each candidate. Transparent bounds let look-behind see the text
// before the candidate, and without anchoring bounds "^" and "$" keep meaning the ends of the
// whole text, so a match found here is the match find() would report at that position.
template <typename OnMatch>
bool IcuRegex::forEachMatchAt(const icu::UnicodeString& text,
                              const std::vector<int32_t>& candidates, OnMatch onMatch) const {
    if (!m_pattern) return false;
    MatcherLease matcher(*this, text);
    if (!matcher.ok()) return false;
    matcher->useTransparentBounds(true).useAnchoringBounds(false);
    UErrorCode status = U_ZERO_ERROR;
    int32_t resumeAt = 0;
    for (int32_t candidate : candidates) {
        if (candidate < resumeAt) continue;
        matcher->region(candidate, text.length(), status);
        bool matched = matcher->lookingAt(status);
        if (U_FAILURE(status)) return false;
        if (!matched) continue;
        int32_t end = matcher->end(status);
        if (!onMatch(*matcher, candidate, end, status) || U_FAILURE(status)) return false;
        resumeAt = end > candidate ? end : candidate + 1;
    }
    return true;
}

std::vector<TextRange> IcuRegex::matchRangesAt(const icu::UnicodeString& text,
                                               const std::vector<int32_t>& candidates,
                                               int32_t group) const {
    std::vector<TextRange> ranges;
    bool ok = forEachMatchAt(
        text, candidates,
        [&](const icu::RegexMatcher& matcher, int32_t, int32_t, UErrorCode& status) {
            ranges.emplace_back(matcher.start(group, status), matcher.end(group, status));
            return true;
        });
    return ok ? ranges : std::vector<TextRange>{};
}

}  // namespace sagely::detail
