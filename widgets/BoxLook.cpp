#include "widgets/BoxLook.h"

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

QString defaultBoxTitle()
{
    return QStringLiteral("Tonvy Hand-Held Interface Software");
}
