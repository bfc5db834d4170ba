#include "widgets/OptionButton.h"

#include <QApplication>
#include <QKeyEvent>

OptionButton::OptionButton(const QString& caption, QWidget* parent) : QRadioButton(caption, parent)
{
    connect(this, &QAbstractButton::toggled, this, &OptionButton::keepTabStopOnChoice);
    keepTabStopOnChoice();
}

QList<QRadioButton*> OptionButton::options() const
{
    if (!autoExclusive() || !parentWidget())
        return {const_cast<OptionButton*>(this)};
    QList<QRadioButton*> found;
    for (QRadioButton* b : parentWidget()->findChildren<QRadioButton*>(Qt::FindDirectChildrenOnly)) {
        if (b->autoExclusive() && !b->group())
            found << b;
    }
    return found;
}

QRadioButton* OptionButton::tabStop() const
{
    const QList<QRadioButton*> group = options();
    for (QRadioButton* b : group) {
        if (b->isChecked())
            return b;
    }
    return group.isEmpty() ? nullptr : group.constFirst();
}

void OptionButton::keepTabStopOnChoice()
{
    const QRadioButton* stop = tabStop();
    for (QRadioButton* b : options()) {
        const Qt::FocusPolicy policy = b->focusPolicy();
        if (policy == Qt::NoFocus)
            continue;
        b->setFocusPolicy(b == stop ? Qt::FocusPolicy(policy | Qt::TabFocus) : Qt::FocusPolicy(policy & ~Qt::TabFocus));
    }
}

void OptionButton::focusOutEvent(QFocusEvent* event)
{
    QRadioButton::focusOutEvent(event);
    // Qt made this option the tab stop when it took the focus; leaving it,
    // the stop goes back to the choice.
    keepTabStopOnChoice();
}

void OptionButton::keyPressEvent(QKeyEvent* event)
{
    const int key = event->key();
    const bool arrow = key == Qt::Key_Left || key == Qt::Key_Right || key == Qt::Key_Up || key == Qt::Key_Down;
    if (!arrow || !autoExclusive()) {
        QRadioButton::keyPressEvent(event);
        return;
    }
    const QWidget* before = QApplication::focusWidget();
    QRadioButton::keyPressEvent(event);
    const QList<QRadioButton*> group = options();
    auto* to = qobject_cast<QRadioButton*>(QApplication::focusWidget());
    if (QApplication::focusWidget() == before || !group.contains(to)) {
        // No option in the arrow's direction: on to the next one in the
        // group's order, or back to the previous one, round the ends.
        const qsizetype count = group.size();
        const qsizetype here = group.indexOf(this);
        const bool forward = key == Qt::Key_Right || key == Qt::Key_Down;
        to = nullptr;
        for (qsizetype step = 1; step < count && !to && here >= 0; ++step) {
            QRadioButton* b = group.at((here + (forward ? step : count - step)) % count);
            if (b->isEnabled() && !b->isHidden())
                to = b;
        }
        if (!to)
            return;
        event->accept();
        if (!to->isChecked())
            to->click();
        to->setFocus(forward ? Qt::TabFocusReason : Qt::BacktabFocusReason);
        return;
    }
    // Qt checks the new option only when it left a checked one.
    if (!to->isChecked())
        to->click();
}
