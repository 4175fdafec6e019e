#include "support/AtomicFile.h"

#include "platform/LargeMemorySeam.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
#include <mutex>
#include <system_error>
#include <utility>

namespace sagely::detail {
namespace {

std::mutex& faultsMutex() {
    static std::mutex mutex;
    return mutex;
}

AtomicWriteFaults& installedFaults() {
    static AtomicWriteFaults faults;
    return faults;
}

AtomicWriteFaults currentFaults() {
    std::lock_guard lock(faultsMutex());
    return installedFaults();
}

std::int64_t nanoseconds(const struct timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}
// The modification time to the nanosecond: st_mtim in POSIX, st_mtimespec on Apple's systems.
template <typename Stat>
auto modifiedNanoseconds(const Stat& info, int) -> decltype(nanoseconds(info.st_mtim)) {
    return nanoseconds(info.st_mtim);
}
template <typename Stat>
auto modifiedNanoseconds(const Stat& info, long) -> decltype(nanoseconds(info.st_mtimespec)) {
    return nanoseconds(info.st_mtimespec);
}

FileStamp stampFrom(const struct stat& info) {
    return {static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino),
            static_cast<std::uint64_t>(info.st_size), modifiedNanoseconds(info, 0)};
}

// The count read, or minus the errno.
ssize_t readSome(int fd, char* into, std::size_t size) {
    for (;;) {
        ssize_t n = ::read(fd, into, size);
        if (n >= 0) return n;
        if (errno != EINTR) return -errno;
    }
}

// Reads exactly the size the file had when opened, then checks for its end with a small read of
// its own, so the buffer holds the content and nothing more. A file
// that grew meanwhile is read on in pieces.
int readAll(int fd, FileBytes& bytes, std::size_t expected) {
    if (!bytes.reserve(expected)) return ENOMEM;
    while (bytes.size() < expected) {
        ssize_t n = readSome(fd, bytes.end(), expected - bytes.size());
        if (n < 0) return static_cast<int>(-n);
        if (n == 0) return 0;  // shorter than it was: it shrank meanwhile
        bytes.grow(static_cast<std::size_t>(n));
    }
    char piece[4096];
    for (;;) {
        ssize_t n = readSome(fd, piece, sizeof piece);
        if (n < 0) return static_cast<int>(-n);
        if (n == 0) return 0;
        if (!bytes.reserve(bytes.size() + static_cast<std::size_t>(n))) return ENOMEM;
        std::copy(piece, piece + n, bytes.end());
        bytes.grow(static_cast<std::size_t>(n));
    }
}

int writeAll(int fd, std::string_view bytes, std::optional<std::size_t> limit) {
    std::size_t allowed = std::min(bytes.size(), limit.value_or(bytes.size()));
    std::size_t written = 0;
    while (written < allowed) {
        ssize_t n = ::write(fd, bytes.data() + written, allowed - written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        written += static_cast<std::size_t>(n);
    }
    return written < bytes.size() ? ENOSPC : 0;
}

// Makes the rename itself durable. Some file systems cannot sync a folder; the file's own data
// is already on disk then, so a failure here is not reported.
void syncFolder(const std::filesystem::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
    return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

std::string quoted(const std::filesystem::path& path) {
    return "\u201C" + path.filename().string() + "\u201D";
}

std::string reason(int error) {
    return std::generic_category().message(error);
}

std::string utcStamp() {
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32] = {};
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
    return stamp;
}

// A kept file is never replaced: a second copy of the same second gets "-2", "-3", …
std::filesystem::path asideName(const std::filesystem::path& file) {
    std::string base = file.string() + ".unreadable-" + utcStamp();
    std::filesystem::path candidate = base;
    std::error_code ignored;
    for (int n = 2; std::filesystem::exists(std::filesystem::symlink_status(candidate, ignored));
         ++n)
        candidate = base + "-" + std::to_string(n);
    return candidate;
}

}  // namespace

FileLock::FileLock(const std::filesystem::path& file) {
    if (file.empty()) return;  // no storage folder: never a lock file in the current folder
    std::string lockFile = file.string() + ".lock";
    m_fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_fd < 0) return;
    while (::flock(m_fd, LOCK_EX) != 0) {
        if (errno == EINTR) continue;
        ::close(m_fd);  // a file system without flock: go on unlocked
        m_fd = -1;
        return;
    }
}

FileLock::~FileLock() {
    if (m_fd >= 0) ::close(m_fd);  // closing the last descriptor releases the lock
}

int moveAside(const std::filesystem::path& file, std::filesystem::path* movedTo) {
    if (int error = currentFaults().moveAsideError) return error;
    std::filesystem::path aside = asideName(file);
    if (::rename(file.c_str(), aside.c_str()) != 0) return errno;
    if (movedTo) *movedTo = std::move(aside);
    return 0;
}

std::optional<FileStamp> stampOf(const std::filesystem::path& file) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) return std::nullopt;
    return stampFrom(info);
}

FileBytes::FileBytes(FileBytes&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)),
      m_size(std::exchange(other.m_size, 0)),
      m_capacity(std::exchange(other.m_capacity, 0)) {}

FileBytes& FileBytes::operator=(FileBytes&& other) noexcept {
    FileBytes taken(std::move(other));
    std::swap(m_data, taken.m_data);
    std::swap(m_size, taken.m_size);
    std::swap(m_capacity, taken.m_capacity);
    return *this;
}

FileBytes::~FileBytes() {
    if (m_data) unmapLargeMemory(m_data, m_capacity);
}

// A file that grows while it is read doubles the room each time.
bool FileBytes::reserve(std::size_t capacity) {
    if (capacity <= m_capacity) return true;
    if (m_capacity) capacity = std::max(capacity, 2 * m_capacity);
    char* data = mapLargeMemory(capacity);
    if (!data) return false;
    std::copy(m_data, m_data + m_size, data);
    if (m_data) unmapLargeMemory(m_data, m_capacity);
    m_data = data;
    m_capacity = capacity;
    return true;
}

int readWholeFile(const std::filesystem::path& file, std::string& bytes, FileStamp* stamp) {
    FileBytes read;
    int error = readWholeFile(file, read, stamp);
    if (!error) bytes.assign(read.view());
    return error;
}

int readWholeFile(const std::filesystem::path& file, FileBytes& bytes, FileStamp* stamp) {
    bytes = FileBytes();
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    struct stat info {};
    int error = ::fstat(fd, &info) != 0 ? errno : 0;
    if (!error && S_ISDIR(info.st_mode)) error = EISDIR;
    if (!error)
        error = readAll(fd, bytes, static_cast<std::size_t>(std::max<off_t>(info.st_size, 0)));
    ::close(fd);
    if (!error && stamp) *stamp = stampFrom(info);
    if (!error) {
        if (auto observer = currentFaults().afterRead) observer(file);
    }
    return error;
}

int replaceFileAtomically(const std::filesystem::path& file, std::string_view bytes,
                          FileStamp* stamp) {
    return replaceFileAtomically(file, std::span<const std::string_view>(&bytes, 1), stamp);
}

int replaceFileAtomically(const std::filesystem::path& file,
                          std::span<const std::string_view> pieces, FileStamp* stamp) {
    if (file.empty()) return ENOENT;  // no storage folder: never the current folder instead
    AtomicWriteFaults faults = currentFaults();
    std::filesystem::path folder = folderOf(file);
    std::string temporary = (folder / ("." + file.filename().string() + ".tmp-XXXXXX")).string();
    int fd = ::mkstemp(temporary.data());
    if (fd < 0) return errno;
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    int error = 0;
    std::optional<std::size_t> allowed = faults.failAfterBytes;
    for (std::string_view piece : pieces) {
        if ((error = writeAll(fd, piece, allowed))) break;
        if (allowed) *allowed -= piece.size();
    }
    if (!error && ::fsync(fd) != 0) error = errno;
    struct stat info {};
    if (!error && ::fstat(fd, &info) != 0) error = errno;
    if (::close(fd) != 0 && !error) error = errno;
    if (!error && faults.beforeRename) error = faults.beforeRename(temporary);
    if (!error && ::rename(temporary.c_str(), file.c_str()) != 0) error = errno;
    if (error) {
        ::unlink(temporary.c_str());
        return error;
    }
    syncFolder(folder);
    if (stamp) *stamp = stampFrom(info);  // a rename keeps the inode and its modification time
    if (faults.afterReplace) faults.afterReplace(file);
    return 0;
}

bool isTemporaryFileName(std::string_view name) {
    constexpr std::string_view kMarker = ".tmp-";
    constexpr std::size_t kSuffixLength = 6;  // mkstemp's XXXXXX
    if (name.size() < 1 + kMarker.size() + kSuffixLength || name.front() != '.') return false;
    const std::size_t marker = name.size() - kSuffixLength - kMarker.size();
    if (name.substr(marker, kMarker.size()) != kMarker) return false;
    for (char c : name.substr(marker + kMarker.size()))
        if (!std::isalnum(static_cast<unsigned char>(c))) return false;
    return true;
}

void removeStaleTemporaryFiles(const std::filesystem::path& folder,
                               std::chrono::seconds minimumAge) {
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    if (error) return;
    const auto now = std::filesystem::file_time_type::clock::now();
    for (const auto& entry : entries) {
        if (!isTemporaryFileName(entry.path().filename().string())) continue;
        if (!entry.is_regular_file(error) || error) continue;
        const auto modified = entry.last_write_time(error);
        if (error || now - modified < minimumAge) continue;  // maybe a save under way elsewhere
        std::filesystem::remove(entry.path(), error);
    }
}

std::string describeReadFailure(const std::filesystem::path& file, int error) {
    if (error == EACCES || error == EPERM)
        return "The file " + quoted(file) +
               " couldn\u2019t be opened because you don\u2019t have permission to view it.";
    return "The file " + quoted(file) + " couldn\u2019t be opened. (" + reason(error) + ")";
}

std::string describeWriteFailure(const std::filesystem::path& file, int error) {
    std::string folder = quoted(folderOf(file));
    switch (error) {
        case ENOSPC:
        case EDQUOT:
            return "The file " + quoted(file) +
                   " couldn\u2019t be saved because there isn\u2019t enough space.";
        case EACCES:
        case EPERM:
            return "You don\u2019t have permission to save the file " + quoted(file) +
                   " in the folder " + folder + ".";
        case EROFS:
            return "The file " + quoted(file) +
                   " couldn\u2019t be saved because the volume is read only.";
        case ENOENT:
            return "The folder " + folder + " doesn\u2019t exist.";
        default:
            return "The file " + quoted(file) + " couldn\u2019t be saved in the folder " + folder +
                   ". (" + reason(error) + ")";
    }
}

ScopedAtomicWriteFaults::ScopedAtomicWriteFaults(AtomicWriteFaults faults) {
    std::lock_guard lock(faultsMutex());
    m_previous = std::exchange(installedFaults(), std::move(faults));
}

ScopedAtomicWriteFaults::~ScopedAtomicWriteFaults() {
    std::lock_guard lock(faultsMutex());
    installedFaults() = std::move(m_previous);
}

}  // namespace sagely::detail
