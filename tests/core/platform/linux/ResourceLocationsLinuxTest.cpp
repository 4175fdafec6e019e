// Where the kit looks for the host's own resources on Linux: the program's folder and
// ../share/<program name>, the layout of an installed program.
#include "support/ResourceBundle.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace fs = std::filesystem;

TEST(LinuxResourceLocations, TheHostsResourcesAreBesideTheProgramAndInItsShareFolder) {
    fs::path executable = fs::read_symlink("/proc/self/exe");
    fs::path folder = executable.parent_path();
    auto process = sagely::detail::platformProcessPaths();
    EXPECT_EQ(process.hostResourceDirectories,
              (std::vector<fs::path>{folder, folder / ".." / "share" / executable.filename()}));
    EXPECT_EQ(process.executableDirectory, folder);
}

TEST(LinuxResourceLocations, TheLibrarysFolderIsWhereTheKitsCodeWasLoadedFrom) {
    auto process = sagely::detail::platformProcessPaths();
    // A static kit is part of this program; a shared one is a libsagelycore file of its own.
    fs::path program = fs::canonical(fs::read_symlink("/proc/self/exe")).parent_path();
    bool besideProgram = process.libraryDirectory == program;
    bool sharedLibrary = false;
    for (const auto& entry : fs::directory_iterator(process.libraryDirectory))
        sharedLibrary |= entry.path().filename().string().rfind("libsagelycore.so", 0) == 0;
    EXPECT_TRUE(besideProgram || sharedLibrary) << process.libraryDirectory;
}
