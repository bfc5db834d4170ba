// The moments a program writes, for tests that kill it there. Loaded with
// LD_PRELOAD into a real tonvy-cli:
//  - TONVY_TEST_POINTS_UNDER names a folder; only files under it count.
//    A write point is a call that changes what is on the disk there: the
//    first write of a run of writes to one file (SQLite's journal, the
//    database, a file's temporary copy), an fsync or fdatasync (of a file or
//    a folder), a truncation, a rename or link into place, an unlink (the
//    journal's deletion is SQLite's commit);
//  - TONVY_TEST_POINTS_LOG names a file: every point is appended to it as
//    "N call path" (paths relative to the folder), so that a first run
//    learns how many points there are;
//  - TONVY_TEST_HOLD_AT=N holds the program at the Nth point, before the
//    call is made: the point's line is written to the file named by
//    TONVY_TEST_HOLD_NOTICE and the program waits there for ever, so that
//    the test can kill it at exactly that moment;
//  - TONVY_TEST_FIXED_TIME=SECONDS (since 1970, UTC) stops the wall clock
//    there (clock_gettime of the real-time clocks, gettimeofday, time), so
//    that two runs name and stamp their files alike. The monotonic clock
//    that time-outs are measured with runs on.
// Without those variables it does nothing.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

template <typename F> F next(const char* name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

// The real calls, for the shim's own writing.
ssize_t realWrite(int fd, const void* buf, size_t count)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t)>("write");
    return real(fd, buf, count);
}

int realOpen(const char* path, int flags, mode_t mode)
{
    static auto real = next<int (*)(const char*, int, ...)>("open");
    return real(path, flags, mode);
}

std::recursive_mutex lock;
thread_local bool inside = false;
long points = 0;
std::string lastWritten; // the file of the last point when it was a write

const char* under()
{
    const char* folder = std::getenv("TONVY_TEST_POINTS_UNDER");
    return folder && *folder ? folder : nullptr;
}

// The path relative to the folder, or empty when outside it.
std::string relative(const std::string& path)
{
    const char* folder = under();
    if (!folder)
        return {};
    const size_t length = std::strlen(folder);
    if (path.compare(0, length, folder) != 0 || (path.size() > length && path[length] != '/'))
        return {};
    return path.size() > length ? path.substr(length + 1) : std::string(".");
}

std::string pathOf(int fd)
{
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char target[4096];
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length <= 0)
        return {};
    return std::string(target, static_cast<size_t>(length));
}

std::string absolute(int dirfd, const char* path)
{
    if (!path)
        return {};
    if (path[0] == '/')
        return path;
    std::string base;
    if (dirfd == AT_FDCWD) {
        char cwd[4096];
        if (!getcwd(cwd, sizeof cwd))
            return path;
        base = cwd;
    } else {
        base = pathOf(dirfd);
    }
    return base + "/" + path;
}

void append(const char* file, const std::string& line)
{
    const int fd = realOpen(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    realWrite(fd, line.data(), line.size());
    ::close(fd);
}

// One call at a point: counted, logged, and held when it is the one asked for.
void point(const char* call, const std::string& path, const std::string& more = {})
{
    if (inside || !under())
        return;
    std::string rel = relative(path);
    if (rel.empty())
        return;
    std::lock_guard<std::recursive_mutex> guard(lock);
    inside = true;
    const bool write = std::strcmp(call, "write") == 0;
    if (write && lastWritten == path) {
        inside = false;
        return; // the same run of writes
    }
    lastWritten = write ? path : std::string();
    ++points;
    const std::string line = std::to_string(points) + " " + call + " " + rel + more + "\n";
    if (const char* log = std::getenv("TONVY_TEST_POINTS_LOG"))
        append(log, line);
    const char* holdAt = std::getenv("TONVY_TEST_HOLD_AT");
    if (holdAt && std::atol(holdAt) == points) {
        if (const char* notice = std::getenv("TONVY_TEST_HOLD_NOTICE"))
            append(notice, line);
        for (;;)
            pause(); // until the test's SIGKILL
    }
    inside = false;
}

void pointAt(const char* call, int fd)
{
    if (fd > 2 && under() && !inside)
        point(call, pathOf(fd));
}

// The stopped wall clock, or false when it runs.
bool fixedTime(time_t* seconds)
{
    const char* text = std::getenv("TONVY_TEST_FIXED_TIME");
    if (!text || !*text)
        return false;
    *seconds = static_cast<time_t>(std::atoll(text));
    return true;
}

} // namespace

extern "C" {

ssize_t write(int fd, const void* buf, size_t count)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t)>("write");
    pointAt("write", fd);
    return real(fd, buf, count);
}

ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
    pointAt("write", fd);
    return real(fd, buf, count, offset);
}

ssize_t pwrite64(int fd, const void* buf, size_t count, off64_t offset)
{
    static auto real = next<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
    pointAt("write", fd);
    return real(fd, buf, count, offset);
}

int fsync(int fd)
{
    static auto real = next<int (*)(int)>("fsync");
    pointAt("fsync", fd);
    return real(fd);
}

int fdatasync(int fd)
{
    static auto real = next<int (*)(int)>("fdatasync");
    pointAt("fdatasync", fd);
    return real(fd);
}

int ftruncate(int fd, off_t length)
{
    static auto real = next<int (*)(int, off_t)>("ftruncate");
    pointAt("ftruncate", fd);
    return real(fd, length);
}

int ftruncate64(int fd, off64_t length)
{
    static auto real = next<int (*)(int, off64_t)>("ftruncate64");
    pointAt("ftruncate", fd);
    return real(fd, length);
}

int rename(const char* from, const char* to)
{
    static auto real = next<int (*)(const char*, const char*)>("rename");
    const std::string source = relative(absolute(AT_FDCWD, from));
    point("rename", absolute(AT_FDCWD, to), source.empty() ? std::string() : " from " + source);
    return real(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to)
{
    static auto real = next<int (*)(int, const char*, int, const char*)>("renameat");
    const std::string source = relative(absolute(fromDir, from));
    point("rename", absolute(toDir, to), source.empty() ? std::string() : " from " + source);
    return real(fromDir, from, toDir, to);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags)
{
    static auto real = next<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
    const std::string source = relative(absolute(fromDir, from));
    point("rename", absolute(toDir, to), source.empty() ? std::string() : " from " + source);
    return real(fromDir, from, toDir, to, flags);
}

int link(const char* from, const char* to)
{
    static auto real = next<int (*)(const char*, const char*)>("link");
    point("link", absolute(AT_FDCWD, to));
    return real(from, to);
}

int linkat(int fromDir, const char* from, int toDir, const char* to, int flags)
{
    static auto real = next<int (*)(int, const char*, int, const char*, int)>("linkat");
    point("link", absolute(toDir, to));
    return real(fromDir, from, toDir, to, flags);
}

int unlink(const char* path)
{
    static auto real = next<int (*)(const char*)>("unlink");
    point("unlink", absolute(AT_FDCWD, path));
    return real(path);
}

int unlinkat(int dir, const char* path, int flags)
{
    static auto real = next<int (*)(int, const char*, int)>("unlinkat");
    point("unlink", absolute(dir, path));
    return real(dir, path, flags);
}

int clock_gettime(clockid_t clock, struct timespec* at)
{
    static auto real = next<int (*)(clockid_t, struct timespec*)>("clock_gettime");
    time_t seconds = 0;
    if ((clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) && fixedTime(&seconds)) {
        at->tv_sec = seconds;
        at->tv_nsec = 0;
        return 0;
    }
    return real(clock, at);
}

int gettimeofday(struct timeval* at, void* zone)
{
    static auto real = next<int (*)(struct timeval*, void*)>("gettimeofday");
    time_t seconds = 0;
    if (fixedTime(&seconds)) {
        at->tv_sec = seconds;
        at->tv_usec = 0;
        return 0;
    }
    return real(at, zone);
}

time_t time(time_t* out)
{
    static auto real = next<time_t (*)(time_t*)>("time");
    time_t seconds = 0;
    if (!fixedTime(&seconds))
        return real(out);
    if (out)
        *out = seconds;
    return seconds;
}

} // extern "C"
