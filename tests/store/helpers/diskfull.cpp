// A disk in trouble, for tests, without privileges. Loaded with LD_PRELOAD:
//  - it fills up: writes that would grow a file whose path contains
//    TONVY_TEST_DISK_FULL_MATCH (default "HandHeldData.db", which includes
//    the journal) fail with ENOSPC once TONVY_TEST_DISK_FULL_AFTER bytes of
//    growth have been allowed. Writes inside a file's present size still
//    succeed, as on a real full disk. With TONVY_TEST_DISK_FULL_FROM_FILE=N
//    the first N-1 files that match (in the order they first grow; a file
//    is told by its inode, so a temporary copy and the name it is renamed
//    to are one file) grow freely and the disk fills up from the Nth on:
//    "the check listing, and everything after it". A file made after
//    another was removed may get its inode and count as that one (the
//    journals of successive transactions often do);
//  - it cannot keep what it is given: fsync and fdatasync of a file or
//    folder whose path contains TONVY_TEST_SYNC_FAIL_MATCH fail with EIO
//    (a match ending in "$" must end the path: "/data/exports$" is that
//    folder alone, not the files in it);
//  - its folders are read-only: see readonlyfolder.cpp.
// Without those variables it does nothing.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

long long grown = 0;

// The inodes of the matching files seen growing, in that order.
constexpr int MaxFiles = 256;
ino_t seen[MaxFiles];
int seenCount = 0;

// Whether the file is one of those the budget counts: the Nth matching
// file to grow, or a later one.
bool counted(ino_t inode)
{
    const char* fromText = std::getenv("TONVY_TEST_DISK_FULL_FROM_FILE");
    const long long from = fromText ? std::atoll(fromText) : 1;
    if (from <= 1)
        return true;
    for (int i = 0; i < seenCount; ++i) {
        if (seen[i] == inode)
            return i + 1 >= from;
    }
    if (seenCount < MaxFiles)
        seen[seenCount++] = inode;
    return seenCount >= from;
}

bool refused(int fd, off_t offset, size_t count)
{
    const char* budgetText = std::getenv("TONVY_TEST_DISK_FULL_AFTER");
    if (!budgetText) {
        grown = 0;
        seenCount = 0;
        return false;
    }
    if (offset < 0)
        return false;
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char target[4096];
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length <= 0)
        return false;
    target[length] = '\0';
    const char* match = std::getenv("TONVY_TEST_DISK_FULL_MATCH");
    if (!std::strstr(target, match && *match ? match : "HandHeldData.db"))
        return false;
    struct stat st;
    if (fstat(fd, &st) != 0)
        return false;
    const long long end = static_cast<long long>(offset) + static_cast<long long>(count);
    if (end <= st.st_size)
        return false;
    const long long growth = end - st.st_size;
    if (!counted(st.st_ino))
        return false;
    if (grown + growth > std::atoll(budgetText))
        return true;
    grown += growth;
    return false;
}

bool syncRefused(int fd)
{
    const char* match = std::getenv("TONVY_TEST_SYNC_FAIL_MATCH");
    if (!match || !*match)
        return false;
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char target[4096];
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length <= 0)
        return false;
    target[length] = '\0';
    const size_t matchLength = std::strlen(match);
    if (match[matchLength - 1] == '$') {
        const size_t wanted = matchLength - 1;
        return static_cast<size_t>(length) >= wanted && std::strncmp(target + length - wanted, match, wanted) == 0;
    }
    return std::strstr(target, match) != nullptr;
}

template <typename F> F next(const char* name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

ssize_t write(int fd, const void* buf, size_t count)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t)>("write");
    if (fd > 2 && refused(fd, lseek(fd, 0, SEEK_CUR), count)) {
        errno = ENOSPC;
        return -1;
    }
    return real(fd, buf, count);
}

ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
    if (refused(fd, offset, count)) {
        errno = ENOSPC;
        return -1;
    }
    return real(fd, buf, count, offset);
}

ssize_t pwrite64(int fd, const void* buf, size_t count, off64_t offset)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
    if (refused(fd, static_cast<off_t>(offset), count)) {
        errno = ENOSPC;
        return -1;
    }
    return real(fd, buf, count, offset);
}

int fsync(int fd)
{
    static auto real = next<int (*)(int)>("fsync");
    if (syncRefused(fd)) {
        errno = EIO;
        return -1;
    }
    return real(fd);
}

int fdatasync(int fd)
{
    static auto real = next<int (*)(int)>("fdatasync");
    if (syncRefused(fd)) {
        errno = EIO;
        return -1;
    }
    return real(fd);
}

} // extern "C"
