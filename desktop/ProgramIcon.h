#pragma once

#include <QIcon>
#include <QList>
#include <QString>

// The program's icon, every size rendered from desktop/tonvy.svg, from the
// program's own resources: windows carry it whether or not the icon theme
// on the machine has it.
QIcon programIcon();

// The pixel sizes built into programIcon(); empty when the build had no
// rsvg-convert to render them.
QList<int> programIconSizes();

// The name of the program's desktop entry without ".desktop", which tells
// the desktop which entry, and so which icon, a window belongs to.
QString desktopEntryName();
