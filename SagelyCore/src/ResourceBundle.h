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

/// The directories the platform offers, in search order.
struct ResourceSearchPaths {
    /// The host's own resource directories (its "main bundle").
    std::vector<std::filesystem::path> hostResourceDirectories;
    /// Where the kit's resource directory may stand: the host's resources, the kit library's own
    /// folder, the executable's folder.
    std::vector<std::filesystem::path> bundleCandidates;
};

/// Per-OS: the search paths of the running process.
ResourceSearchPaths platformResourceSearchPaths();

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
/// the kit's bundle itself. Skips files readTextFile rejects and, when `requireComplete` is
/// set, texts without the complete manual's marker.
std::optional<std::string> findTextResource(const ResourceLocations& locations,
                                            std::string_view name, std::string_view extension,
                                            bool requireComplete);

}  // namespace sagely::detail
