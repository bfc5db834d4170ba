#include "admin/frmDrive.h"

#include "admin/FocusInHook.h"
#include "base/Messenger.h"
#include "core/AppContext.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/OptionButton.h"
#include "widgets/ScreenParts.h"

#include <QComboBox>
#include <QDir>
#include <QFileSystemModel>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QRadioButton>
#include <QTreeView>
#include <QVBoxLayout>

frmDrive::frmDrive(AppContext& ctx, QWidget* parent) : frmDrive(ctx, DriveList::system(), parent) {}

frmDrive::frmDrive(AppContext& ctx, DriveList drives, QWidget* parent)
    : QWidget(parent, Qt::Window), m_ctx(ctx), m_drives(std::move(drives))
{
    setObjectName(QStringLiteral("frmDrive"));
    setWindowTitle(QStringLiteral("Drive Selection"));
    setFont(QFont(QStringLiteral("Arial"), 10));

    auto* layout = new QVBoxLayout(this);
    auto* heading = namedLabel("Label2", QStringLiteral("Drive Selection"), this);
    heading->setFont(QFont(QStringLiteral("Arial"), 14, QFont::Bold));
    heading->setAlignment(Qt::AlignCenter);
    layout->addWidget(heading);

    auto* options = new QHBoxLayout;
    m_report = new OptionButton(QStringLiteral("Report Path"), this);
    m_report->setObjectName(QStringLiteral("OpReport"));
    m_bank = new OptionButton(QStringLiteral("Bank Information"), this);
    m_bank->setObjectName(QStringLiteral("OpBank"));
    options->addWidget(m_report);
    options->addWidget(m_bank);
    layout->addLayout(options);

    auto* grid = new QGridLayout;
    m_drive = new QComboBox(this);
    m_drive->setObjectName(QStringLiteral("Drive1"));
    for (const QString& root : m_drives.roots())
        m_drive->addItem(QDir::toNativeSeparators(root), root);
    m_model = new QFileSystemModel(this);
    m_model->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot | QDir::Drives);
    m_dir = new QTreeView(this);
    m_dir->setObjectName(QStringLiteral("Dir1"));
    m_dir->setModel(m_model);
    m_dir->setHeaderHidden(true);
    for (int column = 1; column < m_model->columnCount(); ++column)
        m_dir->hideColumn(column);
    m_filePath = namedLabel("lbFilePath", QString(), this);
    m_filePath->setTextInteractionFlags(Qt::TextSelectableByMouse);
    grid->addWidget(namedLabel("Label3", QStringLiteral("Select Drive :"), this), 0, 0);
    grid->addWidget(m_drive, 0, 1);
    grid->addWidget(namedLabel("Label4", QStringLiteral("Select Folder :"), this), 1, 0, Qt::AlignTop);
    grid->addWidget(m_dir, 1, 1);
    grid->addWidget(namedLabel("Label1", QStringLiteral("Report Path :"), this), 2, 0);
    grid->addWidget(m_filePath, 2, 1);
    layout->addLayout(grid);

    auto* update = namedButton("cmdSend", QStringLiteral("&Update"), this);
    auto* exit = namedButton("cmdexit", QStringLiteral("&Exit"), this);
    addButtonRow(layout, {update, exit});

    // The screen opens on the bank information folder, the one it shows at
    // load, so the option and the list agree from the start.
    m_bank->setChecked(true);
    m_bank->setFocus();

    connect(update, &QPushButton::clicked, this, &frmDrive::cmdSend_Click);
    connect(exit, &QPushButton::clicked, this, &QWidget::close);
    closeOnEscape(this);
    connect(m_drive, &QComboBox::currentIndexChanged, this, &frmDrive::Drive1_Change);
    connect(m_dir->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& current) {
        if (current.isValid() && !m_settingDir1)
            Dir1_Change(m_model->filePath(current));
    });
    // The lists show the checked option's folder, read afresh each time the
    // focus enters the option and each time the choice changes. Tab and
    // Shift+Tab enter the options only at the checked one, and the arrows
    // check the option they move to; a mouse press focuses an option before
    // it is checked (or not, when the pointer slides off), and then the
    // folder waits for the check: Update must never save the folder shown
    // for one option as the other's.
    for (QRadioButton* option : {m_bank, m_report}) {
        FocusInHook::install(option, [this, option] {
            if (option->isChecked())
                showStoredFolder(target());
        });
        connect(option, &QRadioButton::toggled, this, [this](bool on) {
            if (on)
                showStoredFolder(target());
        });
    }

    Form_Load();
}

void frmDrive::Form_Load()
{
    showDefaults();
    showStoredFolder(FolderSelection::Target::BankInfo);
}

void frmDrive::showDefaults()
{
    // The lists start on the program's folder, as version 2.1's started on
    // its current folder; lbFilePath stays empty until a choice is made.
    const QStringList roots = m_drives.roots();
    if (roots.isEmpty())
        return;
    QString folder = m_ctx.dataDir.isEmpty() ? QDir::currentPath() : m_ctx.dataDir;
    int index = DriveList::indexFor(roots, folder);
    if (index < 0) {
        index = 0;
        folder = roots.at(0);
    }
    {
        const QSignalBlocker quiet(m_drive);
        m_drive->setCurrentIndex(index);
    }
    m_driveRoot = roots.at(index);
    m_model->setRootPath(m_driveRoot);
    m_dir->setRootIndex(m_model->index(m_driveRoot));
    setDir1Quietly(m_model->index(folder));
    m_dirPath = QDir::toNativeSeparators(folder);
}

void frmDrive::showStoredFolder(FolderSelection::Target target)
{
    QString folder;
    try {
        folder = FolderSelection::existingStoredFolder(m_ctx.db(), target);
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
        return;
    }
    if (folder.isEmpty())
        return;
    const int index = DriveList::indexFor(m_drives.roots(), folder);
    if (index < 0)
        return;
    m_drive->setCurrentIndex(index);
    if (m_drive->currentData().toString() == m_driveRoot)
        setDir1(folder);
}

void frmDrive::Drive1_Change()
{
    const QString root = m_drive->currentData().toString();
    if (!m_drives.isReadable(root)) {
        // The folder list keeps its drive and folder; the drive list is not
        // set back, as in version 2.1.
        m_ctx.messenger().critical(QStringLiteral("Device Not Available"));
        return;
    }
    m_driveRoot = root;
    m_model->setRootPath(root);
    m_dir->setRootIndex(m_model->index(root));
    setDir1Quietly(QModelIndex());
    Dir1_Change(root);
}

void frmDrive::Dir1_Change(const QString& path)
{
    m_dirPath = QDir::toNativeSeparators(path);
    m_filePath->setText(m_dirPath);
}

void frmDrive::setDir1(const QString& path)
{
    const QModelIndex index = m_model->index(path);
    for (QModelIndex parent = index.parent(); parent.isValid(); parent = parent.parent())
        m_dir->expand(parent);
    setDir1Quietly(index);
    m_dir->scrollTo(index);
    Dir1_Change(path);
}

void frmDrive::setDir1Quietly(const QModelIndex& index)
{
    m_settingDir1 = true;
    m_dir->setCurrentIndex(index);
    m_settingDir1 = false;
}

FolderSelection::Target frmDrive::target() const
{
    if (m_bank->isChecked())
        return FolderSelection::Target::BankInfo;
    if (m_report->isChecked())
        return FolderSelection::Target::Report;
    return FolderSelection::Target::None;
}

void frmDrive::cmdSend_Click()
{
    // The list offers existing folders only, but nothing may be chosen yet,
    // or the chosen folder's drive may have gone since.
    if (const QString problem = FolderSelection::folderProblem(target(), m_filePath->text()); !problem.isEmpty()) {
        m_ctx.messenger().critical(problem);
        return;
    }
    try {
        FolderSelection::save(m_ctx.db(), m_ctx.settings, target(), m_filePath->text());
    } catch (const StoreError& e) {
        m_ctx.messenger().critical(e.message());
        return;
    }
    m_ctx.messenger().information(QStringLiteral("Data Saved Successfully"));
}
