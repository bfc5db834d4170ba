#include "frmReceive.h"

#include "AppContext.h"
#include "ColourButton.h"
#include "ScreenParts.h"
#include "KeyHook.h"
#include "RestoreStore.h"
#include "UploadSession.h"

#include <QCloseEvent>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
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

    m_cmdSend = namedButton("cmdSend", QStringLiteral("&Receive"), this);
    auto* cmdexit = namedButton("cmdexit", QStringLiteral("&Exit"), this);
    addButtonRow(layout, {m_cmdSend, cmdexit});

    m_session = new UploadSession(ctx, this);
    m_session->setRestoreHandler([this](UploadSession& s) { RestoreStore::RestoreData(m_ctx, s.summary()); });
    connect(m_session, &UploadSession::headerReceived, m_cmdSend, [this] { m_cmdSend->setEnabled(false); });
    connect(m_session, &UploadSession::summaryDecoded, this, &frmReceive::showSummary);
    connect(m_session, &UploadSession::progress, this, &frmReceive::showProgress);
    connect(m_session, &UploadSession::busyChanged, m_busy, &QWidget::setVisible);
    // Queued: the session still sends its last request after asking to close.
    connect(m_session, &UploadSession::closeRequested, this, &QWidget::close, Qt::QueuedConnection);

    connect(m_cmdSend, &QPushButton::clicked, this, &frmReceive::cmdSend_Click);
    connect(cmdexit, &QPushButton::clicked, this, &QWidget::close);
    KeyHook::install(m_cmdSend, [this](QKeyEvent* e) {
        if (!KeyHook::isEnter(e))
            return false;
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
    m_cmdSend->setEnabled(true);
    // A port that cannot be opened is reported by the session.
    m_session->Form_Load();
}

void frmReceive::cmdSend_Click()
{
    m_session->cmdSend_Click();
}

void frmReceive::showSummary()
{
    const UploadSummary& s = m_session->summary();
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
    m_session->closePort();
    event->accept();
}
