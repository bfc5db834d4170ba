#pragma once

#include "app/ColourButton.h"

#include <QBoxLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QString>
#include <initializer_list>

// A label that tests and the keyboard can find by its name.
inline QLabel* namedLabel(const char* name, const QString& text, QWidget* parent)
{
    auto* l = new QLabel(text, parent);
    l->setObjectName(QLatin1String(name));
    return l;
}

// A colour-changing push button found by its name.
inline ColourButton* namedButton(const char* name, const QString& caption, QWidget* parent)
{
    auto* b = new ColourButton(caption, parent);
    b->setObjectName(QLatin1String(name));
    return b;
}

// The row of a screen's buttons, at the bottom right.
inline void addButtonRow(QBoxLayout* layout, std::initializer_list<QWidget*> buttons)
{
    auto* row = new QHBoxLayout;
    row->addStretch();
    for (QWidget* b : buttons)
        row->addWidget(b);
    layout->addLayout(row);
}
