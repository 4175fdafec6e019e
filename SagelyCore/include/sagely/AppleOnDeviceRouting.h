// AppleOnDeviceRouting — reads the configured model string of the `apple` provider as a route
// to an on-device model: the general system model, its content-tagging use case, or a custom
// adapter given by name or by file.
//
// Pure and thread-safe. The only thing it looks up is the user's home directory, for "~/".
#pragma once

#include <sagely/Export.h>

#include <string>
#include <string_view>

namespace sagely {

struct AppleOnDeviceRoute {
    enum class Kind { adapterName, adapterFile, general, contentTagging };

    Kind kind = Kind::general;
    /// The adapter's name or file path; empty for the two system routes.
    std::string payload;

    static AppleOnDeviceRoute adapterName(std::string name) {
        return {Kind::adapterName, std::move(name)};
    }
    static AppleOnDeviceRoute adapterFile(std::string path) {
        return {Kind::adapterFile, std::move(path)};
    }
    static AppleOnDeviceRoute general() { return {Kind::general, {}}; }
    static AppleOnDeviceRoute contentTagging() { return {Kind::contentTagging, {}}; }

    friend bool operator==(const AppleOnDeviceRoute&, const AppleOnDeviceRoute&) = default;
};

struct SAGELY_EXPORT AppleOnDeviceRouting {
    /// The first matching reading of the trimmed string T (L is T lower-cased):
    /// empty, "system-default", "default" or "apple intelligence" → general;
    /// "content-tagging", "contenttagging" or "content tagging" → contentTagging;
    /// L begins with "file:" → adapterFile with the URL's path (T itself if it is no URL);
    /// T begins with "~/" → adapterFile in the home directory; T begins with "/" → adapterFile;
    /// anything else → adapterName with T as typed.
    static AppleOnDeviceRoute route(std::string_view model);
};

}  // namespace sagely
