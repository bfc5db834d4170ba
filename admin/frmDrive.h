#pragma once

#include "admin/DriveList.h"
#include "admin/FolderSelection.h"

#include <QWidget>

class AppContext;
class QComboBox;
class QFileSystemModel;
class QModelIndex;
class QLabel;
class QRadioButton;
class QTreeView;

// Chooses the bank information folder and the report folder.
class frmDrive : public QWidget
{
    Q_OBJECT
public:
    explicit frmDrive(AppContext& ctx, QWidget* parent = nullptr);
    frmDrive(AppContext& ctx, DriveList drives, QWidget* parent = nullptr);

    // Dir1's path: the folder the folder list stands on.
    QString dirPath() const { return m_dirPath; }
    QFileSystemModel* folderModel() const { return m_model; }

    void Form_Load();
    void cmdSend_Click();

private:
    void showStoredFolder(FolderSelection::Target target);
    void Drive1_Change();
    void Dir1_Change(const QString& path);
    void setDir1(const QString& path);
    // Moves the folder list without its change event.
    void setDir1Quietly(const QModelIndex& index);
    void showDefaults();
    FolderSelection::Target target() const;

    AppContext& m_ctx;
    DriveList m_drives;
    QRadioButton* m_report = nullptr;
    QRadioButton* m_bank = nullptr;
    QComboBox* m_drive = nullptr;
    QTreeView* m_dir = nullptr;
    QFileSystemModel* m_model = nullptr;
    QLabel* m_filePath = nullptr;
    QString m_dirPath;
    QString m_driveRoot; // the drive the folder list shows
    bool m_settingDir1 = false;
};
