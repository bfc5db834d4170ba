#pragma once

#include <QFocusEvent>
#include <QObject>
#include <functional>

// Runs a handler when the focus enters one widget, as version 2.1's
// GotFocus events did. The focus coming back with its window (after a
// message box or another window) is not the user entering the control, so
// it does not count. The handler runs once the control has taken the focus.
class FocusInHook : public QObject
{
    Q_OBJECT
public:
    using Handler = std::function<void()>;

    static void install(QObject* target, Handler handler)
    {
        target->installEventFilter(new FocusInHook(target, std::move(handler)));
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::FocusIn) {
            const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
            if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason) {
                // The control takes the focus first, so that a handler moving
                // the focus on leaves no half-focused control behind.
                watched->event(event);
                m_handler();
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    FocusInHook(QObject* parent, Handler handler) : QObject(parent), m_handler(std::move(handler)) {}
    Handler m_handler;
};
