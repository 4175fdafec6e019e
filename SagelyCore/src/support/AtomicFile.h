// Whole-file reads, crash-safe whole-file replacement, the lock every host of the kit takes
// around a read-merge-write, and keeping unreadable files aside; shared by the settings file and
// the conversation files.
//
// replaceFileAtomically writes a temporary file in the destination's folder, flushes it to
// disk, renames it over the destination and flushes the folder, so at every moment the
// destination holds either its old or its new content, whole. Failures are errno values; the
// describe* functions turn them into user-facing sentences naming the file.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace sagely::detail {

/// What tells one version of a file from another: every save replaces the file by a new one, so
/// an unchanged stamp means nobody saved since.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
};

/// The stamp of the file now; none when it cannot be looked at (no file).
std::optional<FileStamp> stampOf(const std::filesystem::path& file);

/// A file's bytes in memory of their own, straight from the system (platform/LargeMemorySeam.h):
/// a 25 MB conversation file is read into it in a tenth of the time a string takes to fill.
class FileBytes {
public:
    FileBytes() = default;
    FileBytes(FileBytes&& other) noexcept;
    FileBytes& operator=(FileBytes&& other) noexcept;
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;
    ~FileBytes();

    std::string_view view() const { return {m_data, m_size}; }

    /// Room for `capacity` bytes in all, keeping those there are; false when there is no memory.
    bool reserve(std::size_t capacity);
    /// Where the next bytes go, and the count that went there (within the capacity).
    char* end() { return m_data + m_size; }
    void grow(std::size_t count) { m_size += count; }
    std::size_t size() const { return m_size; }

private:
    char* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

/// Reads the whole file into `bytes`, a buffer of the file's size;
/// 0 on success, else an errno value (ENOENT: no file). `stamp`, when given, receives the
/// stamp of the file that was read.
int readWholeFile(const std::filesystem::path& file, FileBytes& bytes, FileStamp* stamp = nullptr);
int readWholeFile(const std::filesystem::path& file, std::string& bytes,
                  FileStamp* stamp = nullptr);

/// Replaces `file` with `bytes`; 0 on success, else the errno of the step that failed, with the
/// old file untouched and no temporary file left behind. `stamp`, when given, receives the stamp
/// of the new file.
int replaceFileAtomically(const std::filesystem::path& file, std::string_view bytes,
                          FileStamp* stamp = nullptr);
/// The same, with the content given as pieces written one after the other.
int replaceFileAtomically(const std::filesystem::path& file,
                          std::span<const std::string_view> pieces, FileStamp* stamp = nullptr);

/// An advisory lock (flock) on "<file>.lock" beside the file, held for the object's lifetime.
/// Every host takes it only around its read-merge-write and the atomic replace, never across a
/// model request. The kernel drops it when the process dies, so a crash leaves nothing stuck.
/// When the lock file cannot be opened (a read-only folder) the caller goes on unlocked: its
/// write is about to fail there anyway.
class FileLock {
public:
    explicit FileLock(const std::filesystem::path& file);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool held() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

/// Moves an unreadable file to "<file>.unreadable-<UTC time>" (with "-2", "-3", … when that
/// name is taken); 0 on success (with the new name in `movedTo` when given), else the errno of
/// the rename.
int moveAside(const std::filesystem::path& file, std::filesystem::path* movedTo = nullptr);

/// Whether a file name is that of replaceFileAtomically's temporary files
/// ("." + name + ".tmp-" + six letters or digits).
bool isTemporaryFileName(std::string_view name);
/// Removes, from `folder`, temporary files of that pattern last written at least `minimumAge`
/// ago: what a crash or a kill during a save left behind. Failures are ignored.
void removeStaleTemporaryFiles(const std::filesystem::path& folder,
                               std::chrono::seconds minimumAge);
/// How old a temporary file must be before it counts as left behind.
inline constexpr std::chrono::seconds kStaleTemporaryFileAge{std::chrono::minutes(10)};

std::string describeReadFailure(const std::filesystem::path& file, int error);
std::string describeWriteFailure(const std::filesystem::path& file, int error);

/// Faults for tests of the write path. Installed process-wide by ScopedAtomicWriteFaults.
struct AtomicWriteFaults {
    /// Called after the temporary file is written and flushed, before the rename. A non-zero
    /// errno fails the write there (as a crash or an I/O error at that moment would).
    std::function<int(const std::filesystem::path& temporaryFile)> beforeRename;
    /// Writing more than this many bytes fails with ENOSPC (a full disk).
    std::optional<std::size_t> failAfterBytes;
    /// A non-zero errno fails moving an unreadable file aside (as a name too long would).
    int moveAsideError = 0;
    /// Told of every whole-file read and every replaced file (tests count loads and saves).
    std::function<void(const std::filesystem::path& file)> afterRead;
    std::function<void(const std::filesystem::path& file)> afterReplace;
};

class ScopedAtomicWriteFaults {
public:
    explicit ScopedAtomicWriteFaults(AtomicWriteFaults faults);
    ~ScopedAtomicWriteFaults();
    ScopedAtomicWriteFaults(const ScopedAtomicWriteFaults&) = delete;
    ScopedAtomicWriteFaults& operator=(const ScopedAtomicWriteFaults&) = delete;

private:
    AtomicWriteFaults m_previous;
};

}  // namespace sagely::detail
