#include "platform/SystemVersionSeam.h"

namespace sagely::detail {

// Not macOS: none of the macOS-only features are offered.
OperatingSystemVersion platformOperatingSystem() {
    return {};
}

}  // namespace sagely::detail
