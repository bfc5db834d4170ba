#pragma once

#include <QString>

// What the clerk is told to do when a report or audit trail file chosen on
// a screen could not be written: the reason (which names the file) and the
// way out, in one message.
inline QString withSaveAdvice(const QString& why)
{
    return why + QStringLiteral(" Free some space on that disk, let this user write to that folder, or choose "
                                "another folder; then save again.");
}
