// ResourceBundle — where the kit's shipped resources are, and how a text resource is found in
// them or in the host's own resources.
//
// The kit's resources live in a directory named "SagelyKit_SagelyCore.bundle". The host's
// resources ("the host's bundle") are the directories the platform names for the running
// program. Everything here takes its directories as arguments so that tests can point it at
// temporary folders; resourceBundleDirectory() and hostResourceDirectories() are the process's
// own answers. Thread-safe.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely::detail {

inline constexpr std::string_view kResourceBundleName = "SagelyKit_SagelyCore.bundle";

/// What the platform knows about the running process, in search order where it is a list.
struct ProcessPaths {
    /// The host's own resource directories (its "main bundle").
    std::vector<std::filesystem::path> hostResourceDirectories;
    /// The folder of the file the kit's code was loaded from: the shared library, or the
    /// executable a static kit is linked into. Empty when unknown.
    std::filesystem::path libraryDirectory;
    /// The running executable's folder. Empty when unknown.
    std::filesystem::path executableDirectory;
};

/// Per-OS: the paths of the running process.
ProcessPaths platformProcessPaths();

/// Where an installed kit keeps its resources, fixed when the kit is built. Relative paths are
/// taken from the library's and the executable's folders, so an installed tree can be moved.
struct InstallLayout {
    /// From the library folder to the kit's data folder, e.g. "../share/SagelyKit".
    std::filesystem::path dataFromLibrary;
    /// From the executable folder to the kit's data folder, e.g. "../share/SagelyKit".
    std::filesystem::path dataFromExecutable;
    /// The data folder of the installed package a host linked the static kit from, when the
    /// host's build named it. Empty otherwise.
    std::filesystem::path linkedData;
    /// The data folder under the install prefix the kit was built for.
    std::filesystem::path installedData;
};

/// The layout this build of the kit was configured with.
InstallLayout builtInstallLayout();

/// Where the kit's resource directory may stand, in order: the host's resource directories, the
/// library's folder and the data folder beside it, the executable's folder and the data folder
/// beside it, the linked package's data folder, the install prefix's data folder. Unknown folders
/// are left out.
std::vector<std::filesystem::path> bundleCandidates(const ProcessPaths& process,
                                                    const InstallLayout& layout);

/// The first `<candidate>/SagelyKit_SagelyCore.bundle` that exists as a directory.
std::optional<std::filesystem::path> findResourceBundle(
    const std::vector<std::filesystem::path>& candidates);

/// Like findResourceBundle, but a kit installed without its resources is a packaging error:
/// prints "unable to find bundle named SagelyKit_SagelyCore" and aborts.
std::filesystem::path resourceBundleOrAbort(const std::vector<std::filesystem::path>& candidates);

/// The process's resource bundle, located on first use and kept for the life of the process.
const std::filesystem::path& resourceBundleDirectory();

/// The process's host resource directories.
const std::vector<std::filesystem::path>& hostResourceDirectories();

/// Where text resources are looked up: the kit's bundle first, then the host's directories.
struct ResourceLocations {
    std::filesystem::path kitBundle;
    std::vector<std::filesystem::path> hostDirectories;
};

/// The process's own locations (locating the bundle, or aborting, on first use).
ResourceLocations processResourceLocations();

/// The UTF-8 text of a file, or none when it is missing, unreadable, empty or not UTF-8.
std::optional<std::string> readTextFile(const std::filesystem::path& path);

/// Looks up `<name>.<extension>` in the kit's bundle, then in each host directory that is not
/// the kit's bundle itself. Skips files readTextFile rejects and texts that do not contain
/// `requiredMarker` (an empty marker accepts any text). The caller names the marker, so the
/// lookup knows nothing of what a complete manual is.
std::optional<std::string> findTextResource(const ResourceLocations& locations,
                                            std::string_view name, std::string_view extension,
                                            std::string_view requiredMarker);

}  // namespace sagely::detail
