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

    // A message with an OK button. An empty title means the program's default title.
    virtual void show(const QString& text, Icon icon, const QString& title = {}) = 0;

    // OK/Cancel question; true for OK.
    virtual bool askOkCancel(const QString& text, Icon icon, const QString& title = {}) = 0;

    void information(const QString& text, const QString& title = {}) { show(text, Icon::Information, title); }
    void critical(const QString& text, const QString& title = {}) { show(text, Icon::Critical, title); }
    void plain(const QString& text, const QString& title = {}) { show(text, Icon::None, title); }
};
