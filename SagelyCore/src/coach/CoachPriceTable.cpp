#include <sagely/CoachPriceTable.h>

#include <sagely/Error.h>
#include <sagely/Log.h>

#include "support/ResourceBundle.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <mutex>

namespace sagely {
namespace {

constexpr std::string_view kFileName = "PriceTable.json";

[[noreturn]] void fail(const std::string& path, const std::string& problem) {
    throw DecodingError(path + ": " + problem);
}

bool isDigits(std::string_view text) {
    for (char c : text)
        if (c < '0' || c > '9') return false;
    return true;
}

bool isIsoDate(std::string_view text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-' || !isDigits(text.substr(0, 4)) ||
        !isDigits(text.substr(5, 2)) || !isDigits(text.substr(8, 2)))
        return false;
    const int month = (text[5] - '0') * 10 + (text[6] - '0');
    const int day = (text[8] - '0') * 10 + (text[9] - '0');
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

// The name without a trailing release date, "-YYYY-MM-DD" or "-YYYYMMDD"; none when it has none.
std::optional<std::string_view> withoutReleaseDate(std::string_view model) {
    if (model.size() > 11) {
        const std::string_view tail = model.substr(model.size() - 11);
        if (tail[0] == '-' && isIsoDate(tail.substr(1))) return model.substr(0, model.size() - 11);
    }
    if (model.size() > 9) {
        const std::string_view tail = model.substr(model.size() - 9);
        if (tail[0] == '-' && isDigits(tail.substr(1))) return model.substr(0, model.size() - 9);
    }
    return std::nullopt;
}

double dollars(const nlohmann::json& value, const std::string& path) {
    if (!value.is_number() || !std::isfinite(value.get<double>()) || value.get<double>() < 0)
        fail(path, "expected a number, zero or more");
    return value.get<double>();
}

CoachPriceTable::Price priceEntry(const nlohmann::json& entry, const std::string& path) {
    if (!entry.is_object()) fail(path, "expected an object with \"input\" and \"output\"");
    std::optional<double> input, output;
    for (const auto& [key, value] : entry.items()) {
        if (key == "input")
            input = dollars(value, path + ".input");
        else if (key == "output")
            output = dollars(value, path + ".output");
        else
            fail(path + "." + key, "unknown key (a price has \"input\" and \"output\")");
    }
    if (!input) fail(path + ".input", "missing");
    if (!output) fail(path + ".output", "missing");
    return {*input, *output};
}

std::mutex& currentMutex() {
    static std::mutex mutex;
    return mutex;
}

std::optional<CoachPriceTable>& currentTable() {
    static std::optional<CoachPriceTable> table;
    return table;
}

}  // namespace

CoachPriceTable CoachPriceTable::fromJson(std::string_view text) {
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded()) throw DecodingError("invalid JSON");
    if (!json.is_object())
        throw DecodingError("expected an object with \"checked\" and \"prices\"");
    CoachPriceTable table;
    bool hasPrices = false;
    for (const auto& [key, value] : json.items()) {
        if (key == "checked") {
            if (!value.is_string() || !isIsoDate(value.get<std::string>()))
                fail("checked", "expected a date written YYYY-MM-DD");
            table.m_checked = value.get<std::string>();
        } else if (key == "prices") {
            if (!value.is_object()) fail("prices", "expected an object of providers");
            hasPrices = true;
            for (const auto& [providerKey, models] : value.items()) {
                const std::string path = "prices." + providerKey;
                if (!providerFromStorageID(providerKey))
                    fail(path,
                         "unknown provider (apple, openai, anthropic, gemini, local, custom)");
                if (!models.is_object()) fail(path, "expected an object of models");
                for (const auto& [model, entry] : models.items())
                    table.m_prices[{providerKey, model}] = priceEntry(entry, path + "." + model);
            }
        } else {
            fail(key, "unknown key (a price table has \"checked\" and \"prices\")");
        }
    }
    if (table.m_checked.empty()) fail("checked", "missing");
    if (!hasPrices) fail("prices", "missing");
    return table;
}

CoachPriceTable CoachPriceTable::bundled() {
    // Prices are optional: a kit installed without its resources shows tokens only rather than
    // stopping the host, as a missing guide does.
    const auto bundle = detail::findResourceBundle(
        detail::bundleCandidates(detail::platformProcessPaths(), detail::builtInstallLayout()));
    const auto path = bundle ? *bundle / kFileName : std::filesystem::path(kFileName);
    const std::optional<std::string> text =
        bundle ? detail::readTextFile(path) : std::optional<std::string>();
    if (!text) {
        log("No price table at " + path.string() + "; usage shows as tokens only.");
        return {};
    }
    try {
        return fromJson(*text);
    } catch (const Error& error) {
        log("The price table " + path.string() + " is malformed (" + error.what() +
            "); usage shows as tokens only.");
        return {};
    }
}

CoachPriceTable CoachPriceTable::current() {
    {
        const std::lock_guard lock(currentMutex());
        if (currentTable()) return *currentTable();
    }
    // Read outside the lock: a host's setCurrent meanwhile wins over the shipped table.
    CoachPriceTable shipped = bundled();
    const std::lock_guard lock(currentMutex());
    if (!currentTable()) currentTable() = std::move(shipped);
    return *currentTable();
}

void CoachPriceTable::setCurrent(CoachPriceTable table) {
    const std::lock_guard lock(currentMutex());
    currentTable() = std::move(table);
}

void CoachPriceTable::setPrice(CoachConfig::Provider provider, std::string model, Price price) {
    m_prices[{std::string(storageID(provider)), std::move(model)}] = price;
}

void CoachPriceTable::merge(const CoachPriceTable& other) {
    if (!other.m_checked.empty()) m_checked = other.m_checked;
    for (const auto& [key, price] : other.m_prices) m_prices[key] = price;
}

std::optional<CoachPriceTable::Price> CoachPriceTable::lookup(std::string_view provider,
                                                              std::string_view model) const {
    auto found = m_prices.find({std::string(provider), std::string(model)});
    if (found == m_prices.end()) {
        const auto family = withoutReleaseDate(model);
        if (!family) return std::nullopt;
        found = m_prices.find({std::string(provider), std::string(*family)});
        if (found == m_prices.end()) return std::nullopt;
    }
    return found->second;
}

std::optional<CoachPriceTable::Price> CoachPriceTable::price(CoachConfig::Provider provider,
                                                             std::string_view model) const {
    return lookup(storageID(provider), model);
}

std::optional<double> CoachPriceTable::cost(const TokenUsage& usage) const {
    if (usage.inputTokens < 0 || usage.outputTokens < 0) return std::nullopt;
    const auto price = lookup(usage.provider, usage.model);
    if (!price) return std::nullopt;
    return (double(usage.inputTokens) * price->input + double(usage.outputTokens) * price->output) /
           1e6;
}

CoachPriceTable::Total CoachPriceTable::total(const std::vector<CoachMessage>& messages) const {
    Total total;
    bool everyPriced = true;
    double dollars = 0;
    for (const CoachMessage& message : messages) {
        const auto& usage = message.usage();
        if (!usage) continue;
        total.tokens += *usage;
        ++total.replies;
        const auto replyCost = cost(*usage);
        everyPriced = everyPriced && replyCost;
        if (replyCost) dollars += *replyCost;
    }
    if (total.replies > 0 && everyPriced) total.cost = dollars;
    return total;
}

std::string CoachPriceTable::costText(double dollars) {
    if (!(dollars > 0)) return "$0.00";
    // Rounded in whole picodollars first, so that a cost of exactly half a step (which a double
    // may hold a hair below the half) rounds up as written.
    const long long pico = std::llround(dollars * 1e12);
    const long long tenThousandths = (pico + 50'000'000) / 100'000'000;
    if (tenThousandths == 0) return "< $0.0001";
    char text[40];
    if (tenThousandths < 10'000) {
        std::snprintf(text, sizeof text, "\u2248 $0.%04lld", tenThousandths);
    } else {
        const long long cents = (pico + 5'000'000'000) / 10'000'000'000;
        std::snprintf(text, sizeof text, "\u2248 $%lld.%02lld", cents / 100, cents % 100);
    }
    return text;
}

}  // namespace sagely
