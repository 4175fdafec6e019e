// GuideIndex — a guide prepared once per text for the excerpts of every question asked of it:
// its sections with their lower-cased titles and bodies, and an index of the words in them.
//
// A question's terms are made of letters, marks and digits only, so a term occurs in a text
// exactly when it occurs inside one of the text's words (its maximal runs of such characters).
// The index lists the distinct words of the guide and the sections holding each, so finding the
// sections that contain the terms reads the distinct words once (one pass of a matcher of all the
// terms at once) instead of the whole guide once per term.
//
// Prepared guides are immutable and shared; PreparedGuide::of keeps the most recent few, keyed
// by their text, so a changed guide is prepared anew. Thread-safe.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <unicode/utf8.h>

namespace sagely::detail {

/// A section of a guide as views into the guide's text.
struct SectionView {
    std::string_view title;
    std::string_view body;
    int order = 0;
};

/// The sections of the guide in guide order (see CoachPromptBudget::splitSections).
std::vector<SectionView> sectionViews(std::string_view guide);

/// Whether a code point is a letter, a mark or a number (general categories L, M and N).
bool isWordCharacter(UChar32 c);

// What a word is made of, as bits: one per ASCII letter (either case: bit 0 for a, 25 for z),
// one for any ASCII digit and one for any other character. ASCII letters and digits are all the
// ASCII letters, marks and numbers, so an ASCII byte is a word character exactly when it has bits.
inline constexpr uint32_t kDigitBit = uint32_t{1} << 26;
inline constexpr uint32_t kNonAsciiBit = uint32_t{1} << 31;
inline constexpr auto kAsciiWordBits = [] {
    std::array<uint32_t, 128> bits{};
    for (int c = 0; c < 26; ++c) {
        bits[static_cast<std::size_t>('a' + c)] = uint32_t{1} << c;
        bits[static_cast<std::size_t>('A' + c)] = uint32_t{1} << c;
    }
    for (int c = '0'; c <= '9'; ++c) bits[static_cast<std::size_t>(c)] = kDigitBit;
    return bits;
}();

/// Calls visit(word, bits) for each maximal run of letters, marks and numbers of the text, in
/// order, with the bits of the word's characters (see kAsciiWordBits) or-ed together, so that a
/// caller can tell what a word cannot hold without reading it again. Malformed UTF-8 separates
/// words.
template <typename Visit>
void forEachWord(std::string_view text, Visit visit) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    int32_t start = 0;
    uint32_t bits = 0;
    for (int32_t i = 0; i < length;) {
        int32_t begin = i;
        UChar32 c = bytes[i];
        if (c < 0x80) {
            ++i;
            if (uint32_t own = kAsciiWordBits[static_cast<std::size_t>(c)]) {
                bits |= own;
                continue;
            }
        } else {
            U8_NEXT(bytes, i, length, c);
            if (c >= 0 && isWordCharacter(c)) {
                bits |= kNonAsciiBit;
                continue;
            }
        }
        if (begin > start)
            visit(text.substr(static_cast<std::size_t>(start),
                              static_cast<std::size_t>(begin - start)),
                  bits);
        start = i;
        bits = 0;
    }
    if (length > start) visit(text.substr(static_cast<std::size_t>(start)), bits);
}

struct GuideSection {
    SectionView view;  // into PreparedGuide::text()
    std::string loweredTitle;
    std::string loweredBody;
};

class PreparedGuide {
public:
    /// The prepared form of the guide text, shared with earlier calls for the same text.
    static std::shared_ptr<const PreparedGuide> of(std::string_view guide);

    explicit PreparedGuide(std::string_view guide);
    PreparedGuide(const PreparedGuide&) = delete;
    PreparedGuide& operator=(const PreparedGuide&) = delete;

    std::string_view text() const { return m_text; }
    const std::vector<GuideSection>& sections() const { return m_sections; }

    /// False when the term is in none of the sections' lower-cased titles and bodies; true when
    /// it may be. Cheap: for sorting out the terms of a long question before termCounts.
    bool mayOccur(std::string_view term) const {
        // False when some three-byte run of the term is in no word, so that no word can hold
        // it: most terms of a pasted log are in no guide, and are dismissed at the first run.
        for (std::size_t i = 0; i + 3 <= term.size(); ++i) {
            uint32_t bit = trigramAt(term, i);
            if ((m_trigrams[bit / 64] >> (bit % 64) & 1) == 0) return false;
        }
        return true;
    }

    /// For each section, how many of the distinct terms its lower-cased title and its
    /// lower-cased body contain (a term listed twice counts once).
    struct TermCounts {
        std::vector<int> inTitle;
        std::vector<int> inBody;
    };
    TermCounts termCounts(const std::vector<std::string_view>& terms) const;

    /// The characters of the section's block "### " + title + "\n\n" + body.
    std::size_t blockCharacters(std::size_t section) const;

    /// Whether the text has more than `count` characters.
    bool hasMoreCharacters(std::size_t count) const;
    /// The text's first `count` characters.
    std::string leadingCharacters(std::size_t count) const;

private:
    // Distinct words of the lower-cased titles and bodies, and the sections holding each.
    struct Postings {
        std::vector<uint32_t> starts;  // word w's sections: sections[starts[w]] to [starts[w + 1])
        std::vector<uint32_t> sections;
    };
    void indexWords();
    // A three-byte run hashed to one of the set's bits.
    uint32_t trigramAt(std::string_view text, std::size_t i) const {
        uint32_t run = static_cast<unsigned char>(text[i]) << 16 |
                       static_cast<unsigned char>(text[i + 1]) << 8 |
                       static_cast<unsigned char>(text[i + 2]);
        return (run * 0x9E3779B1u) >> (32 - m_trigramBits);
    }

    std::string m_text;
    std::vector<GuideSection> m_sections;
    std::string m_words;               // the distinct words, one after another
    std::vector<uint32_t> m_wordEnds;  // word w is m_words[m_wordEnds[w - 1], m_wordEnds[w])
    std::vector<uint64_t> m_trigrams;  // a hash set (as bits) of the words' three-byte runs
    // Its size: 2^m_trigramBits bits, at least 16 a run, so that few terms get through by
    // chance, and no more, so that the set stays in the processor's nearest caches.
    unsigned m_trigramBits = 0;
    Postings m_inTitles;
    Postings m_inBodies;
    // Worked out when first needed: block characters (-1 until then) and prefix counts.
    std::unique_ptr<std::atomic<int64_t>[]> m_blockCharacters;
    mutable std::mutex m_mutex;
    mutable std::map<std::size_t, bool> m_hasMore;
    mutable std::map<std::size_t, std::string> m_leading;
};

}  // namespace sagely::detail
