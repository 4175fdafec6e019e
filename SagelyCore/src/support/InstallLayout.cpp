// The install layout is fixed when the kit is configured; only this file carries it, so a new
// install prefix recompiles one file.
#include "support/ResourceBundle.h"

#ifndef SAGELY_DATA_FROM_LIBRARY
#error "SAGELY_DATA_FROM_LIBRARY is set by the build"
#endif

// A host that links the static kit through its installed CMake package gets a strong definition
// of this function compiled into it, naming the data folder of the prefix the package was found
// in (a static kit cannot tell where its archive was installed). Weak here, so that the host's
// definition wins and a host without one links unchanged.
extern "C" __attribute__((weak)) const char* sagely_linked_kit_data_directory() {
    return nullptr;
}

namespace sagely::detail {

InstallLayout builtInstallLayout() {
    const char* linked = sagely_linked_kit_data_directory();
    return {SAGELY_DATA_FROM_LIBRARY, SAGELY_DATA_FROM_EXECUTABLE,
            linked != nullptr ? std::filesystem::path(linked) : std::filesystem::path(),
            SAGELY_INSTALLED_DATA};
}

}  // namespace sagely::detail
