#pragma once

#include "link/SessionMessage.h"
#include "upload/RestoreStore.h"
#include "widgets/OpenBoxes.h"

#include <QHash>
#include <QPointer>
#include <QWidget>
#include <optional>

class AppContext;
class ColourButton;
class QLabel;
class QMessageBox;
class QProgressBar;
class ReceiveFlow;

// The receive screen: the operator takes the day's collections off the
// terminal. The receive itself is the receive flow's; this screen only
// wires its controls to it and shows its messages in boxes that never block
// (the exchange goes on while a box is open), one box of a kind at a time.
class frmReceive : public QWidget
{
    Q_OBJECT
public:
    explicit frmReceive(AppContext& ctx, QWidget* parent = nullptr);

    // Screen load: Receive enabled, port opened, the shared completion cleared.
    void Form_Load();
    // Receive pressed, or Enter on it.
    void cmdSend_Click();

    ReceiveFlow& flow() { return *m_flow; }

    // The box now showing this text, if any (tests answer it).
    QMessageBox* openBox(const QString& text) const;

    static QString stopQuestionText()
    {
        return QStringLiteral("A receive is in progress. Stop it and close the screen?\n\nNothing of this "
                              "receive will be stored; it can be received again later.");
    }

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QLabel* addLabel(const char* name, const QString& text, QWidget* parent);
    void showSummary();
    // Progress, totals and the status line after the restore step.
    void showOutcome(const RestoreStore::ReceiveOutcome& outcome);
    void showProgress(int received, int total);
    void setReceiveEnabled(bool enabled);
    void showMessage(const SessionMessage& message);
    void askCrcQuestion(const SessionMessage& question);
    void askToStop();
    // The last box of a receive's result carries its reconciliation (Show
    // Details) and, after a refusal the clerk may overrule, an Accept button.
    void decorateResultBox(QMessageBox* box, const SessionMessage& message);
    QMessageBox* makeBox(const SessionMessage& message);

    AppContext& m_ctx;
    ReceiveFlow* m_flow = nullptr;
    bool m_loaded = false;
    bool m_closeAllowed = false;
    OpenBoxes m_boxes{this};
    std::optional<RestoreStore::ReceiveOutcome> m_result; // until its last message is shown

    ColourButton* m_cmdSend = nullptr;
    QWidget* m_frame = nullptr;
    QLabel* m_agent = nullptr;        // Label4
    QLabel* m_date = nullptr;         // Label6
    QLabel* m_record = nullptr;       // lblRecord
    QLabel* m_transactions = nullptr; // TotalTransact
    QLabel* m_totalAmount = nullptr;  // txtTotalAmount
    QLabel* m_busy = nullptr;         // Label9
    QLabel* m_status = nullptr;       // lblStatus
    QProgressBar* m_progress = nullptr;
};
