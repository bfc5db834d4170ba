#pragma once

#include "base/Messenger.h"
#include "widgets/BoxLook.h"

#include <QHash>
#include <QMessageBox>
#include <QPointer>
#include <QString>

class QWidget;

// The message boxes of a screen whose transfer goes on while they are open:
// each is opened with open(), never exec(), so no nested event loop runs
// under a serial or timer handler, and a text already on screen is not
// shown a second time. When a box closes, the focus goes back to the widget
// of the screen that had it. While a box of the screen is up, the screen
// hands the keys to it whenever it is activated itself.
class OpenBoxes
{
public:
    explicit OpenBoxes(QWidget* screen);

    // A new box for the text, not yet opened, or nullptr when a box with the
    // same text is still on screen (it is raised instead). The detail, if
    // any, stands under the text as informative text.
    QMessageBox* make(const QString& text, QMessageBox::Icon icon, const QString& detail = {});
    // The box now showing this text, if any.
    QMessageBox* find(const QString& text) const;
    void closeAll();

private:
    QWidget* m_screen;
    QHash<QString, QPointer<QMessageBox>> m_boxes;
};
