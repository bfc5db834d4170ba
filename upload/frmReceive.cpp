#include "upload/frmReceive.h"

#include "core/AppContext.h"
#include "upload/ReceiveFlow.h"
#include "widgets/ColourButton.h"
#include "widgets/KeyHook.h"
#include "widgets/MessageBoxMessenger.h"
#include "widgets/ScreenParts.h"

#include <QCloseEvent>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

frmReceive::frmReceive(AppContext& ctx, QWidget* parent) : QWidget(parent, Qt::Window), m_ctx(ctx)
{
    setObjectName(QStringLiteral("frmReceive"));
    setWindowTitle(QStringLiteral("Receive Data"));
    setFont(QFont(QStringLiteral("Arial"), 10));

    auto* layout = new QVBoxLayout(this);
    QLabel* title = addLabel("Label2", QStringLiteral("Receive Data from HandHeld"), this);
    title->setFont(QFont(QStringLiteral("Arial"), 14, QFont::Bold));
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title);

    auto* frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("Frame1"));
    frame->setFrameShape(QFrame::StyledPanel);
    // Takes the focus when Receive greys out, so that it does not pass to
    // Exit, where the next Enter would close the screen.
    frame->setFocusPolicy(Qt::ClickFocus);
    m_frame = frame;
    auto* grid = new QGridLayout(frame);
    auto row = [&](int r, const char* captionName, const QString& caption, const char* valueName) {
        grid->addWidget(addLabel(captionName, caption, frame), r, 0);
        QLabel* value = addLabel(valueName, QString(), frame);
        value->setMinimumWidth(120);
        grid->addWidget(value, r, 1);
        return value;
    };
    m_agent = row(0, "Label1", QStringLiteral("Agent ID :"), "Label4");
    m_date = row(1, "Label3", QStringLiteral("Date (ddmm) :"), "Label6");
    m_record = row(2, "Label5", QStringLiteral("Records Received :"), "lblRecord");
    m_transactions = row(3, "Label7", QStringLiteral("Total No. of Transactions:"), "TotalTransact");
    m_totalAmount = row(4, "Label8", QStringLiteral("Total Amount Collected:"), "txtTotalAmount");
    layout->addWidget(frame);

    m_busy = addLabel("Label9", QStringLiteral("Upload in Progress,Please wait ..."), this);
    m_busy->setAlignment(Qt::AlignCenter);
    m_busy->hide(); // shown only while records flow
    layout->addWidget(m_busy);

    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_progress->setRange(0, 1);
    m_progress->setValue(0);
    layout->addWidget(m_progress);

    // How the last receive ended, in words, for a clerk who has already
    // closed its box: above all that a refused one stored nothing.
    m_status = addLabel("lblStatus", QString(), this);
    m_status->setWordWrap(true);
    m_status->setMinimumWidth(360);
    layout->addWidget(m_status);

    m_cmdSend = namedButton("cmdSend", QStringLiteral("&Receive"), this);
    auto* cmdexit = namedButton("cmdexit", QStringLiteral("&Exit"), this);
    addButtonRow(layout, {m_cmdSend, cmdexit});

    m_flow = new ReceiveFlow(ctx, this);
    connect(m_flow, &ReceiveFlow::receiveEnabled, this, &frmReceive::setReceiveEnabled);
    connect(m_flow, &ReceiveFlow::summaryDecoded, this, &frmReceive::showSummary);
    connect(m_flow, &ReceiveFlow::progress, this, &frmReceive::showProgress);
    connect(m_flow, &ReceiveFlow::busyChanged, m_busy, &QWidget::setVisible);
    connect(m_flow, &ReceiveFlow::stopped, m_busy, &QWidget::hide);
    connect(m_flow, &ReceiveFlow::outcomeReady, this, [this](const RestoreStore::ReceiveOutcome& outcome) {
        m_result = outcome;
        showOutcome(outcome);
    });
    connect(m_flow, &ReceiveFlow::stopped, this, [this] {
        m_progress->setFormat(QStringLiteral("Stopped: nothing stored"));
        m_status->setText(QStringLiteral("The receive stopped before it was complete. Nothing was stored: the "
                                         "stored collections and the bank's files are as they were. Press Receive "
                                         "to receive again."));
    });
    connect(m_flow, &ReceiveFlow::message, this, &frmReceive::showMessage);
    connect(m_flow, &ReceiveFlow::crcQuestion, this, &frmReceive::askCrcQuestion);
    // Queued: the screen goes after the handler that asked for it has
    // returned.
    connect(
        m_flow, &ReceiveFlow::closeRequested, this,
        [this] {
            m_closeAllowed = true;
            close();
        },
        Qt::QueuedConnection);

    connect(m_cmdSend, &QPushButton::clicked, this, &frmReceive::cmdSend_Click);
    connect(cmdexit, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);
    // Enter on Receive starts a receive as a click does. Swallowed here, so
    // the button's own Enter handling never clicks it a second time.
    KeyHook::install(m_cmdSend, [this](QKeyEvent* e) {
        if (!KeyHook::isEnter(e))
            return false;
        if (!e->isAutoRepeat() && m_cmdSend->isEnabled())
            cmdSend_Click();
        return true;
    });
}

QLabel* frmReceive::addLabel(const char* name, const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setObjectName(QLatin1String(name));
    return label;
}

void frmReceive::Form_Load()
{
    // A port that cannot be opened is reported through the flow.
    m_flow->Form_Load();
}

void frmReceive::cmdSend_Click()
{
    m_status->clear();
    m_progress->resetFormat();
    m_flow->cmdSend_Click();
}

void frmReceive::showOutcome(const RestoreStore::ReceiveOutcome& outcome)
{
    using Result = RestoreStore::ReceiveOutcome::Result;
    const bool refused = outcome.result == Result::Refused || outcome.result == Result::Failed;
    showSummary();
    if (refused) {
        // The totals stay the terminal's, but say they were not taken.
        const QString notStored = QStringLiteral(" (not stored)");
        m_transactions->setText(m_transactions->text() + notStored);
        m_totalAmount->setText(m_totalAmount->text() + notStored);
        m_progress->setFormat(QStringLiteral("Refused: nothing stored"));
        m_status->setText(
            QStringLiteral("This receive was refused. Nothing was replaced: the stored collections and the bank's "
                           "files are as they were. To receive again, close this screen and open RECEIVE DATA "
                           "again."));
        return;
    }
    m_progress->resetFormat();
    if (outcome.result == Result::Accepted)
        m_status->setText(QStringLiteral("Accepted as received: the collections are stored and the files written "
                                         "as they came from the terminal; the choice is in the audit trail."));
    else if (outcome.result == Result::StoredWithoutBankFolder)
        m_status->setText(QStringLiteral("The collections are stored and the check listing written; the upload "
                                         "file is not written yet, as the bank information folder is missing."));
    else
        m_status->setText(QStringLiteral("The collections are stored and the upload file is written."));
}

void frmReceive::setReceiveEnabled(bool enabled)
{
    if (!enabled && m_cmdSend->hasFocus())
        m_frame->setFocus(Qt::OtherFocusReason);
    m_cmdSend->setEnabled(enabled);
}

void frmReceive::showSummary()
{
    const UploadSummary& s = m_flow->summary();
    m_agent->setText(s.AgentId);
    m_date->setText(s.CollectionDate);
    m_transactions->setText(QString::number(s.TotalTransactions));
    m_totalAmount->setText(s.totalAmountText());
}

void frmReceive::showProgress(int received, int total)
{
    m_record->setText(QStringLiteral("%1 / %2").arg(received).arg(total));
    m_progress->setRange(0, qMax(total, 1));
    m_progress->setValue(qMin(received, qMax(total, 1)));
}

QMessageBox* frmReceive::openBox(const QString& text) const
{
    return m_boxes.find(text);
}

QMessageBox* frmReceive::makeBox(const SessionMessage& message)
{
    // The same message again while its box is still up: one box is enough.
    return m_boxes.make(message.text, boxIcon(messengerIcon(message.icon)), message.detail);
}

void frmReceive::showMessage(const SessionMessage& message)
{
    QMessageBox* box = makeBox(message);
    if (box)
        decorateResultBox(box, message);
    if (m_result && !m_result->messages.isEmpty() && message == m_result->messages.constLast())
        m_result.reset();
    if (box)
        box->open();
}

void frmReceive::decorateResultBox(QMessageBox* box, const SessionMessage& message)
{
    if (!m_result || m_result->messages.isEmpty() || !(message == m_result->messages.constLast()))
        return;
    if (!m_result->reconciliation.isEmpty())
        box->setDetailedText(m_result->reconciliation.join(QLatin1Char('\n')));
    if (!m_result->mayAccept)
        return;
    QPushButton* accept = box->addButton(QStringLiteral("&Accept"), QMessageBox::AcceptRole);
    accept->setObjectName(QStringLiteral("cmdAccept"));
    accept->setToolTip(QStringLiteral("Store and write this receive as it came; the choice is written to the "
                                      "audit trail"));
    box->setDefaultButton(QMessageBox::Ok);
    connect(accept, &QPushButton::clicked, this, [this] {
        // Run after the box has closed, never from inside its handler.
        QTimer::singleShot(0, this, [this] { m_flow->acceptReceive(); });
    });
}

void frmReceive::askCrcQuestion(const SessionMessage& question)
{
    QMessageBox* box = makeBox(question);
    if (!box)
        return;
    box->setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
    box->setDefaultButton(QMessageBox::Ok);
    connect(box, &QDialog::finished, this,
            [this](int result) { m_flow->answerCrcQuestion(result == QMessageBox::Ok); });
    box->open();
}

void frmReceive::askToStop()
{
    QMessageBox* box = makeBox(SessionMessage{stopQuestionText(), SessionMessage::Icon::Information});
    if (!box)
        return;
    box->setIcon(QMessageBox::Question);
    box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    box->setDefaultButton(QMessageBox::No);
    connect(box, &QDialog::finished, this, [this](int result) {
        if (result != QMessageBox::Yes)
            return;
        m_flow->stop();
        m_closeAllowed = true;
        close();
    });
    box->open();
}

void frmReceive::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!m_loaded) {
        m_loaded = true;
        Form_Load();
    }
}

void frmReceive::closeEvent(QCloseEvent* event)
{
    if (m_flow->isRestoring()) {
        // Storing and writing the files cannot be stopped half-way.
        event->ignore();
        return;
    }
    if (!m_closeAllowed && m_flow->isBusy()) {
        // Closing now would lose the receive: ask first, without blocking.
        event->ignore();
        askToStop();
        return;
    }
    m_flow->Form_Unload();
    event->accept();
}
