#include "support/ResourceBundle.h"

#include <sagely/Text.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace sagely::detail {
namespace {

bool isDirectory(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

bool isSameDirectory(const std::filesystem::path& a, const std::filesystem::path& b) {
    std::error_code error;
    return std::filesystem::equivalent(a, b, error);
}

std::string resourceFileName(std::string_view name, std::string_view extension) {
    std::string file(name);
    if (!extension.empty()) file.append(".").append(extension);
    return file;
}

std::optional<std::string> acceptedText(const std::filesystem::path& path,
                                        std::string_view requiredMarker) {
    std::optional<std::string> contents = readTextFile(path);
    if (contents && contents->find(requiredMarker) == std::string::npos) return std::nullopt;
    return contents;
}

}  // namespace

std::vector<std::filesystem::path> bundleCandidates(const ProcessPaths& process,
                                                    const InstallLayout& layout) {
    std::vector<std::filesystem::path> candidates = process.hostResourceDirectories;
    auto addFolderAndData = [&](const std::filesystem::path& folder,
                                const std::filesystem::path& toData) {
        if (folder.empty()) return;
        candidates.push_back(folder);
        if (!toData.empty()) candidates.push_back((folder / toData).lexically_normal());
    };
    addFolderAndData(process.libraryDirectory, layout.dataFromLibrary);
    addFolderAndData(process.executableDirectory, layout.dataFromExecutable);
    if (!layout.linkedData.empty()) candidates.push_back(layout.linkedData);
    if (!layout.installedData.empty()) candidates.push_back(layout.installedData);
    return candidates;
}

std::optional<std::filesystem::path> findResourceBundle(
    const std::vector<std::filesystem::path>& candidates) {
    for (const std::filesystem::path& candidate : candidates) {
        if (candidate.empty() || !isDirectory(candidate)) continue;
        std::filesystem::path bundle = candidate / kResourceBundleName;
        if (isDirectory(bundle)) return bundle;
    }
    return std::nullopt;
}

std::filesystem::path resourceBundleOrAbort(const std::vector<std::filesystem::path>& candidates) {
    if (std::optional<std::filesystem::path> bundle = findResourceBundle(candidates))
        return *bundle;
    std::fputs("unable to find bundle named SagelyKit_SagelyCore\n", stderr);
    std::fflush(stderr);
    std::abort();
}

const std::filesystem::path& resourceBundleDirectory() {
    static const std::filesystem::path bundle =
        resourceBundleOrAbort(bundleCandidates(platformProcessPaths(), builtInstallLayout()));
    return bundle;
}

const std::vector<std::filesystem::path>& hostResourceDirectories() {
    static const std::vector<std::filesystem::path> directories =
        platformProcessPaths().hostResourceDirectories;
    return directories;
}

ResourceLocations processResourceLocations() {
    return {resourceBundleDirectory(), hostResourceDirectories()};
}

std::optional<std::string> readTextFile(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
    try {
        std::ifstream file(path, std::ios::binary);
        if (!file) return std::nullopt;
        std::string contents{std::istreambuf_iterator<char>(file),
                             std::istreambuf_iterator<char>()};
        if (file.bad() || contents.empty() || !text::isValidUtf8(contents)) return std::nullopt;
        return contents;
    } catch (const std::exception&) {
        return std::nullopt;  // a read error mid-file: treated like any unreadable file
    }
}

std::optional<std::string> findTextResource(const ResourceLocations& locations,
                                            std::string_view name, std::string_view extension,
                                            std::string_view requiredMarker) {
    const std::string file = resourceFileName(name, extension);
    if (auto found = acceptedText(locations.kitBundle / file, requiredMarker)) return found;
    for (const std::filesystem::path& directory : locations.hostDirectories) {
        if (isSameDirectory(directory, locations.kitBundle)) continue;
        if (auto found = acceptedText(directory / file, requiredMarker)) return found;
    }
    return std::nullopt;
}

}  // namespace sagely::detail
