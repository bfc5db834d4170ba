#pragma once

#include "widgets/ColourButton.h"

#include <QBoxLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QString>
#include <initializer_list>

// A label that tests and the keyboard can find by its name.
inline QLabel* namedLabel(const char* name, const QString& text, QWidget* parent)
{
    auto* l = new QLabel(text, parent);
    l->setObjectName(QLatin1String(name));
    return l;
}

// A colour-changing push button found by its name.
inline ColourButton* namedButton(const char* name, const QString& caption, QWidget* parent)
{
    auto* b = new ColourButton(caption, parent);
    b->setObjectName(QLatin1String(name));
    return b;
}

// The row of a screen's buttons, at the bottom right.
inline void addButtonRow(QBoxLayout* layout, std::initializer_list<QWidget*> buttons)
{
    auto* row = new QHBoxLayout;
    row->addStretch();
    for (QWidget* b : buttons)
        row->addWidget(b);
    layout->addLayout(row);
}

// Esc closes the screen as its Exit button does; the screen's own closing
// (a question while a transfer runs) still has its say. Esc is taken only
// when the control with the focus leaves it unused: an open drop-down list or
// calendar is a window of its own and closes first.
class EscapeCloses : public QObject
{
public:
    explicit EscapeCloses(QWidget* screen) : QObject(screen), m_screen(screen) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (watched == m_screen && event->type() == QEvent::KeyPress &&
            static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape &&
            static_cast<QKeyEvent*>(event)->modifiers() == Qt::NoModifier) {
            m_screen->close();
            return true;
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QWidget* m_screen;
};

inline void closeOnEscape(QWidget* screen)
{
    screen->installEventFilter(new EscapeCloses(screen));
}
