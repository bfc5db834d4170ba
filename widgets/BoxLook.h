#pragma once

#include "base/Messenger.h"

#include <QMessageBox>
#include <QString>

// What every message box of the program looks like, whether it blocks
// (MessageBoxMessenger) or not (OpenBoxes).

// The icon of a box for the icon a message carries.
QMessageBox::Icon boxIcon(Messenger::Icon icon);

// The title of a box whose message names none: the program's name.
QString defaultBoxTitle();
