#include "Clock.h"

QDateTime Clock::now() const
{
    return QDateTime::currentDateTime();
}
