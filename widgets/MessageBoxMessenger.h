#pragma once

#include "base/Messenger.h"
#include "widgets/BoxLook.h"

class QWidget;

// Messages of the desktop program: message boxes with the given icon. The
// default title is the program's title.
class MessageBoxMessenger : public Messenger
{
public:
    static QString defaultTitle() { return defaultBoxTitle(); }

    void show(const QString& text, Icon icon, const QString& title = {}, const QString& detail = {}) override;
    bool askOkCancel(const QString& text, Icon icon, const QString& title = {}) override;
};
