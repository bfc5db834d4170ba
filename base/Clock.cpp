#include "base/Clock.h"

QDateTime Clock::now() const
{
    return QDateTime::currentDateTime();
}
