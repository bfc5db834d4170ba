#include "admin/frmPassword.h"

#include "admin/FocusInHook.h"
#include "base/Messenger.h"
#include "core/AppContext.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/KeyHook.h"
#include "widgets/OptionButton.h"
#include "widgets/ScreenParts.h"

#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QVBoxLayout>

namespace {

QFrame* frame(const char* name, QWidget* parent)
{
    auto* f = new QFrame(parent);
    f->setObjectName(QLatin1String(name));
    f->setFrameShape(QFrame::StyledPanel);
    return f;
}

QRadioButton* option(const char* name, const QString& caption, QWidget* parent)
{
    auto* b = new OptionButton(caption, parent);
    b->setObjectName(QLatin1String(name));
    return b;
}

QLineEdit* passwordBox(const char* name, QWidget* parent)
{
    auto* box = new QLineEdit(parent);
    box->setObjectName(QLatin1String(name));
    box->setEchoMode(QLineEdit::Password);
    return box;
}

} // namespace

frmPassword::frmPassword(AppContext& ctx, QWidget* parent) : QWidget(parent, Qt::Window), m_ctx(ctx)
{
    setObjectName(QStringLiteral("frmPassword"));
    setWindowTitle(QStringLiteral("Password"));
    setFont(QFont(QStringLiteral("Arial"), 10));

    auto* layout = new QVBoxLayout(this);
    auto* heading = new QLabel(QStringLiteral("Password"), this);
    heading->setObjectName(QStringLiteral("Label2"));
    heading->setFont(QFont(QStringLiteral("Arial"), 14, QFont::Bold));
    heading->setAlignment(Qt::AlignCenter);
    layout->addWidget(heading);

    QFrame* outer = frame("Frame1", this);
    auto* outerLayout = new QVBoxLayout(outer);
    layout->addWidget(outer);

    QFrame* family = frame("Frame2", outer);
    auto* familyLayout = new QHBoxLayout(family);
    m_software = option("OpSoftware", QStringLiteral("Software"), family);
    m_handHeld = option("OpHandHeld", QStringLiteral("Hand Held Terminal"), family);
    familyLayout->addWidget(m_software);
    familyLayout->addWidget(m_handHeld);
    outerLayout->addWidget(family);

    m_softwareFrame = frame("Frame5", outer);
    auto* softwareLayout = new QHBoxLayout(m_softwareFrame);
    m_admin = option("OpAdmin", QStringLiteral("Admin"), m_softwareFrame);
    m_user = option("OpUser", QStringLiteral("User"), m_softwareFrame);
    softwareLayout->addWidget(m_admin);
    softwareLayout->addWidget(m_user);
    outerLayout->addWidget(m_softwareFrame);

    m_terminalFrame = frame("Frame4", outer);
    auto* terminalLayout = new QHBoxLayout(m_terminalFrame);
    m_setup = option("OpSetup", QStringLiteral("Setup"), m_terminalFrame);
    m_download = option("OpDownload", QStringLiteral("Main Screen"), m_terminalFrame);
    terminalLayout->addWidget(m_setup);
    terminalLayout->addWidget(m_download);
    outerLayout->addWidget(m_terminalFrame);

    QFrame* boxes = frame("Frame3", outer);
    auto* grid = new QGridLayout(boxes);
    auto addBox = [grid, boxes](int row, const char* labelName, const QString& caption, const char* name) {
        QLineEdit* box = passwordBox(name, boxes);
        grid->addWidget(namedLabel(labelName, caption, boxes), row, 0);
        grid->addWidget(box, row, 1);
        return box;
    };
    m_old = addBox(0, "Label6", QStringLiteral("Enter Old Password :"), "txtOldPass");
    m_new = addBox(1, "Label4", QStringLiteral("Enter New Password :"), "txtNewPass");
    m_confirm = addBox(2, "Label1", QStringLiteral("Confirm New Password :"), "txtConfirmPass");
    outerLayout->addWidget(boxes);

    auto* update = namedButton("cmdSend", QStringLiteral("&Update"), this);
    auto* exit = namedButton("cmdExit", QStringLiteral("&Exit"), this);
    addButtonRow(layout, {update, exit});

    // The screen opens on the administrator's password, the one asked most
    // often: Software and Admin chosen, the Software frame shown.
    m_software->setChecked(true);
    m_admin->setChecked(true);
    showCheckedKind();
    setLengthLimit(PasswordChange::softwareLimit);

    // The frame shown is always the checked kind's. Version 2.1 switched
    // the frames when the focus entered a kind; Tab and Shift+Tab now enter
    // the kinds only at the checked one, and the arrows check the kind they
    // move to, so the keyboard shows what it did. A mouse press focuses a
    // kind before it is checked (or not, when the pointer slides off): the
    // frame waits for the check.
    connect(m_software, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            setLengthLimit(PasswordChange::lengthLimit(false));
        showCheckedKind();
    });
    connect(m_handHeld, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            setLengthLimit(PasswordChange::lengthLimit(true));
        showCheckedKind();
    });
    for (QRadioButton* b : {m_admin, m_user, m_setup, m_download})
        FocusInHook::install(b, [this] { clearBoxes(); });
    FocusInHook::install(m_new, [this] { checkOldPassword(); });

    auto enterMoves = [](QWidget* from, QWidget* to) {
        KeyHook::install(from, [to](QKeyEvent* e) {
            if (!KeyHook::isEnter(e))
                return false;
            to->setFocus(Qt::TabFocusReason);
            return true;
        });
    };
    enterMoves(m_software, m_admin);
    enterMoves(m_handHeld, m_setup);
    for (QRadioButton* b : {m_admin, m_user, m_setup, m_download})
        enterMoves(b, m_old);
    KeyHook::install(m_old, [this](QKeyEvent* e) { return passwordKey(m_old, m_new, e); });
    KeyHook::install(m_new, [this](QKeyEvent* e) { return passwordKey(m_new, m_confirm, e); });
    KeyHook::install(m_confirm, [this, update](QKeyEvent* e) { return passwordKey(m_confirm, update, e); });

    connect(update, &QPushButton::clicked, this, &frmPassword::cmdSend_Click);
    connect(exit, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);

    Form_Load();
    m_old->setFocus();
}

void frmPassword::Form_Load()
{
    try {
        m_change.load(m_ctx.db());
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
    }
}

PasswordChange::Selection frmPassword::selection() const
{
    PasswordChange::Selection s;
    s.software = m_software->isChecked();
    s.handHeld = m_handHeld->isChecked();
    s.admin = m_admin->isChecked();
    s.user = m_user->isChecked();
    s.setup = m_setup->isChecked();
    s.download = m_download->isChecked();
    return s;
}

void frmPassword::setLengthLimit(int limit)
{
    for (QLineEdit* box : {m_old, m_new, m_confirm})
        box->setMaxLength(limit);
}

void frmPassword::showCheckedKind()
{
    const bool handHeld = m_handHeld->isChecked();
    m_softwareFrame->setVisible(!handHeld);
    m_terminalFrame->setVisible(handHeld);
}

void frmPassword::clearBoxes()
{
    for (QLineEdit* box : {m_old, m_new, m_confirm})
        box->clear();
}

bool frmPassword::passwordKey(QLineEdit* box, QWidget* next, QKeyEvent* e)
{
    if (!m_handHeld->isChecked())
        return false;
    if (KeyHook::isBackspace(e)) {
        // Arithmetic, not a deletion: "0012" becomes "1" and an empty box
        // "0", as version 2.1 did.
        box->setText(PasswordChange::backspaced(box->text()));
        box->setCursorPosition(0);
        return true;
    }
    if (KeyHook::isEnter(e)) {
        next->setFocus(Qt::TabFocusReason);
        return true;
    }
    // Only character keys are filtered; Tab, the editing keys that type
    // nothing (arrows, Delete) and Esc (which closes the screen) keep working.
    const QString text = e->text();
    if (text.isEmpty() || e->key() == Qt::Key_Tab || e->key() == Qt::Key_Backtab || e->key() == Qt::Key_Delete ||
        e->key() == Qt::Key_Escape)
        return false;
    const QChar c = KeyHook::character(e);
    return !(c >= QLatin1Char('0') && c <= QLatin1Char('9'));
}

void frmPassword::checkOldPassword()
{
    if (m_change.oldPasswordAccepted(selection(), m_old->text()))
        return;
    m_old->clear();
    m_old->setFocus(Qt::OtherFocusReason);
    m_ctx.messenger().critical(QStringLiteral("Password entered is incorrect"));
}

void frmPassword::cmdSend_Click()
{
    PasswordChange::Outcome outcome;
    try {
        outcome = PasswordChange::save(m_ctx.db(), selection(), m_new->text(), m_confirm->text());
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
        return;
    }
    if (outcome == PasswordChange::Outcome::Mismatch) {
        m_confirm->clear();
        m_confirm->setFocus(Qt::OtherFocusReason);
        m_ctx.messenger().critical(QStringLiteral("Conifrming New Password is Incorrect"));
        return;
    }
    // Shown also when no pair was chosen and nothing was written: version
    // 2.1 did so. The loaded passwords are not refreshed either.
    m_ctx.messenger().information(QStringLiteral("Data Saved Successfully"), QStringLiteral("DATA SAVE"));
}
