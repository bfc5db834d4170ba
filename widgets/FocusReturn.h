#pragma once

#include <QApplication>
#include <QPointer>
#include <QWidget>

// Where the clerk was working when a message box or a dialog opened: the
// window and the control that had its focus. Once the box has closed, the
// clerk goes on there.
class FocusReturn
{
public:
    // Remembers `window` (by default the active one) and its focus control.
    explicit FocusReturn(QWidget* window = QApplication::activeWindow());

    // Activates the window again and gives the focus to the control that
    // holds the window's focus now: the one remembered, unless the screen
    // moved the focus on purpose meanwhile (a wrong password puts it back
    // in its box). When that control is gone, hidden or disabled, the one
    // remembered takes it, if it still can. Nothing happens when the
    // window has closed. The control gets the focus with the reason of a
    // window coming back, so a handler of the focus entering it does not
    // run again.
    void restore() const;

private:
    QPointer<QWidget> m_window;
    QPointer<QWidget> m_focus;
};
