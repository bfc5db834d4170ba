// Holds a copy of the database half-way, for tests: loaded with LD_PRELOAD,
// it stands in front of SQLite's sqlite3_backup_step. With
// TONVY_TEST_BACKUP_HOLD_AFTER=N and TONVY_TEST_BACKUP_HOLD_NOTICE=FILE,
// once N steps of a copy are made it creates FILE and waits, between two
// steps, until FILE is gone; then the copy goes on. Without the variables
// it only passes the calls on.
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

struct sqlite3_backup;

extern "C" int sqlite3_backup_step(sqlite3_backup* backup, int pages)
{
    using Step = int (*)(sqlite3_backup*, int);
    static const Step real = reinterpret_cast<Step>(dlsym(RTLD_NEXT, "sqlite3_backup_step"));
    static int steps = 0;
    const char* after = std::getenv("TONVY_TEST_BACKUP_HOLD_AFTER");
    const char* notice = std::getenv("TONVY_TEST_BACKUP_HOLD_NOTICE");
    if (after && notice && steps++ == std::atoi(after)) {
        if (FILE* f = std::fopen(notice, "w")) {
            std::fprintf(f, "%d\n", steps - 1);
            std::fclose(f);
        }
        while (::access(notice, F_OK) == 0)
            ::usleep(10000);
    }
    return real(backup, pages);
}
