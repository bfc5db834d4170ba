#pragma once

#include <QWidget>

class AppContext;
class ColourButton;
class QLabel;
class QProgressBar;
class UploadSession;

// The receive screen: the operator takes the day's collections off the
// terminal. The exchange is the upload session's, the storing and the bank
// files the restore store's; this screen only wires its controls to them.
class frmReceive : public QWidget
{
    Q_OBJECT
public:
    explicit frmReceive(AppContext& ctx, QWidget* parent = nullptr);

    // Screen load: Receive enabled, port opened, UploadDone cleared.
    void Form_Load();
    // Receive pressed, or Enter on it.
    void cmdSend_Click();

    UploadSession& session() { return *m_session; }

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QLabel* addLabel(const char* name, const QString& text, QWidget* parent);
    void showSummary();
    void showProgress(int received, int total);

    AppContext& m_ctx;
    UploadSession* m_session = nullptr;
    bool m_loaded = false;

    ColourButton* m_cmdSend = nullptr;
    QLabel* m_agent = nullptr;        // Label4
    QLabel* m_date = nullptr;         // Label6
    QLabel* m_record = nullptr;       // lblRecord
    QLabel* m_transactions = nullptr; // TotalTransact
    QLabel* m_totalAmount = nullptr;  // txtTotalAmount
    QLabel* m_busy = nullptr;         // Label9
    QProgressBar* m_progress = nullptr;
};
