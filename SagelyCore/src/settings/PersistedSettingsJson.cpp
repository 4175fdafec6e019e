// JSON of settings.json. Written with insertion order kept, so the file's keys follow the
// fields; read leniently about unknown keys and strictly about the types of known ones.
#include <sagely/CoachSettingsStore.h>

#include <sagely/Error.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace sagely {
namespace {

using Profiles = std::map<std::string, CoachSettingsStore::ProviderProfile>;

// Whole numbers are written without a fraction ("1", not "1.0"), as the original encoder does.
template <typename Json>
Json numberJson(double value) {
    if (!std::isfinite(value)) throw Error("temperature: not a finite number");
    constexpr double kExactIntegers = 9007199254740992.0;  // 2^53
    if (value == std::trunc(value) && std::fabs(value) < kExactIntegers)
        return Json(static_cast<std::int64_t>(value));
    return Json(value);
}

template <typename Json>
Json profileJson(const CoachSettingsStore::ProviderProfile& profile) {
    Json json = Json::object();
    json["model"] = profile.model;
    json["customEndpoint"] = profile.customEndpoint;
    if (!profile.streamsReplies) json["streamsReplies"] = false;
    return json;
}

template <typename Json>
Json settingsJson(const CoachSettingsStore::PersistedSettings& settings) {
    Json json = Json::object();
    json["provider"] = std::string(rawValue(settings.provider));
    json["model"] = settings.model;
    json["customEndpoint"] = settings.customEndpoint;
    json["temperature"] = numberJson<Json>(settings.temperature);
    json["maxTokens"] = settings.maxTokens;
    if (settings.profiles) {
        Json profiles = Json::object();
        for (const auto& [id, profile] : *settings.profiles)
            profiles[id] = profileJson<Json>(profile);
        json["profiles"] = std::move(profiles);
    }
    if (settings.userChoseProvider) json["userChoseProvider"] = *settings.userChoseProvider;
    return json;
}

const nlohmann::json& requiredField(const nlohmann::json& json, const std::string& path,
                                    const char* key) {
    auto it = json.find(key);
    if (it == json.end()) throw DecodingError(path + key + ": missing key");
    return *it;
}

std::string stringField(const nlohmann::json& json, const std::string& path, const char* key) {
    const nlohmann::json& value = requiredField(json, path, key);
    if (!value.is_string()) throw DecodingError(path + key + ": expected a string");
    return value.get<std::string>();
}

double numberField(const nlohmann::json& json, const char* key) {
    const nlohmann::json& value = requiredField(json, "", key);
    if (!value.is_number()) throw DecodingError(std::string(key) + ": expected a number");
    return value.get<double>();
}

std::int64_t integerField(const nlohmann::json& json, const char* key) {
    const nlohmann::json& value = requiredField(json, "", key);
    bool tooLarge = value.is_number_unsigned() &&
                    value.get<std::uint64_t>() >
                        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!value.is_number_integer() || tooLarge)
        throw DecodingError(std::string(key) + ": expected an integer");
    return value.get<std::int64_t>();
}

CoachSettingsStore::ProviderProfile profileFrom(const nlohmann::json& json,
                                                const std::string& path) {
    if (!json.is_object()) throw DecodingError(path + ": expected an object");
    CoachSettingsStore::ProviderProfile profile{stringField(json, path + ".", "model"),
                                                stringField(json, path + ".", "customEndpoint"),
                                                true};
    if (auto streams = json.find("streamsReplies"); streams != json.end() && !streams->is_null()) {
        if (!streams->is_boolean())
            throw DecodingError(path + ".streamsReplies: expected a Boolean");
        profile.streamsReplies = streams->get<bool>();
    }
    return profile;
}

// A key that is present but null counts as absent, as for any optional field.
const nlohmann::json* optionalField(const nlohmann::json& json, const char* key) {
    auto it = json.find(key);
    return it == json.end() || it->is_null() ? nullptr : &*it;
}

std::optional<Profiles> profilesFrom(const nlohmann::json& json) {
    const nlohmann::json* profiles = optionalField(json, "profiles");
    if (!profiles) return std::nullopt;
    if (!profiles->is_object()) throw DecodingError("profiles: expected an object");
    Profiles decoded;
    for (const auto& [id, profile] : profiles->items())
        decoded.emplace(id, profileFrom(profile, "profiles." + id));
    return decoded;
}

std::optional<bool> userChoseProviderFrom(const nlohmann::json& json) {
    const nlohmann::json* flag = optionalField(json, "userChoseProvider");
    if (!flag) return std::nullopt;
    if (!flag->is_boolean()) throw DecodingError("userChoseProvider: expected a Boolean");
    return flag->get<bool>();
}

}  // namespace

void to_json(nlohmann::json& json, const CoachSettingsStore::ProviderProfile& profile) {
    json = profileJson<nlohmann::json>(profile);
}

void from_json(const nlohmann::json& json, CoachSettingsStore::ProviderProfile& profile) {
    profile = profileFrom(json, "profile");
}

void to_json(nlohmann::json& json, const CoachSettingsStore::PersistedSettings& settings) {
    json = settingsJson<nlohmann::json>(settings);
}

void from_json(const nlohmann::json& json, CoachSettingsStore::PersistedSettings& settings) {
    if (!json.is_object()) throw DecodingError("expected an object");
    CoachSettingsStore::PersistedSettings decoded;
    from_json(requiredField(json, "", "provider"), decoded.provider);
    decoded.model = stringField(json, "", "model");
    decoded.customEndpoint = stringField(json, "", "customEndpoint");
    decoded.temperature = numberField(json, "temperature");
    decoded.maxTokens = integerField(json, "maxTokens");
    decoded.profiles = profilesFrom(json);
    decoded.userChoseProvider = userChoseProviderFrom(json);
    settings = std::move(decoded);
}

std::string encodeJson(const CoachSettingsStore::PersistedSettings& settings) {
    return settingsJson<nlohmann::ordered_json>(settings).dump(
        -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

CoachSettingsStore::PersistedSettings decodePersistedSettings(std::string_view json) {
    nlohmann::json parsed = nlohmann::json::parse(json, nullptr, false);
    if (parsed.is_discarded())
        throw DecodingError(
            "The data couldn\u2019t be read because it isn\u2019t in the correct format.");
    return parsed.get<CoachSettingsStore::PersistedSettings>();
}

}  // namespace sagely
