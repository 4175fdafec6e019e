// URL checks shared by the settings (which endpoint a request would use) and the transport.
#pragma once

#include <string_view>

namespace sagely::detail {

/// Whether the text reads as an absolute URL (scheme and host).
bool isParsableURL(std::string_view url);

}  // namespace sagely::detail
