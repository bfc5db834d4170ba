#include "reports/AuditTrailWindow.h"

#include "base/Messenger.h"
#include "core/AppContext.h"
#include "reports/AuditTrailModel.h"
#include "reports/SaveAdvice.h"
#include "widgets/FocusReturn.h"
#include "widgets/KeyHook.h"
#include "widgets/ScreenParts.h"

#include <QDir>
#include <QFileDialog>
#include <QHeaderView>
#include <QTableView>
#include <QVBoxLayout>

namespace {

QString chooseCsvPath(QWidget* parent, const QString& suggested)
{
    const FocusReturn back(parent);
    const QString path = QFileDialog::getSaveFileName(parent, QStringLiteral("Save CSV"), suggested,
                                                      QStringLiteral("CSV files (*.csv)"));
    back.restore();
    return path;
}

enum Column { Time, User, Action, Details, Version };

} // namespace

AuditTrailWindow::AuditTrailWindow(AppContext& ctx, AuditTrailModel* model, QWidget* parent)
    : QDialog(parent), m_ctx(ctx), m_model(model), m_choosePath(chooseCsvPath)
{
    setObjectName(QStringLiteral("auditTrailWindow"));
    setWindowTitle(QStringLiteral("Audit Trail"));
    m_model->setParent(this);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(namedLabel("lblRange", m_model->summary(), this));

    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("grdAudit"));
    m_table->setModel(m_model);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setWordWrap(false);
    m_table->setAlternatingRowColors(true);
    // Tab leaves the table for the buttons; the arrows move in it.
    m_table->setTabKeyNavigation(false);
    QHeaderView* header = m_table->horizontalHeader();
    for (int c : {Time, User, Action, Version})
        header->setSectionResizeMode(c, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(Details, QHeaderView::Stretch);
    layout->addWidget(m_table, 1);

    m_saveCsv = namedButton("cmdSaveCsv", QStringLiteral("Save &CSV"), this);
    auto* close = namedButton("cmdClose", QStringLiteral("C&lose"), this);
    addButtonRow(layout, {m_saveCsv, close});

    connect(m_saveCsv, &QPushButton::clicked, this, &AuditTrailWindow::cmdSaveCsv_Click);
    connect(close, &QPushButton::clicked, this, &QWidget::close);

    // Enter in the table moves on to Save CSV, as Enter in a field moves on
    // elsewhere on the report screen.
    KeyHook::install(m_table, [this](QKeyEvent* e) {
        if (!KeyHook::isEnter(e))
            return false;
        focusNextChild();
        return true;
    });

    m_suggestedCsv =
        QDir(QDir::homePath()).filePath(AuditTrailModel::suggestedFileName(m_model->from(), m_model->to()));
    m_table->setFocus();
}

void AuditTrailWindow::cmdSaveCsv_Click()
{
    const QString path = m_choosePath(this, m_suggestedCsv);
    if (path.isEmpty())
        return;
    QString error;
    if (!m_model->saveCsv(path, &error)) {
        m_ctx.messenger().critical(withSaveAdvice(error));
        return;
    }
    m_ctx.messenger().information(QStringLiteral("Audit trail saved in %1").arg(QDir::toNativeSeparators(path)));
}
