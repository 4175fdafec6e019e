// A fresh, empty directory under the system's temporary folder, removed with its content when
// the object goes away.
#pragma once

#include <filesystem>
#include <string>

namespace sagely::testing {

class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// Reads a whole file as bytes; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);
/// Writes bytes to a file, creating or replacing it.
void writeFile(const std::filesystem::path& path, const std::string& bytes);

}  // namespace sagely::testing
