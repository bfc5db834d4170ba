#pragma once

#include "base/Messenger.h"
#include "widgets/OpenBoxes.h"

#include <QHash>
#include <QPointer>
#include <QWidget>

class AppContext;
class QMessageBox;
class ColourButton;
class QLabel;
class QLineEdit;
class QProgressBar;
class SendFlow;

// The send screen: agent, date and number of transactions in, the accounts
// of that agent's download file out to the terminal, with the progress.
class frmsend : public QWidget
{
    Q_OBJECT
public:
    explicit frmsend(AppContext& ctx, QWidget* parent = nullptr);

    void Form_Load();
    void ClearScreen();
    void cmdSend_Click();
    void cmdClear_Click();

    SendFlow& flow() { return *m_flow; }

    // The question asked when the screen is closed during a download.
    static QString stopQuestionText()
    {
        return QStringLiteral("A download to the hand-held terminal is under way.\nStop it and close the screen?");
    }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void showProgress(int acknowledged, int total);
    void setButtonsEnabled(bool enabled);
    // A box that does not block: the protocol goes on while it is open. A
    // text already on screen is not shown a second time.
    void showMessage(const QString& text, Messenger::Icon icon, const QString& detail);
    void askToStop();

    AppContext& m_ctx;
    SendFlow* m_flow = nullptr;
    QLineEdit* m_agent = nullptr;
    QLineEdit* m_date = nullptr;
    QLineEdit* m_transact = nullptr;
    QLabel* m_record = nullptr;
    QProgressBar* m_progress = nullptr;
    ColourButton* m_send = nullptr;
    ColourButton* m_clear = nullptr;
    ColourButton* m_exit = nullptr;
    OpenBoxes m_boxes{this};
    QPointer<QMessageBox> m_stopQuestion;
    bool m_closing = false;
};
