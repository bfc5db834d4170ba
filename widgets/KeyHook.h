#pragma once

#include <QKeyEvent>
#include <QObject>
#include <functional>

// Runs a handler on every key press of one widget before the widget sees it,
// as version 2.1's KeyPress events did. The handler returns true to swallow
// the key.
class KeyHook : public QObject
{
    Q_OBJECT
public:
    using Handler = std::function<bool(QKeyEvent*)>;

    static void install(QObject* target, Handler handler)
    {
        target->installEventFilter(new KeyHook(target, std::move(handler)));
    }

    static bool isEnter(const QKeyEvent* e) { return e->key() == Qt::Key_Return || e->key() == Qt::Key_Enter; }
    static bool isBackspace(const QKeyEvent* e) { return e->key() == Qt::Key_Backspace; }
    // A printable key's character, or a null QChar.
    static QChar character(const QKeyEvent* e) { return e->text().size() == 1 ? e->text().at(0) : QChar(); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress)
            return m_handler(static_cast<QKeyEvent*>(event));
        return QObject::eventFilter(watched, event);
    }

private:
    KeyHook(QObject* parent, Handler handler) : QObject(parent), m_handler(std::move(handler)) {}
    Handler m_handler;
};
