#pragma once

#include <QDialog>
#include <functional>

class AppContext;
class AuditTrailModel;
class ColourButton;
class QLabel;
class QTableView;

// The View window of the report screen's audit trail option: the events of
// the chosen days in a read-only table, with Save CSV.
class AuditTrailWindow : public QDialog
{
    Q_OBJECT
public:
    using SavePathChooser = std::function<QString(QWidget* parent, const QString& suggested)>;

    // Shows the events the model holds; takes the model over.
    AuditTrailWindow(AppContext& ctx, AuditTrailModel* model, QWidget* parent = nullptr);

    const AuditTrailModel& model() const { return *m_model; }
    void setSavePathChooser(SavePathChooser chooser) { m_choosePath = std::move(chooser); }
    void setSuggestedCsvPath(const QString& path) { m_suggestedCsv = path; }

    void cmdSaveCsv_Click();

private:
    AppContext& m_ctx;
    AuditTrailModel* m_model = nullptr;
    QTableView* m_table = nullptr;
    ColourButton* m_saveCsv = nullptr;
    SavePathChooser m_choosePath;
    QString m_suggestedCsv;
};
