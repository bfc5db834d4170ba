#pragma once

#include <QList>
#include <QRadioButton>

// An option button used from the keyboard as version 2.1's option frames
// were: the options of one parent are one tab stop, at the checked option (at
// the first while none is checked), and the arrow keys change the choice
// within them, going round at the ends.
//
// Qt does most of this for auto-exclusive buttons of one parent: an arrow
// moves the focus to the nearest option in its direction and checks it, and
// an option taking the focus becomes the only tab stop of its group. What it
// leaves out is added here: before any option had the focus every option is
// a tab stop, and afterwards the stop stays on the option last focused even
// when another is checked, so Tab or Shift+Tab could land on an option that
// is not the choice, and a screen following the focus would show that
// option's fields; an arrow checks the new option only when the one it left
// was checked; and an arrow with no option in its direction (Up or Down in a
// row, Right on the last) does nothing.
class OptionButton : public QRadioButton
{
    Q_OBJECT
public:
    OptionButton(const QString& caption, QWidget* parent);

    // The options of this one's group: the auto-exclusive option buttons of
    // its parent, in the order they were made.
    QList<QRadioButton*> options() const;
    // The option of the group that Tab and Shift+Tab reach.
    QRadioButton* tabStop() const;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void keepTabStopOnChoice();
};
