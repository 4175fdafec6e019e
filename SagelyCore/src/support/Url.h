// URL checks shared by the settings (which endpoint a request would use) and the transport.
#pragma once

#include <string>
#include <string_view>

namespace sagely::detail {

/// Whether the text reads as an absolute URL (scheme and host).
bool isParsableURL(std::string_view url);

/// The URL without its query and fragment.
std::string_view withoutQuery(std::string_view url);

/// `url` with `name=value` appended to its query, the value percent-encoded.
std::string withQueryParameter(std::string_view url, std::string_view name, std::string_view value);

}  // namespace sagely::detail
