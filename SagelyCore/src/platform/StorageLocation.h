// The per-OS half of the storage folder: where the user's application data lives.
#pragma once

#include <filesystem>

namespace sagely::detail {

/// The user's application-data folder (Application Support on macOS; $XDG_DATA_HOME, else
/// ~/.local/share, elsewhere). Empty when the system names none.
std::filesystem::path applicationDataDirectory();

}  // namespace sagely::detail
