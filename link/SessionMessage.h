#pragma once

#include "base/Messenger.h"

#include <QMetaType>
#include <QString>
#include <utility>

// What a protocol session wants the user to be told. A session never shows
// it itself and never waits for it to be read: the screen shows it in a box
// that does not block (no nested event loop under a serial or timer
// handler), the command-line tool prints it, tests record it.
struct SessionMessage
{
    // None: a plain box with OK only, as some of version 2.1's messages are.
    enum class Icon { Information, Critical, None };

    SessionMessage() = default;
    SessionMessage(QString text, Icon icon, QString detail = {})
        : text(std::move(text)), icon(icon), detail(std::move(detail))
    {
    }

    QString text;
    Icon icon = Icon::Information;
    // What the message is about and what to do, where its own text does not say.
    QString detail;

    bool operator==(const SessionMessage&) const = default;
};

// The same icon as the desktop program's and the command line's message seam knows it.
inline Messenger::Icon messengerIcon(SessionMessage::Icon icon)
{
    switch (icon) {
    case SessionMessage::Icon::Critical:
        return Messenger::Icon::Critical;
    case SessionMessage::Icon::None:
        return Messenger::Icon::None;
    case SessionMessage::Icon::Information:
        break;
    }
    return Messenger::Icon::Information;
}

Q_DECLARE_METATYPE(SessionMessage)
