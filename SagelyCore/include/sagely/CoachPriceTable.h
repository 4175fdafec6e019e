// CoachPriceTable — what a model's tokens cost, per provider and model, so that the usage of a
// reply becomes an estimate in US dollars.
//
// The kit ships a small table ("PriceTable.json" in its resource directory) with the date its
// prices were checked. Prices change, so a host may build its own table (from its own JSON, or
// the shipped one with entries replaced or added) and make it the process's table, which the
// workspace and the `sagely` host read. A model the table does not know has no price: its usage
// shows as tokens only.
//
// Model names: an exact entry wins. Failing that, a name made of an entry and a release date,
// "-YYYY-MM-DD" or "-YYYYMMDD" (e.g. "gpt-4o-2024-08-06" → "gpt-4o"), takes that entry's price.
// Nothing else is cut off, so "gpt-4o-mini" never takes the price of "gpt-4o"; a dated release
// priced unlike its family gets an entry of its own.
//
// JSON:
//   {"checked": "2025-06-01",
//    "prices": {"openai": {"gpt-4o": {"input": 2.5, "output": 10}}, "anthropic": {…}}}
// "checked" is an ISO date; the provider keys are those of storageID ("openai", "anthropic",
// "gemini", "local", "custom", "apple"); "input" and "output" are US dollars per million tokens,
// zero or more. Every key is required and no other is allowed, so that a misspelt key in a
// host's table is reported, not ignored.
//
// Thread rules: a plain value. current() and setCurrent() may be called from any thread.
#pragma once

#include <sagely/CoachConfig.h>
#include <sagely/CoachMessage.h>
#include <sagely/Export.h>
#include <sagely/TokenUsage.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sagely {

class SAGELY_EXPORT CoachPriceTable {
public:
    /// US dollars per million tokens.
    struct Price {
        double input = 0;
        double output = 0;
        friend bool operator==(const Price&, const Price&) = default;
    };

    /// An empty table: no model has a price.
    CoachPriceTable() = default;

    /// Reads a table from its JSON text. Throws DecodingError naming the key path of what is
    /// wrong (for example "prices.openai.gpt-4o.input: expected a number, zero or more").
    static CoachPriceTable fromJson(std::string_view text);
    /// The table the kit ships, read from its resource directory; an empty table (and a log
    /// line) when the file is missing or malformed.
    static CoachPriceTable bundled();
    /// The process's table: the one last given to setCurrent, else the shipped one (read once).
    static CoachPriceTable current();
    static void setCurrent(CoachPriceTable table);

    /// The date the prices were checked ("2025-06-01"); empty when none was given.
    const std::string& checked() const { return m_checked; }
    void setChecked(std::string isoDate) { m_checked = std::move(isoDate); }
    /// Adds a price, replacing the one for the same provider and model.
    void setPrice(CoachConfig::Provider provider, std::string model, Price price);
    /// Adds or replaces every entry of `other`; its checked date wins when it has one.
    void merge(const CoachPriceTable& other);
    std::size_t size() const { return m_prices.size(); }

    /// The price of a model, by the name rules above; none when unknown.
    std::optional<Price> price(CoachConfig::Provider provider, std::string_view model) const;
    /// What a reply cost in US dollars, by the provider and model its usage names; none when it
    /// names none, the table does not know it, or a count is negative. An estimate: cached
    /// prompt tokens, which providers bill for less, count at the full price.
    std::optional<double> cost(const TokenUsage& usage) const;

    /// The usage of a conversation's replies added up.
    struct Total {
        /// The counts only.
        TokenUsage tokens;
        /// The messages that said what they cost.
        std::size_t replies = 0;
        /// What they cost together, when every one of them has a price.
        std::optional<double> cost;
    };
    Total total(const std::vector<CoachMessage>& messages) const;

    /// A cost as the views show it: "≈ $0.0123" under a dollar (to the hundredth of a cent,
    /// halves rounded up), "≈ $12.35" from a dollar on, "< $0.0001" for a cost that rounds to
    /// nothing, and "$0.00" for a free model.
    static std::string costText(double dollars);

private:
    std::optional<Price> lookup(std::string_view provider, std::string_view model) const;

    std::string m_checked;
    // Keyed by the provider's storageID and the model name.
    std::map<std::pair<std::string, std::string>, Price> m_prices;
};

}  // namespace sagely
