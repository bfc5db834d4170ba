#include "widgets/OpenBoxes.h"

#include "widgets/BoxLook.h"
#include "widgets/FocusReturn.h"

#include <QEvent>
#include <QWidget>

namespace {

// A screen activated under its own box, as when loading the screen opened a
// box before the screen was shown and activated, would take keys it cannot
// use while the box blocks it: the box takes them instead.
class KeysToTheBox : public QObject
{
public:
    explicit KeysToTheBox(QWidget* screen) : QObject(screen), m_screen(screen) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (watched == m_screen && event->type() == QEvent::WindowActivate) {
            const QList<QMessageBox*> boxes = m_screen->findChildren<QMessageBox*>(Qt::FindDirectChildrenOnly);
            for (auto it = boxes.crbegin(); it != boxes.crend(); ++it) {
                if ((*it)->isVisible()) {
                    (*it)->activateWindow();
                    break;
                }
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QWidget* m_screen;
};

} // namespace

OpenBoxes::OpenBoxes(QWidget* screen) : m_screen(screen)
{
    screen->installEventFilter(new KeysToTheBox(screen));
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
    auto* box = new QMessageBox(icon, defaultBoxTitle(), text, QMessageBox::Ok, m_screen);
    box->setObjectName(QStringLiteral("MessageBox"));
    box->setInformativeText(detail);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // The clerk goes on where they were on the screen.
    const FocusReturn back(m_screen);
    QObject::connect(box, &QDialog::finished, m_screen, [back] { back.restore(); });
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
