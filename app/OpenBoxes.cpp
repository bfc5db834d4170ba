#include "app/OpenBoxes.h"

#include "app/MessageBoxMessenger.h"

#include <QWidget>

QMessageBox::Icon boxIcon(Messenger::Icon icon)
{
    switch (icon) {
    case Messenger::Icon::Information:
        return QMessageBox::Information;
    case Messenger::Icon::Critical:
        return QMessageBox::Critical;
    case Messenger::Icon::None:
        break;
    }
    return QMessageBox::NoIcon;
}

QMessageBox* OpenBoxes::find(const QString& text) const
{
    const QPointer<QMessageBox> box = m_boxes.value(text);
    return box && box->isVisible() ? box.data() : nullptr;
}

QMessageBox* OpenBoxes::make(const QString& text, QMessageBox::Icon icon, const QString& detail)
{
    if (QMessageBox* open = find(text)) {
        open->raise();
        return nullptr;
    }
    auto* box = new QMessageBox(icon, MessageBoxMessenger::defaultTitle(), text, QMessageBox::Ok, m_screen);
    box->setObjectName(QStringLiteral("MessageBox"));
    box->setInformativeText(detail);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // The clerk goes on where they were: the screen is made active again and
    // its focus widget (which the screen may have moved meanwhile, as when
    // Send is enabled again) takes the keys.
    QPointer<QWidget> screen = m_screen;
    QObject::connect(box, &QDialog::finished, m_screen, [screen] {
        if (!screen || !screen->isVisible())
            return;
        screen->activateWindow();
        if (QWidget* focus = screen->focusWidget(); focus && focus->isVisible() && focus->isEnabled())
            focus->setFocus(Qt::OtherFocusReason);
    });
    m_boxes.insert(text, box);
    return box;
}

void OpenBoxes::closeAll()
{
    for (const QPointer<QMessageBox>& box : std::as_const(m_boxes)) {
        if (box)
            box->close();
    }
}
