#pragma once

#include <QWidget>

class AppContext;
class QComboBox;
class QLabel;
class QLineEdit;

// The branch configuration: bank name, branch name, Comm Port and terminal
// font size.
class frmConfigure : public QWidget
{
    Q_OBJECT
public:
    explicit frmConfigure(AppContext& ctx, QWidget* parent = nullptr);

    void Form_Load();
    void cmdUpdate_Click();

private:
    void showDevice();

    AppContext& m_ctx;
    QLineEdit* m_bankName = nullptr;
    QLineEdit* m_branchName = nullptr;
    QComboBox* m_comPort = nullptr;
    QComboBox* m_fontSize = nullptr;
    QLabel* m_device = nullptr;
};
