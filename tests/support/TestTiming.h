#pragma once

#include <QtGlobal>

// Tests that wait on real time (a pseudo-terminal, a child process) multiply
// their limits by this factor. It is 1 in a normal build; the sanitizer build
// sets TONVY_TEST_TIME_FACTOR because sanitized code runs several times slower.
// What a test asserts stays the same, only how long it may take changes.
inline int testTimeFactor()
{
    bool ok = false;
    const int factor = qEnvironmentVariableIntValue("TONVY_TEST_TIME_FACTOR", &ok);
    return ok && factor > 0 ? factor : 1;
}

inline int scaledMs(int ms)
{
    return ms * testTimeFactor();
}
