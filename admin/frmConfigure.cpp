#include "admin/frmConfigure.h"

#include "admin/Configuration.h"
#include "base/Messenger.h"
#include "core/AppContext.h"
#include "download/EntryLimits.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/KeyHook.h"
#include "widgets/ScreenParts.h"

#include <QComboBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>
#include <algorithm>

frmConfigure::frmConfigure(AppContext& ctx, QWidget* parent) : QWidget(parent, Qt::Window), m_ctx(ctx)
{
    setObjectName(QStringLiteral("frmConfigure"));
    setWindowTitle(QStringLiteral("Configuration"));
    setFont(QFont(QStringLiteral("Arial"), 10));

    auto* layout = new QVBoxLayout(this);
    auto* heading = namedLabel("Label2", QStringLiteral("Configuration"), this);
    heading->setFont(QFont(QStringLiteral("Arial"), 14, QFont::Bold));
    heading->setAlignment(Qt::AlignCenter);
    layout->addWidget(heading);

    auto* frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("Frame1"));
    frame->setFrameShape(QFrame::StyledPanel);
    auto* grid = new QGridLayout(frame);
    m_bankName = new QLineEdit(frame);
    m_bankName->setObjectName(QStringLiteral("txtBankName"));
    m_branchName = new QLineEdit(frame);
    m_branchName->setObjectName(QStringLiteral("txtBranchName"));
    // The boxes hold no more than the download header has room for.
    m_bankName->setMaxLength(EntryLimits::BankNameWidth);
    m_branchName->setMaxLength(EntryLimits::BranchNameWidth);
    m_comPort = new QComboBox(frame);
    m_comPort->setObjectName(QStringLiteral("cmbComPort"));
    m_device = namedLabel("lblDevice", QString(), frame);
    m_fontSize = new QComboBox(frame);
    m_fontSize->setObjectName(QStringLiteral("cmbFontSize"));
    m_fontSize->addItems({QStringLiteral("Small"), QStringLiteral("Big")});
    m_fontSize->setCurrentIndex(0);

    grid->addWidget(namedLabel("Label3", QStringLiteral("Bank Name :"), frame), 0, 0);
    grid->addWidget(m_bankName, 0, 1, 1, 2);
    grid->addWidget(namedLabel("Label1", QStringLiteral("Branch Name :"), frame), 1, 0);
    grid->addWidget(m_branchName, 1, 1, 1, 2);
    grid->addWidget(namedLabel("Label4", QStringLiteral("Select Com. Port :"), frame), 2, 0);
    grid->addWidget(m_comPort, 2, 1);
    grid->addWidget(m_device, 2, 2);
    grid->addWidget(namedLabel("Label5", QStringLiteral("Select Font Size :"), frame), 3, 0);
    grid->addWidget(m_fontSize, 3, 1);
    layout->addWidget(frame);

    auto* update = namedButton("cmdUpdate", QStringLiteral("&Update"), this);
    auto* exit = namedButton("cmdExit", QStringLiteral("&Exit"), this);
    addButtonRow(layout, {update, exit});

    connect(update, &QPushButton::clicked, this, &frmConfigure::cmdUpdate_Click);
    connect(exit, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);
    connect(m_comPort, &QComboBox::currentIndexChanged, this, &frmConfigure::showDevice);

    // Enter in the bank name puts the port back to "1": version 2.1 did so,
    // and it is kept.
    KeyHook::install(m_bankName, [this](QKeyEvent* e) {
        if (!KeyHook::isEnter(e))
            return false;
        m_comPort->setCurrentIndex(0);
        m_comPort->setFocus(Qt::TabFocusReason);
        return true;
    });
    KeyHook::install(m_comPort, [update](QKeyEvent* e) {
        if (!KeyHook::isEnter(e))
            return false;
        update->setFocus(Qt::TabFocusReason);
        return true;
    });

    Form_Load();
}

void frmConfigure::Form_Load()
{
    for (int port = 1; port <= Configuration::portCount; ++port)
        m_comPort->addItem(QString::number(port));
    m_comPort->setCurrentIndex(0);
    showDevice();

    try {
        const Configuration::Stored stored = Configuration::load(m_ctx.db(), m_ctx.settings);
        if (!stored.found)
            return;
        m_bankName->setText(stored.bankName);
        m_branchName->setText(stored.branchName);
        if (const auto font = Configuration::fontSizeIndex(stored.fontSize))
            m_fontSize->setCurrentIndex(*font);
        // Version 2.1 failed outright on a port it could not select; an
        // empty port (a row made by the folder screen) simply shows port 1.
        if (const auto port = Configuration::portIndex(stored.commPort))
            m_comPort->setCurrentIndex(*port);
        else if (!stored.commPort.trimmed().isEmpty())
            m_ctx.messenger().critical(Configuration::badPortMessage(stored.commPort));
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
    }
}

void frmConfigure::cmdUpdate_Click()
{
    Configuration::Entry entry;
    entry.bankName = m_bankName->text();
    entry.branchName = m_branchName->text();
    entry.commPort = m_comPort->currentText();
    entry.fontSizeText = m_fontSize->currentText();
    entry.fontSizeIndex = m_fontSize->currentIndex();
    if (const QString problem = Configuration::entryProblem(entry); !problem.isEmpty()) {
        m_ctx.messenger().critical(problem);
        return;
    }
    try {
        const Configuration::Saved saved = Configuration::save(m_ctx.db(), m_ctx.settings, entry);
        if (saved.windowFontSize) {
            // Version 2.1 set the window's font to the FontSize value in
            // points (0 or 1); fonts have no size below one point.
            QFont f = font();
            f.setPointSizeF(std::max(1.0, *saved.windowFontSize));
            setFont(f);
        }
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
        return;
    }
    m_ctx.messenger().information(QStringLiteral("Data Saved Successfully"));
}

void frmConfigure::showDevice()
{
    m_device->setText(Configuration::deviceText(m_comPort->currentText(), m_ctx.dataDir, m_ctx.portOverride));
    // A ports.ini line that cannot be read: the whole reason, file and line,
    // where the label has room only for the line number.
    m_device->setToolTip(Configuration::deviceProblem(m_comPort->currentText(), m_ctx.dataDir, m_ctx.portOverride));
}
