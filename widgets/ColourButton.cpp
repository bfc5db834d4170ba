#include "widgets/ColourButton.h"

#include <QKeyEvent>

namespace {
const char* const normalStyle = "QPushButton { color: #404040; background-color: #E0E0E0; "
                                "border: 1px solid #808080; padding: 4px 12px; }"
                                "QPushButton:disabled { color: #A0A0A0; }"
                                "QPushButton:focus { border: 2px solid #404040; }";
const char* const highlightStyle = "QPushButton { color: #FFFFFF; background-color: #808080; "
                                   "border: 1px solid #404040; padding: 4px 12px; }"
                                   "QPushButton:disabled { color: #C0C0C0; }"
                                   "QPushButton:focus { border: 2px solid #404040; }";
} // namespace

ColourButton::ColourButton(const QString& caption, QWidget* parent) : QPushButton(caption, parent)
{
    SetNormalColours(this);
    setAutoDefault(false);
}

void ColourButton::SetNormalColours(QWidget* w)
{
    w->setStyleSheet(QLatin1String(normalStyle));
}

void ColourButton::SetHighlightColours(QWidget* w)
{
    w->setStyleSheet(QLatin1String(highlightStyle));
}

void ColourButton::enterEvent(QEnterEvent* event)
{
    m_highlighted = true;
    SetHighlightColours(this);
    QPushButton::enterEvent(event);
}

void ColourButton::leaveEvent(QEvent* event)
{
    m_highlighted = false;
    SetNormalColours(this);
    QPushButton::leaveEvent(event);
}

void ColourButton::keyPressEvent(QKeyEvent* event)
{
    if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter) {
        QPushButton::keyPressEvent(event);
        return;
    }
    // A held key presses once: its repeats would click the button that takes
    // the focus after Enter moved it there from a text box.
    event->accept();
    if (!event->isAutoRepeat() && isEnabled())
        click();
}
