#pragma once

#include <QLatin1String>
#include <QWidget>
#include <QtGlobal>

// A screen's control by its objectName; a missing control ends the test
// run at once, naming it.
template <typename T> T* control(QWidget* form, const char* name)
{
    T* w = form->findChild<T*>(QLatin1String(name));
    if (!w)
        qFatal("control %s not found", name);
    return w;
}
