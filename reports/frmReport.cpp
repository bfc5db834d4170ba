#include "reports/frmReport.h"

#include "base/Clock.h"
#include "base/Messenger.h"
#include "core/AppContext.h"
#include "reports/AuditTrailModel.h"
#include "reports/SaveAdvice.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/FocusReturn.h"
#include "widgets/KeyHook.h"
#include "widgets/OptionButton.h"
#include "widgets/ScreenParts.h"

#include <QDateEdit>
#include <QDir>
#include <QEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QVBoxLayout>
#include <memory>

namespace {

QString chooseCsvPath(QWidget* parent, const QString& suggested)
{
    const FocusReturn back(parent);
    QFileDialog dialog(parent, QStringLiteral("Export CSV"), suggested, QStringLiteral("CSV files (*.csv)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("csv"));
    dialog.selectFile(suggested);
    const bool chosen = dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty();
    back.restore();
    return chosen ? dialog.selectedFiles().constFirst() : QString();
}

QDateEdit* datePicker(const char* name, QWidget* parent)
{
    auto* picker = new QDateEdit(parent);
    picker->setObjectName(QLatin1String(name));
    picker->setCalendarPopup(true);
    // English month abbreviations, as on the printed reports.
    picker->setLocale(QLocale::c());
    picker->setDisplayFormat(QStringLiteral("dd-MMM-yyyy"));
    return picker;
}

} // namespace

frmReport::frmReport(AppContext& ctx, QWidget* parent)
    : QWidget(parent, Qt::Window), m_ctx(ctx), m_choosePath(chooseCsvPath)
{
    setObjectName(QStringLiteral("frmReport"));
    setWindowTitle(QStringLiteral("Report"));

    auto* layout = new QVBoxLayout(this);

    auto* options = new QFrame(this);
    options->setObjectName(QStringLiteral("Frame1"));
    options->setFrameShape(QFrame::StyledPanel);
    auto* optionRow = new QHBoxLayout(options);
    m_optReport1 = new OptionButton(QStringLiteral("Report1"), options);
    m_optReport1->setObjectName(QStringLiteral("OptReport1"));
    m_optReport1->setToolTip(QStringLiteral("Daily collection summary"));
    m_optReport2 = new OptionButton(QStringLiteral("Report2"), options);
    m_optReport2->setObjectName(QStringLiteral("OptReport2"));
    m_optReport2->setToolTip(QStringLiteral("Agent collection summary"));
    m_optAudit = new OptionButton(QStringLiteral("Audit Trail"), options);
    m_optAudit->setObjectName(QStringLiteral("OptAudit"));
    m_optAudit->setToolTip(QStringLiteral("Audit trail of the chosen days"));
    optionRow->addWidget(m_optReport1);
    optionRow->addWidget(m_optReport2);
    optionRow->addWidget(m_optAudit);
    layout->addWidget(options);

    auto* limits = new QFrame(this);
    limits->setObjectName(QStringLiteral("Frame2"));
    limits->setFrameShape(QFrame::StyledPanel);
    auto* grid = new QGridLayout(limits);
    m_from = datePicker("FromDTPicker", limits);
    m_to = datePicker("ToDTPicker", limits);
    m_lbAgentID = namedLabel("lbAgentID", QStringLiteral("Agent ID :"), limits);
    m_lbAccountNo = namedLabel("lbAccountNo", QStringLiteral("Account No :"), limits);
    m_agentID = new QLineEdit(limits);
    m_agentID->setObjectName(QStringLiteral("txtAgentID"));
    m_accountNo = new QLineEdit(limits);
    m_accountNo->setObjectName(QStringLiteral("txtAccountNo"));
    grid->addWidget(namedLabel("lbFromDate", QStringLiteral("From Date :"), limits), 0, 0);
    grid->addWidget(m_from, 0, 1);
    grid->addWidget(namedLabel("lbToDate", QStringLiteral("To Date :"), limits), 1, 0);
    grid->addWidget(m_to, 1, 1);
    grid->addWidget(m_lbAgentID, 2, 0);
    grid->addWidget(m_agentID, 2, 1);
    grid->addWidget(m_lbAccountNo, 3, 0);
    grid->addWidget(m_accountNo, 3, 1);
    layout->addWidget(limits);

    auto* buttons = new QHBoxLayout;
    m_view = namedButton("cmdView", QStringLiteral("&View"), this);
    m_export = namedButton("cmdExport", QStringLiteral("Export &CSV"), this);
    m_exit = namedButton("cmdExit", QStringLiteral("&Exit"), this);
    buttons->addWidget(m_view);
    buttons->addWidget(m_export);
    buttons->addStretch();
    buttons->addWidget(m_exit);
    layout->addLayout(buttons);

    setTabOrder(m_optReport1, m_optReport2);
    setTabOrder(m_optReport2, m_optAudit);
    setTabOrder(m_optAudit, m_from);
    setTabOrder(m_from, m_to);
    setTabOrder(m_to, m_agentID);
    setTabOrder(m_agentID, m_accountNo);
    setTabOrder(m_accountNo, m_view);
    setTabOrder(m_view, m_export);
    setTabOrder(m_export, m_exit);

    connect(m_optReport1, &QRadioButton::clicked, this, &frmReport::OptReport1_Click);
    connect(m_optReport2, &QRadioButton::clicked, this, &frmReport::OptReport2_Click);
    connect(m_optAudit, &QRadioButton::clicked, this, &frmReport::OptAudit_Click);
    m_optReport1->installEventFilter(this);
    m_optReport2->installEventFilter(this);
    m_optAudit->installEventFilter(this);
    connect(m_view, &QPushButton::clicked, this, &frmReport::cmdView_Click);
    connect(m_export, &QPushButton::clicked, this, &frmReport::cmdExport_Click);
    connect(m_exit, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);

    // Enter in either limit moves on, as Tab would; other keys pass unchanged.
    // The dates are entry fields too, and Enter moves on from them as well.
    const auto enterMovesOn = [this](QKeyEvent* e) {
        if (!KeyHook::isEnter(e))
            return false;
        focusNextChild();
        return true;
    };
    KeyHook::install(m_agentID, enterMovesOn);
    KeyHook::install(m_accountNo, enterMovesOn);
    KeyHook::install(m_from, enterMovesOn);
    KeyHook::install(m_to, enterMovesOn);

    Form_Load();
}

void frmReport::Form_Load()
{
    const QDate today = m_ctx.clock().now().date();
    m_from->setDate(today);
    m_to->setDate(today);
    // The daily summary is the one most asked for, so it is chosen at the
    // start, with its agent and account inputs showing.
    m_optReport1->setChecked(true);
    OptReport1_Click();
    m_optReport1->setFocus();
}

bool frmReport::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::FocusIn) {
        if (watched == m_optReport1)
            OptReport1_Click();
        else if (watched == m_optReport2)
            OptReport2_Click();
        else if (watched == m_optAudit)
            OptAudit_Click();
    }
    return QWidget::eventFilter(watched, event);
}

void frmReport::OptReport1_Click()
{
    if (m_optReport1->isChecked())
        showAgentAndAccount(true);
}

void frmReport::OptReport2_Click()
{
    if (m_optReport2->isChecked())
        showAgentAndAccount(false);
}

void frmReport::OptAudit_Click()
{
    if (m_optAudit->isChecked())
        showAgentAndAccount(false);
}

void frmReport::showAgentAndAccount(bool shown)
{
    m_agentID->setVisible(shown);
    m_accountNo->setVisible(shown);
    m_lbAgentID->setVisible(shown);
    m_lbAccountNo->setVisible(shown);
}

ReportKind frmReport::selectedKind() const
{
    return m_optReport2->isChecked() ? ReportKind::Agent : ReportKind::Daily;
}

bool frmReport::auditChosen() const
{
    return m_optAudit->isChecked();
}

ReportLimits frmReport::limits() const
{
    ReportLimits l;
    l.from = m_from->date();
    l.to = m_to->date();
    // The agent and account limit the daily summary only.
    if (m_optReport1->isChecked()) {
        l.agentId = m_agentID->text().trimmed();
        l.accountNo = m_accountNo->text().trimmed();
    }
    return l;
}

bool frmReport::limitsAccepted()
{
    QString error;
    const ReportLimits l = limits();
    try {
        // A database deleted or replaced since the screen opened is said so,
        // not read from the file SQLite still holds.
        m_ctx.db().ensureInPlace();
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
        return false;
    }
    // An agent that names no stored agent, or several, is said so rather
    // than shown as an empty report.
    if (!ReportData::checkLimits(l, &error) || !ReportData::checkAgent(m_ctx.db(), l, &error)) {
        m_ctx.messenger().critical(error);
        return false;
    }
    return true;
}

ReportHeader frmReport::header() const
{
    return ReportHeader{m_ctx.settings.BankName, m_ctx.settings.BranchName, m_ctx.clock().now().date()};
}

void frmReport::cmdView_Click()
{
    if (!limitsAccepted())
        return;
    if (auditChosen()) {
        viewAuditTrail();
        return;
    }
    // One preview at a time: a new View replaces the one still open.
    if (m_preview)
        m_preview->close();

    ReportPreview* preview = nullptr;
    try {
        // Only the page breaks are read here; each page reads its rows when
        // it is shown.
        preview = new ReportPreview(m_ctx, selectedKind(), limits(), header(), this);
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
        return;
    }
    preview->setAttribute(Qt::WA_DeleteOnClose);
    giveKeysBackWhenClosed(preview);
    preview->setSuggestedPdfPath(suggestedPath(QStringLiteral("pdf")));
    m_preview = preview;
    preview->resize(900, 700);
    preview->show();
}

void frmReport::giveKeysBackWhenClosed(QDialog* window)
{
    // The clerk goes on where View was pressed.
    const FocusReturn back(this);
    connect(window, &QDialog::finished, this, [back] { back.restore(); });
}

QString frmReport::suggestedPath(const QString& suffix) const
{
    QString folder = m_ctx.settings.ReportPath;
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = m_ctx.dataDir.isEmpty() ? QDir::homePath() : m_ctx.dataDir;
    const ReportLimits l = limits();
    if (auditChosen())
        return QDir(folder).filePath(AuditTrailModel::suggestedFileName(l.from, l.to));
    const QString name =
        QStringLiteral("%1_%2_%3.%4")
            .arg(selectedKind() == ReportKind::Daily ? QStringLiteral("DailyCollection")
                                                     : QStringLiteral("AgentCollection"),
                 l.from.toString(QStringLiteral("yyyyMMdd")), l.to.toString(QStringLiteral("yyyyMMdd")), suffix);
    return QDir(folder).filePath(name);
}

void frmReport::cmdExport_Click()
{
    if (!limitsAccepted())
        return;
    if (auditChosen()) {
        exportAuditTrail();
        return;
    }
    const QString path = m_choosePath(this, suggestedPath(QStringLiteral("csv")));
    if (path.isEmpty())
        return;
    QString error;
    if (!ReportRenderer::writeCsv(m_ctx.db(), selectedKind(), limits(), path, &error)) {
        m_ctx.messenger().critical(
            error.startsWith(ReportRenderer::cannotWrite(path, QString())) ? withSaveAdvice(error) : error);
        return;
    }
    m_ctx.messenger().information(QStringLiteral("Report saved in %1").arg(QDir::toNativeSeparators(path)));
}

void frmReport::viewAuditTrail()
{
    // One audit window at a time: a new View replaces the one still open.
    if (m_auditWindow)
        m_auditWindow->close();

    auto model = std::make_unique<AuditTrailModel>();
    QString error;
    const ReportLimits l = limits();
    if (!model->load(m_ctx.db(), l.from, l.to, &error)) {
        m_ctx.messenger().critical(error);
        return;
    }
    if (model->rowCount() == 0) {
        m_ctx.messenger().information(AuditTrailModel::emptyRangeMessage(l.from, l.to));
        return;
    }
    auto* window = new AuditTrailWindow(m_ctx, model.release(), this);
    window->setAttribute(Qt::WA_DeleteOnClose);
    giveKeysBackWhenClosed(window);
    window->setSuggestedCsvPath(suggestedPath(QStringLiteral("csv")));
    m_auditWindow = window;
    window->resize(900, 500);
    window->show();
}

void frmReport::exportAuditTrail()
{
    AuditTrailModel model;
    QString error;
    const ReportLimits l = limits();
    if (!model.load(m_ctx.db(), l.from, l.to, &error)) {
        m_ctx.messenger().critical(error);
        return;
    }
    const QString path = m_choosePath(this, suggestedPath(QStringLiteral("csv")));
    if (path.isEmpty())
        return;
    if (!model.saveCsv(path, &error)) {
        m_ctx.messenger().critical(withSaveAdvice(error));
        return;
    }
    m_ctx.messenger().information(QStringLiteral("Audit trail saved in %1").arg(QDir::toNativeSeparators(path)));
}
