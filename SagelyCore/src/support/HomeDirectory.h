// The user's home directory, for the few places that resolve "~" (storage folders, adapter
// paths).
#pragma once

#include <filesystem>

namespace sagely::detail {

/// HOME when it is set and non-empty (in a sandboxed macOS app that is the container), else the
/// password database's entry, so services started without a login environment still find it.
/// Empty when the system names none.
std::filesystem::path homeDirectory();

}  // namespace sagely::detail
