// The per-OS half of OperatingSystem.h: each platform folder defines this function once.
#pragma once

#include <sagely/OperatingSystem.h>

namespace sagely::detail {

OperatingSystemVersion platformOperatingSystem();

}  // namespace sagely::detail
