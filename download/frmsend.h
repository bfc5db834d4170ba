#pragma once

#include <QWidget>

class AppContext;
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

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void showProgress(int acknowledged, int total);
    void setButtonsEnabled(bool enabled);

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
};
