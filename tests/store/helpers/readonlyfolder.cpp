// A read-only folder, for tests, whoever runs them: root writes through
// chmod 555, so the folder is made read-only here instead, as a read-only
// mount or a tree the user may not write would be. Loaded with LD_PRELOAD
// (part of the same shim as diskfull.cpp): with
// TONVY_TEST_READONLY_FOLDER=DIR, nothing in DIR or under it can be
// created, opened for writing, renamed, linked, removed or made: each
// such call fails with TONVY_TEST_READONLY_ERRNO ("EROFS" for a read-only
// file system; otherwise EACCES, no permission). Reading goes on.
// Without the variable it does nothing.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

template <typename F> F next(const char* name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

int refusal()
{
    const char* text = std::getenv("TONVY_TEST_READONLY_ERRNO");
    return text && std::strcmp(text, "EROFS") == 0 ? EROFS : EACCES;
}

// The absolute form of path (relative to dirfd), its last part kept as
// given and the folder above it resolved; false when it cannot be told.
bool absoluteOf(int dirfd, const char* path, char* out, size_t size)
{
    if (!path || !*path)
        return false;
    // Room for a folder and a path of PATH_MAX each.
    char joined[2 * PATH_MAX + 2];
    if (path[0] == '/') {
        std::snprintf(joined, sizeof joined, "%s", path);
    } else {
        char base[PATH_MAX];
        if (dirfd == AT_FDCWD) {
            if (!getcwd(base, sizeof base))
                return false;
        } else {
            char link[64];
            std::snprintf(link, sizeof link, "/proc/self/fd/%d", dirfd);
            const ssize_t n = readlink(link, base, sizeof base - 1);
            if (n <= 0)
                return false;
            base[n] = '\0';
        }
        std::snprintf(joined, sizeof joined, "%s/%s", base, path);
    }
    // The folder above the last part, resolved (the file itself may not
    // exist yet).
    size_t length = std::strlen(joined);
    while (length > 1 && joined[length - 1] == '/')
        joined[--length] = '\0';
    char* slash = std::strrchr(joined, '/');
    char parent[PATH_MAX];
    if (slash == joined) {
        std::snprintf(parent, sizeof parent, "/");
    } else {
        *slash = '\0';
        if (!realpath(joined, parent))
            std::snprintf(parent, sizeof parent, "%s", joined);
        *slash = '/';
    }
    std::snprintf(out, size, "%s%s%s", parent, std::strcmp(parent, "/") == 0 ? "" : "/", slash + 1);
    return true;
}

// Whether path (relative to dirfd) is the read-only folder or inside it.
bool readOnly(int dirfd, const char* path)
{
    const char* folderText = std::getenv("TONVY_TEST_READONLY_FOLDER");
    if (!folderText || !*folderText)
        return false;
    char folder[PATH_MAX];
    if (!realpath(folderText, folder))
        std::snprintf(folder, sizeof folder, "%s", folderText);
    char target[4 * PATH_MAX];
    if (!absoluteOf(dirfd, path, target, sizeof target))
        return false;
    const size_t n = std::strlen(folder);
    return std::strncmp(target, folder, n) == 0 && (target[n] == '\0' || target[n] == '/');
}

bool writes(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

bool refused(int dirfd, const char* path, int flags)
{
    if (!writes(flags) || !readOnly(dirfd, path))
        return false;
    errno = refusal();
    return true;
}

bool refusedChange(int dirfd, const char* path)
{
    if (!readOnly(dirfd, path))
        return false;
    errno = refusal();
    return true;
}

mode_t modeOf(int flags, va_list args)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    static auto real = next<int (*)(const char*, int, ...)>("open");
    va_list args;
    va_start(args, flags);
    const mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refused(AT_FDCWD, path, flags))
        return -1;
    return real(path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    static auto real = next<int (*)(const char*, int, ...)>("open64");
    va_list args;
    va_start(args, flags);
    const mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refused(AT_FDCWD, path, flags))
        return -1;
    return real(path, flags, mode);
}

int openat(int dirfd, const char* path, int flags, ...)
{
    static auto real = next<int (*)(int, const char*, int, ...)>("openat");
    va_list args;
    va_start(args, flags);
    const mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refused(dirfd, path, flags))
        return -1;
    return real(dirfd, path, flags, mode);
}

int openat64(int dirfd, const char* path, int flags, ...)
{
    static auto real = next<int (*)(int, const char*, int, ...)>("openat64");
    va_list args;
    va_start(args, flags);
    const mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refused(dirfd, path, flags))
        return -1;
    return real(dirfd, path, flags, mode);
}

int creat(const char* path, mode_t mode)
{
    static auto real = next<int (*)(const char*, mode_t)>("creat");
    if (refused(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC))
        return -1;
    return real(path, mode);
}

int rename(const char* from, const char* to)
{
    static auto real = next<int (*)(const char*, const char*)>("rename");
    if (refusedChange(AT_FDCWD, from) || refusedChange(AT_FDCWD, to))
        return -1;
    return real(from, to);
}

int renameat(int fromfd, const char* from, int tofd, const char* to)
{
    static auto real = next<int (*)(int, const char*, int, const char*)>("renameat");
    if (refusedChange(fromfd, from) || refusedChange(tofd, to))
        return -1;
    return real(fromfd, from, tofd, to);
}

int renameat2(int fromfd, const char* from, int tofd, const char* to, unsigned int flags)
{
    static auto real = next<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
    if (refusedChange(fromfd, from) || refusedChange(tofd, to))
        return -1;
    return real(fromfd, from, tofd, to, flags);
}

int link(const char* from, const char* to)
{
    static auto real = next<int (*)(const char*, const char*)>("link");
    if (refusedChange(AT_FDCWD, to))
        return -1;
    return real(from, to);
}

int linkat(int fromfd, const char* from, int tofd, const char* to, int flags)
{
    static auto real = next<int (*)(int, const char*, int, const char*, int)>("linkat");
    if (refusedChange(tofd, to))
        return -1;
    return real(fromfd, from, tofd, to, flags);
}

int unlink(const char* path)
{
    static auto real = next<int (*)(const char*)>("unlink");
    if (refusedChange(AT_FDCWD, path))
        return -1;
    return real(path);
}

int unlinkat(int dirfd, const char* path, int flags)
{
    static auto real = next<int (*)(int, const char*, int)>("unlinkat");
    if (refusedChange(dirfd, path))
        return -1;
    return real(dirfd, path, flags);
}

int rmdir(const char* path)
{
    static auto real = next<int (*)(const char*)>("rmdir");
    if (refusedChange(AT_FDCWD, path))
        return -1;
    return real(path);
}

int mkdir(const char* path, mode_t mode)
{
    static auto real = next<int (*)(const char*, mode_t)>("mkdir");
    // A folder that is there already is said to be there, as the system does.
    struct stat st;
    if (stat(path, &st) != 0 && refusedChange(AT_FDCWD, path))
        return -1;
    return real(path, mode);
}

int mkdirat(int dirfd, const char* path, mode_t mode)
{
    static auto real = next<int (*)(int, const char*, mode_t)>("mkdirat");
    struct stat st;
    if (fstatat(dirfd, path, &st, 0) != 0 && refusedChange(dirfd, path))
        return -1;
    return real(dirfd, path, mode);
}

} // extern "C"
