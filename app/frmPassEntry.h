#pragma once

#include "store/PasswordStore.h"

#include <QWidget>

class AppContext;
class QLineEdit;

// The administrator's password prompt in front of configuration and folder
// selection.
class frmPassEntry : public QWidget
{
    Q_OBJECT
public:
    explicit frmPassEntry(AppContext& ctx, QWidget* parent = nullptr);

    void Form_Load();
    // The check run by OK and by Enter in the password box.
    void checkPassword();

signals:
    // The password was right and the prompt has closed: open the target.
    void loginSucceeded();

private:
    // Reads the admin password; false after telling the clerk why it could
    // not be read.
    bool readPassword();

    AppContext& m_ctx;
    QLineEdit* m_password = nullptr;
    StoredPassword m_expected; // ExpectedPassword
    bool m_readFailed = false; // nothing typed may pass until it is read
};
