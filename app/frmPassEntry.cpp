#include "app/frmPassEntry.h"

#include "base/Clock.h"
#include "base/Messenger.h"
#include "core/AppContext.h"
#include "store/AuditTrail.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/KeyHook.h"
#include "widgets/ScreenParts.h"

#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

frmPassEntry::frmPassEntry(AppContext& ctx, QWidget* parent) : QWidget(parent, Qt::Window), m_ctx(ctx)
{
    setObjectName(QStringLiteral("frmPassEntry"));
    setWindowTitle(QStringLiteral("PasswordEntry"));
    setFont(QFont(QStringLiteral("Garamond"), 11));

    auto* layout = new QVBoxLayout(this);
    auto* frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("Frame3"));
    frame->setFrameShape(QFrame::StyledPanel);
    auto* grid = new QGridLayout(frame);

    auto* label6 = new QLabel(QStringLiteral("User :"), frame);
    label6->setObjectName(QStringLiteral("Label6"));
    auto* user = new QLineEdit(QStringLiteral("Admin"), frame);
    user->setObjectName(QStringLiteral("txtOldPass"));
    user->setReadOnly(true);
    user->setFocusPolicy(Qt::NoFocus);
    auto* label7 = new QLabel(QStringLiteral("Password :"), frame);
    label7->setObjectName(QStringLiteral("Label7"));
    m_password = new QLineEdit(frame);
    m_password->setObjectName(QStringLiteral("txtNewPass"));
    m_password->setEchoMode(QLineEdit::Password);
    grid->addWidget(label6, 0, 0);
    grid->addWidget(user, 0, 1);
    grid->addWidget(label7, 1, 0);
    grid->addWidget(m_password, 1, 1);
    layout->addWidget(frame);

    auto* ok = namedButton("cmdOK", QStringLiteral("&OK"), this);
    auto* cancel = namedButton("cmdCancel", QStringLiteral("&Cancel"), this);
    addButtonRow(layout, {ok, cancel});

    connect(ok, &QPushButton::clicked, this, &frmPassEntry::checkPassword);
    connect(cancel, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);
    KeyHook::install(m_password, [this](QKeyEvent* e) {
        if (KeyHook::isEnter(e))
            checkPassword();
        return false;
    });

    Form_Load();
    m_password->setFocus();
}

void frmPassEntry::Form_Load()
{
    m_ctx.LoginPassed = false;
    readPassword();
}

bool frmPassEntry::readPassword()
{
    try {
        const PasswordStore::Row row = PasswordStore::load(m_ctx.db());
        m_expected = row.found ? row.admin : StoredPassword();
        m_readFailed = false;
        return true;
    } catch (const StoreError& e) {
        m_readFailed = true;
        m_ctx.messenger().critical(e.message());
        return false;
    }
}

void frmPassEntry::checkPassword()
{
    // A password that could not be read is read again (another program may
    // have let go of the file); until it is, nothing typed opens the screens,
    // and the clerk is told again what is wrong, not that the password was.
    if (m_readFailed && !readPassword()) {
        m_ctx.LoginPassed = false;
        m_password->clear();
        m_password->setFocus();
        return;
    }
    // The stored password is lower case and the typed one is compared as it
    // stands, so a typed capital letter is always refused (kept on purpose).
    if (!m_expected.matches(m_password->text())) {
        m_ctx.LoginPassed = false;
        AuditTrail::tryRecord(m_ctx.db(), m_ctx.clock().now(), AuditTrail::Action::Login,
                              m_ctx.LoginTarget ? QStringLiteral("failed login to the folder selection")
                                                : QStringLiteral("failed login to the configuration"));
        m_ctx.messenger().critical(QStringLiteral("Password entered is Incorrect"));
        m_password->clear();
        m_password->setFocus();
        return;
    }
    m_ctx.LoginPassed = true;
    close();
    emit loginSucceeded();
}
