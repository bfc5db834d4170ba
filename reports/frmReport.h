#pragma once

#include "reports/AuditTrailWindow.h"
#include "reports/ReportPreview.h"
#include "reports/ReportRenderer.h"

#include <QPointer>
#include <QWidget>
#include <functional>

class AppContext;
class ColourButton;
class QDateEdit;
class QDialog;
class QLabel;
class QLineEdit;
class QRadioButton;

// The report screen: choose the daily or the agent collection summary and
// its limits, then view its pages (print or save as PDF there) or export its
// rows as CSV; or choose the audit trail of a range of days and view it as
// a table (save it as CSV there) or export it.
class frmReport : public QWidget
{
    Q_OBJECT
public:
    // Asked for the CSV file name; gets a suggested full path, returns the
    // chosen one or an empty string to cancel.
    using SavePathChooser = std::function<QString(QWidget* parent, const QString& suggested)>;

    explicit frmReport(AppContext& ctx, QWidget* parent = nullptr);

    void Form_Load();

    // The limits as entered; the agent and account only for the daily summary.
    // selectedKind() names a collection summary; it says nothing while the
    // audit trail is chosen.
    ReportKind selectedKind() const;
    ReportLimits limits() const;
    // The third option: the audit trail rather than a collection summary.
    bool auditChosen() const;

    // Replaces the file dialog of the CSV export (tests).
    void setSavePathChooser(SavePathChooser chooser) { m_choosePath = std::move(chooser); }

    // The preview opened by the last View, while it is open.
    ReportPreview* preview() const { return m_preview; }
    // The audit window opened by the last View of the audit trail, while it is open.
    AuditTrailWindow* auditWindow() const { return m_auditWindow; }

    void cmdView_Click();
    void cmdExport_Click();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // OptReport1/OptReport2 click and focus: show the agent and account
    // inputs for the daily summary, hide them for the agent summary.
    void OptReport1_Click();
    void OptReport2_Click();
    // OptAudit click and focus: the audit trail has the dates only.
    void OptAudit_Click();
    void showAgentAndAccount(bool shown);
    void viewAuditTrail();
    // When a window opened by View closes, the screen has the keys again.
    void giveKeysBackWhenClosed(QDialog* window);
    void exportAuditTrail();
    // Checks the limits; false after telling the user why.
    bool limitsAccepted();
    ReportHeader header() const;
    QString suggestedPath(const QString& suffix) const;

    AppContext& m_ctx;
    QRadioButton* m_optReport1 = nullptr;
    QRadioButton* m_optReport2 = nullptr;
    QRadioButton* m_optAudit = nullptr;
    QDateEdit* m_from = nullptr;
    QDateEdit* m_to = nullptr;
    QLabel* m_lbAgentID = nullptr;
    QLabel* m_lbAccountNo = nullptr;
    QLineEdit* m_agentID = nullptr;
    QLineEdit* m_accountNo = nullptr;
    ColourButton* m_view = nullptr;
    ColourButton* m_export = nullptr;
    ColourButton* m_exit = nullptr;
    QPointer<ReportPreview> m_preview;
    QPointer<AuditTrailWindow> m_auditWindow;
    SavePathChooser m_choosePath;
};
