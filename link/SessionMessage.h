#pragma once

#include <QMetaType>
#include <QString>

// What a protocol session wants the user to be told. A session never shows
// it itself and never waits for it to be read: the screen shows it in a box
// that does not block (no nested event loop under a serial or timer
// handler), the command-line tool prints it, tests record it.
struct SessionMessage
{
    enum class Icon { Information, Critical };

    QString text;
    Icon icon = Icon::Information;

    bool operator==(const SessionMessage&) const = default;
};

Q_DECLARE_METATYPE(SessionMessage)
