#pragma once

#include <QString>

// The one way every screen and every protocol session tells the user
// something or asks an OK/Cancel question. The desktop program shows message
// boxes, the command-line tool prints lines, tests record what was said.
class Messenger
{
public:
    enum class Icon { None, Information, Critical };

    virtual ~Messenger() = default;

    // A message with an OK button. An empty title means the program's default
    // title. `detail` names what the message is about (the file, folder,
    // device or line) and what to do, where the message's own text, kept from
    // version 2.1, does not: a second line on the command line, informative
    // text under the message in a box.
    virtual void show(const QString& text, Icon icon, const QString& title = {}, const QString& detail = {}) = 0;

    // OK/Cancel question; true for OK.
    virtual bool askOkCancel(const QString& text, Icon icon, const QString& title = {}) = 0;

    void information(const QString& text, const QString& title = {}) { show(text, Icon::Information, title); }
    void critical(const QString& text, const QString& title = {}) { show(text, Icon::Critical, title); }
    void critical(const QString& text, const QString& title, const QString& detail)
    {
        show(text, Icon::Critical, title, detail);
    }
    void plain(const QString& text, const QString& title = {}) { show(text, Icon::None, title); }
};
