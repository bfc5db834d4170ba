#include "app/frmMain.h"

#include "app/frmPassEntry.h"
#include "base/Messenger.h"
#include "base/Version.h"
#include "core/AppContext.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/ScreenParts.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QDir>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QVBoxLayout>

frmMain::frmMain(AppContext& ctx, const ScreenRegistry& screens, QWidget* parent)
    : QWidget(parent), m_ctx(ctx), m_screens(screens)
{
    setObjectName(QStringLiteral("frmMain"));
    setWindowTitle(QStringLiteral("Tonvy Hand-Held Interface Software"));

    auto* layout = new QVBoxLayout(this);
    auto* label1 = new QLabel(QStringLiteral("Tonvy Hand-Held Interface Software"), this);
    label1->setObjectName(QStringLiteral("Label1"));
    QFont titleFont(QStringLiteral("Arial"), 16, QFont::Bold);
    label1->setFont(titleFont);
    label1->setAlignment(Qt::AlignCenter);
    auto* label2 = new QLabel(QStringLiteral("Version %1 Meskavorin").arg(programVersion()), this);
    label2->setObjectName(QStringLiteral("Label2"));
    label2->setFont(QFont(QStringLiteral("Arial"), 10));
    label2->setAlignment(Qt::AlignCenter);
    // Which data folder is in use, for whoever has to find or back it up: it
    // differs between an installed program and one run from its build folder.
    auto* dataFolder = new QLabel(QStringLiteral("Data folder: %1").arg(QDir::toNativeSeparators(ctx.dataDir)), this);
    dataFolder->setObjectName(QStringLiteral("lblDataFolder"));
    dataFolder->setFont(QFont(QStringLiteral("Arial"), 8));
    dataFolder->setAlignment(Qt::AlignCenter);
    layout->addWidget(label1);
    layout->addWidget(label2);
    layout->addWidget(dataFolder);

    auto* frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("Frame1"));
    frame->setFrameShape(QFrame::StyledPanel);
    auto* grid = new QGridLayout(frame);
    layout->addWidget(frame);

    struct Entry
    {
        const char* name;
        const char* caption;
        int row, col;
    };
    const Entry entries[] = {
        {"cmdSend", "&SEND DATA", 0, 0},      {"cmdReceive", "&RECEIVE DATA", 0, 1},
        {"cmdConfigure", "&CONFIGURE", 1, 0}, {"cmdDrive", "&DRIVE SELECTION", 1, 1},
        {"cmdPassword", "P&ASSWORD", 2, 0},   {"cmdReport", "RE&PORT", 2, 1},
        {"cmdExit", "&EXIT", 3, 0},
    };
    for (const Entry& e : entries) {
        ColourButton* b = addButton(e.name, QString::fromLatin1(e.caption));
        if (e.row == 3)
            grid->addWidget(b, e.row, 0, 1, 2);
        else
            grid->addWidget(b, e.row, e.col);
    }

    auto wire = [this](const char* name, Screen screen) {
        auto* b = findChild<ColourButton*>(QLatin1String(name));
        b->setEnabled(m_screens.has(screen));
        connect(b, &QPushButton::clicked, this, [this, screen] { showScreen(screen); });
    };
    wire("cmdReceive", Screen::Receive);
    wire("cmdSend", Screen::Send);
    wire("cmdPassword", Screen::Password);
    wire("cmdReport", Screen::Report);

    auto* configure = findChild<ColourButton*>(QStringLiteral("cmdConfigure"));
    configure->setEnabled(m_screens.has(Screen::Configure));
    connect(configure, &QPushButton::clicked, this, [this] { showLogin(false); });
    auto* drive = findChild<ColourButton*>(QStringLiteral("cmdDrive"));
    drive->setEnabled(m_screens.has(Screen::Drive));
    connect(drive, &QPushButton::clicked, this, [this] { showLogin(true); });

    connect(findChild<ColourButton*>(QStringLiteral("cmdExit")), &QPushButton::clicked, this, &QWidget::close);
}

frmMain::~frmMain()
{
    m_ending = true;
    for (auto& [screen, widget] : m_open)
        delete widget.data();
    delete m_passEntry.data();
}

ColourButton* frmMain::addButton(const char* name, const QString& caption)
{
    auto* b = namedButton(name, caption, this);
    b->setMinimumHeight(36);
    b->setFont(QFont(QStringLiteral("Arial"), 10, QFont::Bold));
    return b;
}

void frmMain::Form_Load()
{
    try {
        if (!m_ctx.settings.load(m_ctx.db()))
            m_ctx.messenger().critical(QStringLiteral("Please Select CommPort and BankName"));
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
    }
}

QWidget* frmMain::openScreen(Screen screen) const
{
    const auto it = m_open.find(screen);
    return it == m_open.end() ? nullptr : it->second.data();
}

QWidget* frmMain::showScreen(Screen screen)
{
    QWidget* w = openScreen(screen);
    if (!w) {
        w = m_screens.create(screen, m_ctx);
        if (!w)
            return nullptr;
        w->setAttribute(Qt::WA_DeleteOnClose);
        connect(w, &QObject::destroyed, this, &frmMain::screenClosed);
        m_open[screen] = w;
    }
    if (screen == Screen::Report) {
        // The only modal screen: the menu waits until it is closed.
        w->setWindowModality(Qt::ApplicationModal);
    }
    w->show();
    w->raise();
    w->activateWindow();
    return w;
}

void frmMain::showLogin(bool target)
{
    m_ctx.LoginTarget = target;
    if (!m_passEntry) {
        m_passEntry = new frmPassEntry(m_ctx);
        m_passEntry->setAttribute(Qt::WA_DeleteOnClose);
        connect(m_passEntry, &QObject::destroyed, this, &frmMain::screenClosed);
        connect(m_passEntry, &frmPassEntry::loginSucceeded, this,
                [this] { showScreen(m_ctx.LoginTarget ? Screen::Drive : Screen::Configure); });
    }
    m_passEntry->show();
    m_passEntry->raise();
    m_passEntry->activateWindow();
}

void frmMain::screenClosed()
{
    // The last window open over the menu has closed: the menu takes the
    // keys again, so the clerk goes on without reaching for the mouse.
    if (m_ending || !isVisible())
        return;
    for (QWidget* top : QApplication::topLevelWidgets()) {
        if (top != this && top->isVisible())
            return;
    }
    raise();
    activateWindow();
}

void frmMain::closeEvent(QCloseEvent* event)
{
    // Unloading the menu ends the program: the other screens go with it
    // without their own closing handling.
    event->accept();
    for (auto& [screen, widget] : m_open) {
        if (widget)
            widget->hide();
    }
    if (m_passEntry)
        m_passEntry->hide();
    emit programEnded();
}
