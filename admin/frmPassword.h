#pragma once

#include "admin/PasswordChange.h"

#include <QWidget>

class AppContext;
class QFrame;
class QLineEdit;
class QRadioButton;

// Changes one of the four passwords; asks for the old one itself.
class frmPassword : public QWidget
{
    Q_OBJECT
public:
    explicit frmPassword(AppContext& ctx, QWidget* parent = nullptr);

    void Form_Load();
    void cmdSend_Click();

private:
    PasswordChange::Selection selection() const;
    void setLengthLimit(int limit);
    // Frame5 for Software, Frame4 for Hand Held Terminal.
    void showCheckedKind();
    void clearBoxes();
    void checkOldPassword();
    // The key rule of the three boxes; true swallows the key.
    bool passwordKey(QLineEdit* box, QWidget* next, QKeyEvent* e);

    AppContext& m_ctx;
    PasswordChange m_change; // StoredAdmin, StoredUser, StoredSetup, StoredDownload
    QRadioButton* m_software = nullptr;
    QRadioButton* m_handHeld = nullptr;
    QRadioButton* m_admin = nullptr;
    QRadioButton* m_user = nullptr;
    QRadioButton* m_setup = nullptr;
    QRadioButton* m_download = nullptr;
    QFrame* m_softwareFrame = nullptr; // Frame5
    QFrame* m_terminalFrame = nullptr; // Frame4
    QLineEdit* m_old = nullptr;
    QLineEdit* m_new = nullptr;
    QLineEdit* m_confirm = nullptr;
};
