#pragma once

#include <QPushButton>

// The push button every screen uses: dark grey text on light grey normally,
// white text on mid grey while the pointer is over it. Enter or Return on the
// focused button presses it, as Space does: the clerks press Enter.
class ColourButton : public QPushButton
{
    Q_OBJECT
public:
    explicit ColourButton(const QString& caption, QWidget* parent = nullptr);

    // The two colour pairs, for any widget.
    static void SetNormalColours(QWidget* w);
    static void SetHighlightColours(QWidget* w);

    bool isHighlighted() const { return m_highlighted; }

protected:
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    bool m_highlighted = false;
};
