#include "download/frmsend.h"

#include "core/AppContext.h"
#include "download/EntryLimits.h"
#include "download/SendFlow.h"
#include "widgets/ColourButton.h"
#include "widgets/FocusReturn.h"
#include "widgets/KeyHook.h"
#include "widgets/MessageBoxMessenger.h"
#include "widgets/ScreenParts.h"

#include <QCloseEvent>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QVBoxLayout>

namespace {

QLineEdit* makeBox(const char* name, int maxLength, QWidget* parent)
{
    auto* box = new QLineEdit(parent);
    box->setObjectName(QLatin1String(name));
    box->setMaxLength(maxLength);
    return box;
}

QLabel* makeLabel(const QString& text, const char* name, QWidget* buddy, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setObjectName(QLatin1String(name));
    label->setBuddy(buddy);
    return label;
}

// A box's key filter: `allowed` and Backspace pass, Enter moves the focus to
// `next`, any other character is swallowed. Keys without a character (arrows,
// Delete, Tab) are left alone, as they never reached version 2.1's filter,
// and so is Esc, which types nothing and closes the screen.
void filterKeys(QLineEdit* box, QChar highest, QWidget* next)
{
    KeyHook::install(box, [highest, next](QKeyEvent* e) {
        if (KeyHook::isEnter(e)) {
            next->setFocus(Qt::OtherFocusReason);
            return true;
        }
        if (KeyHook::isBackspace(e) || e->key() == Qt::Key_Tab || e->key() == Qt::Key_Backtab ||
            e->key() == Qt::Key_Escape)
            return false;
        const QChar c = KeyHook::character(e);
        if (c.isNull() && e->text().isEmpty())
            return false;
        return !(c >= QLatin1Char('0') && c <= highest);
    });
}

// Enter on a focused button presses it, as it did on version 2.1's screen.
// Both the press and the release of the key are taken here, so a button
// that also answers Enter by itself (on either) is still pressed once.
class EnterPresses : public QObject
{
public:
    explicit EnterPresses(ColourButton* button) : QObject(button), m_button(button) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
            return QObject::eventFilter(watched, event);
        auto* key = static_cast<QKeyEvent*>(event);
        if (!KeyHook::isEnter(key))
            return QObject::eventFilter(watched, event);
        if (event->type() == QEvent::KeyPress && !key->isAutoRepeat() && m_button->isEnabled())
            m_button->click();
        return true;
    }

private:
    ColourButton* m_button;
};

void pressOnEnter(ColourButton* button)
{
    button->installEventFilter(new EnterPresses(button));
}

} // namespace

frmsend::frmsend(AppContext& ctx, QWidget* parent) : QWidget(parent, Qt::Window), m_ctx(ctx)
{
    setObjectName(QStringLiteral("frmsend"));
    setWindowTitle(QStringLiteral("Send Data"));
    m_flow = new SendFlow(ctx, this);

    auto* layout = new QVBoxLayout(this);
    auto* frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("Frame1"));
    frame->setFrameShape(QFrame::StyledPanel);
    auto* grid = new QGridLayout(frame);

    m_agent = makeBox("txtAgent", 15, frame);
    m_date = makeBox("txtDate", 8, frame);
    m_transact = makeBox("txtTransact", EntryLimits::TransactionsWidth, frame);
    m_record = new QLabel(frame);
    m_record->setObjectName(QStringLiteral("lblRecord"));
    m_record->setMinimumWidth(120);

    grid->addWidget(makeLabel(QStringLiteral("&Agent ID :"), "Label1", m_agent, frame), 0, 0);
    grid->addWidget(m_agent, 0, 1);
    grid->addWidget(makeLabel(QStringLiteral("Date (ddmm) :"), "Label2", m_date, frame), 1, 0);
    grid->addWidget(m_date, 1, 1);
    grid->addWidget(makeLabel(QStringLiteral("No. of Transactions :"), "Label3", m_transact, frame), 2, 0);
    grid->addWidget(m_transact, 2, 1);
    grid->addWidget(makeLabel(QStringLiteral("Record Sent :"), "Label4", m_record, frame), 3, 0);
    grid->addWidget(m_record, 3, 1);
    layout->addWidget(frame);

    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_progress->setRange(0, 1);
    m_progress->setValue(0);
    m_progress->setTextVisible(false);
    // Where the focus waits while Send and Clear are greyed out: Enter there
    // does nothing, where on Exit it would close the screen mid-download.
    m_progress->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(m_progress);

    m_send = namedButton("cmdSend", QStringLiteral("&Send"), this);
    m_clear = namedButton("cmdClear", QStringLiteral("&Clear"), this);
    m_exit = namedButton("cmdExit", QStringLiteral("&Exit"), this);
    addButtonRow(layout, {m_send, m_clear, m_exit});

    setTabOrder(m_agent, m_date);
    setTabOrder(m_date, m_transact);
    setTabOrder(m_transact, m_send);
    setTabOrder(m_send, m_clear);
    setTabOrder(m_clear, m_exit);

    filterKeys(m_agent, QLatin1Char('9'), m_date);
    filterKeys(m_date, QLatin1Char('9'), m_transact);
    // Only 0 to 7 can be typed here, on purpose: the terminal takes no more.
    filterKeys(m_transact, QLatin1Char('7'), m_send);
    pressOnEnter(m_send);
    pressOnEnter(m_clear);
    pressOnEnter(m_exit);

    connect(m_send, &QPushButton::clicked, this, &frmsend::cmdSend_Click);
    connect(m_clear, &QPushButton::clicked, this, &frmsend::cmdClear_Click);
    connect(m_exit, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);
    connect(m_flow, &SendFlow::buttonsEnabled, this, &frmsend::setButtonsEnabled);
    connect(m_flow, &SendFlow::progress, this, &frmsend::showProgress);
    connect(m_flow, &SendFlow::message, this, &frmsend::showMessage);

    Form_Load();
    m_agent->setFocus();
}

void frmsend::Form_Load()
{
    m_agent->clear();
    m_date->clear();
    m_transact->clear();
    m_record->clear();
    m_flow->Form_Load();
}

void frmsend::ClearScreen()
{
    m_agent->clear();
    m_date->clear();
    m_transact->clear();
    m_record->clear();
    m_agent->setFocus();
}

void frmsend::cmdClear_Click()
{
    m_agent->clear();
    m_date->clear();
    m_transact->clear();
}

void frmsend::cmdSend_Click()
{
    if (m_flow->busy())
        return;
    QString transactions = m_transact->text();
    const SendFlow::Result result = m_flow->cmdSend(m_agent->text(), m_date->text(), transactions);
    if (transactions != m_transact->text())
        m_transact->setText(transactions);
    if (result == SendFlow::Result::AgentMissing)
        m_agent->setFocus();
    else if (result == SendFlow::Result::DateMissing)
        m_date->setFocus();
    else if (result == SendFlow::Result::Started) {
        m_progress->setRange(0, qMax(m_flow->job().recordCount, 1));
        m_progress->setValue(0);
    }
}

void frmsend::showProgress(int acknowledged, int total)
{
    m_record->setText(QStringLiteral("%1 / %2").arg(acknowledged).arg(total));
    m_progress->setRange(0, qMax(total, 1));
    m_progress->setValue(qBound(0, acknowledged, qMax(total, 1)));
}

void frmsend::setButtonsEnabled(bool enabled)
{
    if (!enabled) {
        // A disabled widget hands the focus to the next one in the chain,
        // which is Exit: park it where Enter is harmless instead.
        QWidget* focus = focusWidget();
        if (!focus || focus == m_send || focus == m_clear)
            m_progress->setFocus(Qt::OtherFocusReason);
    }
    m_send->setEnabled(enabled);
    m_clear->setEnabled(enabled);
    if (enabled && focusWidget() == m_progress)
        m_send->setFocus(Qt::OtherFocusReason);
}

void frmsend::showMessage(const QString& text, Messenger::Icon icon, const QString& detail)
{
    if (m_closing)
        return;
    if (QMessageBox* box = m_boxes.make(text, boxIcon(icon), detail))
        box->open();
}

void frmsend::askToStop()
{
    if (m_stopQuestion)
        return;
    auto* box = new QMessageBox(QMessageBox::Question, MessageBoxMessenger::defaultTitle(), stopQuestionText(),
                                QMessageBox::Yes | QMessageBox::No, this);
    box->setObjectName(QStringLiteral("StopQuestion"));
    box->setDefaultButton(QMessageBox::No);
    box->setAttribute(Qt::WA_DeleteOnClose);
    m_stopQuestion = box;
    const FocusReturn back(this);
    connect(box, &QMessageBox::finished, this, [this, box, back](int) {
        if (box->standardButton(box->clickedButton()) != QMessageBox::Yes) {
            // The download goes on and so does the clerk, where they were.
            back.restore();
            return;
        }
        m_flow->stopTransfer();
        // Closed once the box has gone, not from inside its own signal.
        QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
    });
    box->open();
}

void frmsend::closeEvent(QCloseEvent* event)
{
    if (m_flow->busy()) {
        event->ignore();
        askToStop();
        return;
    }
    m_closing = true;
    m_flow->Form_Unload();
    m_boxes.closeAll();
    if (m_stopQuestion)
        m_stopQuestion->close();
    QWidget::closeEvent(event);
}
