#pragma once

#include <QLabel>
#include <QString>

// A label that tests and the keyboard can find by its name.
inline QLabel* namedLabel(const char* name, const QString& text, QWidget* parent)
{
    auto* l = new QLabel(text, parent);
    l->setObjectName(QLatin1String(name));
    return l;
}
