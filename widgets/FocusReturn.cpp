#include "widgets/FocusReturn.h"

namespace {

bool canTakeFocus(const QWidget* w, const QWidget* window)
{
    return w && w->window() == window && w->isVisible() && w->isEnabled();
}

} // namespace

FocusReturn::FocusReturn(QWidget* window) : m_window(window ? window->window() : nullptr)
{
    if (m_window)
        m_focus = m_window->focusWidget();
}

void FocusReturn::restore() const
{
    if (!m_window || !m_window->isVisible())
        return;
    m_window->activateWindow();
    QWidget* target = m_window->focusWidget();
    if (!canTakeFocus(target, m_window))
        target = m_focus;
    if (canTakeFocus(target, m_window))
        target->setFocus(Qt::ActiveWindowFocusReason);
}
