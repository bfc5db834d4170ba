#include "widgets/MessageBoxMessenger.h"

#include "widgets/BoxLook.h"
#include "widgets/FocusReturn.h"

#include <QApplication>
#include <QMessageBox>

void MessageBoxMessenger::show(const QString& text, Icon icon, const QString& title, const QString& detail)
{
    const FocusReturn back;
    QMessageBox box(boxIcon(icon), title.isEmpty() ? defaultTitle() : title, text, QMessageBox::Ok,
                    QApplication::activeWindow());
    box.setObjectName(QStringLiteral("MessageBox"));
    box.setInformativeText(detail);
    box.exec();
    back.restore();
}

bool MessageBoxMessenger::askOkCancel(const QString& text, Icon icon, const QString& title)
{
    const FocusReturn back;
    QMessageBox box(boxIcon(icon), title.isEmpty() ? defaultTitle() : title, text,
                    QMessageBox::Ok | QMessageBox::Cancel, QApplication::activeWindow());
    box.setObjectName(QStringLiteral("MessageBox"));
    box.setDefaultButton(QMessageBox::Ok);
    const bool ok = box.exec() == QMessageBox::Ok;
    back.restore();
    return ok;
}
