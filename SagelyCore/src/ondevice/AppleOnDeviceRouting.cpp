#include <sagely/AppleOnDeviceRouting.h>

#include <sagely/Text.h>

#include "support/HomeDirectory.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace sagely {
namespace {

// Whether T begins with "file:" in any case (the prefix is plain ASCII).
bool hasFileScheme(std::string_view value) {
    return value.size() >= 5 && text::lowercased(value.substr(0, 5)) == "file:";
}

bool isOneOf(const std::string& value, std::initializer_list<std::string_view> words) {
    for (std::string_view word : words) {
        if (value == word) return true;
    }
    return false;
}

// The path without its trailing slashes; the root stays "/".
std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// The user's home directory as the system reports it; the root when it names none.
std::string homeDirectoryOrRoot() {
    std::filesystem::path home = detail::homeDirectory();
    return home.empty() ? std::string("/") : home.string();
}

std::string joinedPath(std::string directory, std::string_view component) {
    if (component.empty()) return withoutTrailingSlash(std::move(directory));
    if (directory.empty() || directory.back() != '/') directory.push_back('/');
    return withoutTrailingSlash(directory + std::string(component));
}

// An authority is acceptable when any bracketed host is closed and any port is all digits.
bool isWellFormedAuthority(std::string_view authority) {
    std::size_t at = authority.rfind('@');
    std::string_view hostPort = at == std::string_view::npos ? authority : authority.substr(at + 1);
    std::size_t portStart = std::string_view::npos;
    if (!hostPort.empty() && hostPort.front() == '[') {
        std::size_t close = hostPort.find(']');
        if (close == std::string_view::npos) return false;
        if (close + 1 < hostPort.size()) {
            if (hostPort[close + 1] != ':') return false;
            portStart = close + 2;
        }
    } else if (std::size_t colon = hostPort.find(':'); colon != std::string_view::npos) {
        if (hostPort.find_first_of("[]") != std::string_view::npos) return false;
        portStart = colon + 1;
    } else if (hostPort.find_first_of("[]") != std::string_view::npos) {
        return false;
    }
    if (portStart == std::string_view::npos) return true;
    return hostPort.substr(portStart).find_first_not_of("0123456789") == std::string_view::npos;
}

// The path of a "file:" URL, read leniently (spaces and other unencoded characters are accepted
// as a browser would); none when the text cannot be read as a URL at all.
std::optional<std::string> fileURLPath(std::string_view url) {
    std::string_view rest = url.substr(5);  // after "file:"
    rest = rest.substr(0, rest.find_first_of("?#"));
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        std::size_t slash = rest.find('/');
        std::string_view authority = rest.substr(0, slash);
        if (!isWellFormedAuthority(authority)) return std::nullopt;
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
    std::string path = text::percentDecode(rest);
    if (!text::isValidUtf8(path)) path = std::string(rest);
    return withoutTrailingSlash(std::move(path));
}

}  // namespace

AppleOnDeviceRoute AppleOnDeviceRouting::route(std::string_view model) {
    const std::string trimmedModel = text::trimmed(model);
    const std::string lower = text::lowercased(trimmedModel);
    if (trimmedModel.empty() ||
        isOneOf(lower, {"system-default", "default", "apple intelligence"})) {
        return AppleOnDeviceRoute::general();
    }
    if (isOneOf(lower, {"content-tagging", "contenttagging", "content tagging"})) {
        return AppleOnDeviceRoute::contentTagging();
    }
    if (hasFileScheme(trimmedModel)) {
        return AppleOnDeviceRoute::adapterFile(fileURLPath(trimmedModel).value_or(trimmedModel));
    }
    if (trimmedModel.starts_with("~/")) {
        return AppleOnDeviceRoute::adapterFile(
            joinedPath(homeDirectoryOrRoot(), std::string_view(trimmedModel).substr(2)));
    }
    if (trimmedModel.starts_with("/")) return AppleOnDeviceRoute::adapterFile(trimmedModel);
    return AppleOnDeviceRoute::adapterName(trimmedModel);
}

}  // namespace sagely
