#include "coach/GuideIndex.h"

#include <sagely/Text.h>

#include "support/TextViews.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <deque>
#include <unordered_map>

namespace sagely::detail {
namespace {

// --- Sections --------------------------------------------------------------------------------
// Sections are found as views into the guide: a body is the run of lines under its heading,
// which is a stretch of the guide itself, so nothing is copied until a section is chosen.

bool isHeading(std::string_view line) {
    return line.starts_with("## ") || line.starts_with("### ") || line.starts_with("#### ");
}

std::string_view headingTitle(std::string_view line) {
    auto isMark = [](char c) { return c == '#' || c == ' '; };
    while (!line.empty() && isMark(line.front())) line.remove_prefix(1);
    while (!line.empty() && isMark(line.back())) line.remove_suffix(1);
    return trimmedSpacesAndTabsView(line);
}

class SectionCollector {
public:
    explicit SectionCollector(std::string_view guide) : m_guide(guide) {}

    void heading(std::string_view line) {
        closeIfCollected();
        m_title = headingTitle(line);
    }
    void bodyLine(std::string_view line) {
        if (!m_collecting) m_bodyStart = offsetOf(line);
        m_bodyEnd = offsetOf(line) + line.size();
        m_collecting = true;
    }
    std::vector<SectionView> finish() {
        closeIfCollected();
        std::erase_if(m_sections, [](const SectionView& s) {
            return s.title == "Introduction" && s.body.empty();
        });
        return std::move(m_sections);
    }

private:
    std::size_t offsetOf(std::string_view part) const {
        return static_cast<std::size_t>(part.data() - m_guide.data());
    }
    void closeIfCollected() {
        if (!m_collecting) return;
        std::string_view lines = m_guide.substr(m_bodyStart, m_bodyEnd - m_bodyStart);
        int order = static_cast<int>(m_sections.size());
        m_sections.push_back({m_title, trimmedView(lines), order});
        m_collecting = false;
    }

    std::string_view m_guide;
    std::vector<SectionView> m_sections;
    std::string_view m_title = "Introduction";
    std::size_t m_bodyStart = 0;
    std::size_t m_bodyEnd = 0;
    bool m_collecting = false;
};

// --- Matching all the terms at once --------------------------------------------------------

// An Aho–Corasick automaton of the terms over bytes (UTF-8 text is matched as bytes, as the
// terms were looked for before). A node's children form a list; the root's a table.
class TermMatcher {
public:
    TermMatcher() {
        m_rootChildren.fill(-1);
        m_nodes.emplace_back();
    }

    /// Adds a term; false when it was added before (the trie tells repeated terms apart, so a
    /// long list of them is neither sorted nor hashed). An empty term is never added.
    bool add(std::string_view term) {
        int32_t node = insert(term);
        if (node == 0 || m_nodes[node].term >= 0) return false;
        m_nodes[node].term = m_terms++;
        return true;
    }
    std::size_t termCount() const { return static_cast<std::size_t>(m_terms); }

    /// Makes the matcher ready to match, once every term is added.
    void finish() {
        linkFailures();
        m_seenInWord.assign(m_nodes.size(), UINT32_MAX);
    }

    // Calls found(term) once for each term that occurs in the word; `word` numbers the word.
    template <typename Found>
    void forEachTermIn(std::string_view text, uint32_t word, Found found) {
        int32_t state = 0;
        for (char c : text) {
            state = next(state, static_cast<unsigned char>(c));
            int32_t node = m_nodes[state].term >= 0 ? state : m_nodes[state].output;
            // A node already seen in this word had its whole output chain reported then.
            while (node >= 0 && m_seenInWord[node] != word) {
                m_seenInWord[node] = word;
                found(static_cast<std::size_t>(m_nodes[node].term));
                node = m_nodes[node].output;
            }
        }
    }

private:
    struct Node {
        int32_t firstChild = -1;
        int32_t nextSibling = -1;
        int32_t failure = 0;
        int32_t term = -1;    // the term ending here
        int32_t output = -1;  // the nearest node on the failure chain where a term ends
        unsigned char byte = 0;
    };

    int32_t child(int32_t node, unsigned char byte) const {
        if (node == 0) return m_rootChildren[byte];
        for (int32_t c = m_nodes[node].firstChild; c >= 0; c = m_nodes[c].nextSibling)
            if (m_nodes[c].byte == byte) return c;
        return -1;
    }

    int32_t next(int32_t state, unsigned char byte) const {
        for (;;) {
            int32_t c = child(state, byte);
            if (c >= 0) return c;
            if (state == 0) return 0;
            state = m_nodes[state].failure;
        }
    }

    // The term's node, made as needed.
    int32_t insert(std::string_view term) {
        int32_t node = 0;
        for (char c : term) {
            auto byte = static_cast<unsigned char>(c);
            int32_t existing = child(node, byte);
            if (existing < 0) {
                existing = static_cast<int32_t>(m_nodes.size());
                Node created;
                created.byte = byte;
                created.nextSibling = node == 0 ? -1 : m_nodes[node].firstChild;
                m_nodes.push_back(created);
                if (node == 0)
                    m_rootChildren[byte] = existing;
                else
                    m_nodes[node].firstChild = existing;
            }
            node = existing;
        }
        return node;
    }

    // Breadth first, so that a node's failure is linked before its children's. The root's
    // children keep the root as theirs.
    void linkFailures() {
        std::deque<int32_t> queue;
        for (int32_t c : m_rootChildren)
            if (c >= 0) queue.push_back(c);
        while (!queue.empty()) {
            int32_t node = queue.front();
            queue.pop_front();
            for (int32_t c = m_nodes[node].firstChild; c >= 0; c = m_nodes[c].nextSibling) {
                // A shorter suffix than the child's own, so never the child itself.
                int32_t failure = next(m_nodes[node].failure, m_nodes[c].byte);
                m_nodes[c].failure = failure;
                m_nodes[c].output = m_nodes[failure].term >= 0 ? failure : m_nodes[failure].output;
                queue.push_back(c);
            }
        }
    }

    std::vector<Node> m_nodes;
    std::array<int32_t, 256> m_rootChildren{};
    std::vector<uint32_t> m_seenInWord;
    int32_t m_terms = 0;
};

constexpr std::size_t kRememberedCounts = 8;  // a coach asks with one or two limits

// The bounds of the three-byte-run set's size, as powers of two.
constexpr unsigned kFewestTrigramBits = 12;
constexpr unsigned kMostTrigramBits = 21;

}  // namespace

std::vector<SectionView> sectionViews(std::string_view guide) {
    SectionCollector collector(guide);
    for (std::size_t start = 0; start <= guide.size();) {
        std::size_t end = guide.find('\n', start);
        if (end == std::string_view::npos) end = guide.size();
        std::string_view line = guide.substr(start, end - start);
        if (isHeading(line))
            collector.heading(line);
        else
            collector.bodyLine(line);
        start = end + 1;
    }
    return collector.finish();
}

bool isWordCharacter(UChar32 c) {
    return (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

std::shared_ptr<const PreparedGuide> PreparedGuide::of(std::string_view guide) {
    // A coach asks with one guide, a host rarely with more than two; a prepared guide takes
    // about three times its text.
    static constexpr std::size_t kKept = 4;
    static constexpr std::size_t kKeptBytes = 64 * 1024 * 1024;
    static std::mutex mutex;
    static std::vector<std::shared_ptr<const PreparedGuide>> recent;  // most recent first
    auto cached = [&]() -> std::shared_ptr<const PreparedGuide> {
        auto found = std::find_if(recent.begin(), recent.end(),
                                  [&](const auto& prepared) { return prepared->text() == guide; });
        if (found == recent.end()) return nullptr;
        std::rotate(recent.begin(), found, found + 1);
        return recent.front();
    };
    {
        std::lock_guard lock(mutex);
        if (auto prepared = cached()) return prepared;
    }
    // Prepared outside the lock, so that other guides are served meanwhile.
    auto prepared = std::make_shared<const PreparedGuide>(guide);
    std::lock_guard lock(mutex);
    if (auto other = cached()) return other;  // prepared meanwhile by another thread
    recent.insert(recent.begin(), prepared);
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < recent.size(); ++i) {
        bytes += recent[i]->text().size();
        if (i > 0 && (i >= kKept || bytes > kKeptBytes)) {
            recent.resize(i);
            break;
        }
    }
    return prepared;
}

PreparedGuide::PreparedGuide(std::string_view guide) : m_text(guide) {
    for (const SectionView& view : sectionViews(m_text))
        m_sections.push_back({view, text::lowercased(view.title), text::lowercased(view.body)});
    m_blockCharacters = std::make_unique<std::atomic<int64_t>[]>(m_sections.size());
    for (std::size_t k = 0; k < m_sections.size(); ++k) m_blockCharacters[k] = -1;
    indexWords();
}

void PreparedGuide::indexWords() {
    // The keys view the lower-cased texts of m_sections, which no longer move.
    std::unordered_map<std::string_view, uint32_t> ids;
    std::vector<std::vector<uint32_t>> titles, bodies;
    auto add = [&](std::string_view text, uint32_t section,
                   std::vector<std::vector<uint32_t>>& postings) {
        forEachWord(text, [&](std::string_view word, uint32_t) {
            auto [entry, isNew] = ids.try_emplace(word, static_cast<uint32_t>(ids.size()));
            if (isNew) {
                m_words.append(word);
                m_wordEnds.push_back(static_cast<uint32_t>(m_words.size()));
                titles.emplace_back();
                bodies.emplace_back();
            }
            std::vector<uint32_t>& sections = postings[entry->second];
            if (sections.empty() || sections.back() != section) sections.push_back(section);
        });
    };
    for (std::size_t k = 0; k < m_sections.size(); ++k) {
        add(m_sections[k].loweredTitle, static_cast<uint32_t>(k), titles);
        add(m_sections[k].loweredBody, static_cast<uint32_t>(k), bodies);
    }
    auto flatten = [](const std::vector<std::vector<uint32_t>>& lists, Postings& postings) {
        postings.starts.push_back(0);
        for (const auto& list : lists) {
            postings.sections.insert(postings.sections.end(), list.begin(), list.end());
            postings.starts.push_back(static_cast<uint32_t>(postings.sections.size()));
        }
    };
    flatten(titles, m_inTitles);
    flatten(bodies, m_inBodies);
    m_trigramBits = kFewestTrigramBits;
    while (m_trigramBits < kMostTrigramBits &&
           (std::size_t{1} << m_trigramBits) < 16 * m_words.size())
        ++m_trigramBits;
    m_trigrams.assign((std::size_t{1} << m_trigramBits) / 64, 0);
    for (uint32_t w = 0, start = 0; w < m_wordEnds.size(); start = m_wordEnds[w++])
        for (std::size_t i = start; i + 3 <= m_wordEnds[w]; ++i) {
            uint32_t bit = trigramAt(m_words, i);
            m_trigrams[bit / 64] |= uint64_t{1} << (bit % 64);
        }
}

PreparedGuide::TermCounts PreparedGuide::termCounts(
    const std::vector<std::string_view>& terms) const {
    TermCounts counts{std::vector<int>(m_sections.size(), 0),
                      std::vector<int>(m_sections.size(), 0)};
    TermMatcher matcher;
    for (std::string_view term : terms) matcher.add(term);
    if (matcher.termCount() == 0) return counts;
    matcher.finish();
    // The words holding each term.
    std::vector<std::vector<uint32_t>> wordsWith(matcher.termCount());
    for (uint32_t w = 0, start = 0; w < m_wordEnds.size(); start = m_wordEnds[w++]) {
        std::string_view word(m_words.data() + start, m_wordEnds[w] - start);
        matcher.forEachTermIn(word, w, [&](std::size_t term) { wordsWith[term].push_back(w); });
    }
    // Each term counts once per section, however many of its words hold it.
    auto count = [&](const Postings& postings, std::vector<int>& perSection) {
        std::vector<uint32_t> lastTerm(m_sections.size(), UINT32_MAX);
        for (uint32_t t = 0; t < wordsWith.size(); ++t)
            for (uint32_t w : wordsWith[t])
                for (uint32_t i = postings.starts[w]; i < postings.starts[w + 1]; ++i) {
                    uint32_t section = postings.sections[i];
                    if (lastTerm[section] == t) continue;
                    lastTerm[section] = t;
                    ++perSection[section];
                }
    };
    count(m_inTitles, counts.inTitle);
    count(m_inBodies, counts.inBody);
    return counts;
}

// No grapheme cluster spans a line feed, so the block's count is the sum of its parts' counts.
std::size_t PreparedGuide::blockCharacters(std::size_t section) const {
    int64_t known = m_blockCharacters[section].load(std::memory_order_relaxed);
    if (known >= 0) return static_cast<std::size_t>(known);
    const SectionView& view = m_sections[section].view;
    std::size_t characters = text::characterCount("### " + std::string(view.title) + "\n\n") +
                             text::characterCount(view.body);
    m_blockCharacters[section].store(static_cast<int64_t>(characters), std::memory_order_relaxed);
    return characters;
}

bool PreparedGuide::hasMoreCharacters(std::size_t count) const {
    std::lock_guard lock(m_mutex);
    auto known = m_hasMore.find(count);
    if (known != m_hasMore.end()) return known->second;
    if (m_hasMore.size() >= kRememberedCounts) m_hasMore.clear();
    return m_hasMore[count] = detail::hasMoreCharacters(m_text, count);
}

std::string PreparedGuide::leadingCharacters(std::size_t count) const {
    std::lock_guard lock(m_mutex);
    auto known = m_leading.find(count);
    if (known != m_leading.end()) return known->second;
    if (m_leading.size() >= kRememberedCounts) m_leading.clear();
    return m_leading[count] = detail::leadingCharacters(m_text, count);
}

}  // namespace sagely::detail
