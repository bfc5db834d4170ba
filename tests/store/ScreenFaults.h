#pragma once

#include "tests/store/StoreFaults.h"
#include "tests/support/Controls.h"
#include "tests/support/RecordingMessenger.h"
#include "widgets/ColourButton.h"

#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QtTest>

// What the screens' store-fault tests share beyond the faulty files of
// StoreFaults.h: a disk that fills up while a screen is open, a page that
// goes bad under an open screen, and a database file that goes away.
namespace ScreenFaults {

// Arms the disk-full shim (preloaded into the test by ctest) for as long as
// it lives: the database's files may grow by budget bytes, then no more.
class FullDisk
{
public:
    explicit FullDisk(int budget) { qputenv("TONVY_TEST_DISK_FULL_AFTER", QByteArray::number(budget)); }
    ~FullDisk() { qunsetenv("TONVY_TEST_DISK_FULL_AFTER"); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
};

inline bool shimLoaded()
{
    return qEnvironmentVariable("LD_PRELOAD").contains("tonvy_test_diskfull");
}

// The first page (1-based) of a table or index, from the file's own schema.
inline int rootPageOf(const QString& path, const QString& name)
{
    int page = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("rootpageof"));
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QSqlQuery q(db);
            q.prepare(QStringLiteral("SELECT rootpage FROM sqlite_master WHERE name = ?"));
            q.addBindValue(name);
            if (q.exec() && q.next())
                page = q.value(0).toInt();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("rootpageof"));
    return page;
}

// The disk spoils the first page of each named table or index while the
// program has the file open; a changed file counter makes SQLite read the
// file again.
inline bool damageWhileOpen(const QString& file, const QStringList& names)
{
    QByteArray bytes = StoreFaults::bytesOf(file);
    for (const QString& name : names) {
        const int page = rootPageOf(file, name);
        if (page < 2)
            return false;
        StoreFaults::overwritePage(bytes, page);
    }
    bytes[27] = static_cast<char>(bytes.at(27) + 1);
    return StoreFaults::writeBytes(file, bytes);
}

inline bool damageTableWhileOpen(const QString& file, const QString& table)
{
    return damageWhileOpen(file, {table});
}

// How a database file open in the program goes away under it.
enum class Away {
    Deleted,                // removed (a clean-up, an antivirus)
    Renamed,                // moved aside under another name
    OverwrittenWithGarbage, // the same file written over with random bytes
    ReplacedByAnotherFile,  // another program's file put in its place
    Truncated,              // the same file cut to half its length
};

inline void addAwayRows()
{
    QTest::newRow("deleted") << int(Away::Deleted);
    QTest::newRow("renamed") << int(Away::Renamed);
    QTest::newRow("overwritten with random bytes") << int(Away::OverwrittenWithGarbage);
    QTest::newRow("replaced by another program's file") << int(Away::ReplacedByAnotherFile);
    QTest::newRow("truncated") << int(Away::Truncated);
}

// Where the file went (renamed), else empty.
inline QString movedPath(const QString& file)
{
    return file + QStringLiteral(".moved");
}

// Makes the open database file at `file` go away as `away` says. False when
// that could not be done.
inline bool makeGoAway(Away away, const QString& file)
{
    switch (away) {
    case Away::Deleted:
        return QFile::remove(file);
    case Away::Renamed:
        return QFile::rename(file, movedPath(file));
    case Away::OverwrittenWithGarbage: {
        QByteArray bytes(16384, '\0');
        QRandomGenerator generator(20071116);
        for (char& b : bytes)
            b = static_cast<char>(generator.bounded(256));
        return StoreFaults::writeBytes(file, bytes);
    }
    case Away::ReplacedByAnotherFile: {
        const QString other = file + QStringLiteral(".other");
        return StoreFaults::make(StoreFaults::Fault::OtherProgramsFile, other) && QFile::remove(file) &&
               QFile::rename(other, file);
    }
    case Away::Truncated: {
        const QByteArray bytes = StoreFaults::bytesOf(file);
        return StoreFaults::writeBytes(file, bytes.left(bytes.size() / 2));
    }
    }
    return false;
}

// The words the clerk must read when the file went away as `away` says:
// a file no longer the one opened is said to be no longer there; one
// written over in place is read as what it now is, not a database or a
// damaged one, and the advice to restore the backup copy goes with both.
inline bool saysTheFileWentAway(Away away, const QString& message, const QString& file)
{
    if (!message.contains(file))
        return false;
    switch (away) {
    case Away::Deleted:
    case Away::Renamed:
    case Away::ReplacedByAnotherFile:
        return message.contains(QLatin1String("is no longer there")) &&
               message.contains(QLatin1String("restore its backup copy"));
    case Away::OverwrittenWithGarbage:
        return message.contains(QLatin1String("is not a database of this program")) &&
               message.contains(QLatin1String("restore the backup copy"));
    case Away::Truncated:
        return (message.contains(QLatin1String("is damaged")) ||
                message.contains(QLatin1String("is not a database of this program"))) &&
               message.contains(QLatin1String("estore the backup copy"));
    }
    return false;
}

// Message boxes now on screen with this text.
inline int visibleBoxes(const QString& text)
{
    int n = 0;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(w);
        n += box && box->isVisible() && box->text() == text ? 1 : 0;
    }
    return n;
}

// No box of the program is modal over the whole application: boxes shown
// while a transfer or a job runs never block it.
inline bool noApplicationModalBox()
{
    QWidget* modal = QApplication::activeModalWidget();
    return !modal || modal->windowModality() != Qt::ApplicationModal || !qobject_cast<QMessageBox*>(modal);
}

// What happens to the database while a screen is open.
enum class Fault {
    Locked,   // another process writes (or, for a read, holds it whole)
    DiskFull, // the disk of the database is full
    Damaged,  // the first pages of the table the screen uses (and its indexes) go bad
    Deleted,
    Renamed,
    Overwritten, // written over with random bytes
    Replaced,    // another program's file put in its place
    Truncated,   // the same file cut to half its length
};

// The message names the file and says what to do about this fault.
inline bool saysWhatToDo(Fault fault, const QString& message, const QString& file)
{
    switch (fault) {
    case Fault::Locked:
        return message.contains(file) && message.contains("in use by another program") && message.contains("try again");
    case Fault::DiskFull:
        return message.contains(file) && message.contains("no space left on the disk") &&
               message.contains("Free some space");
    case Fault::Damaged:
        return message.contains(file) && message.contains("is damaged") &&
               message.contains("Restore the backup copy of HandHeldData.db");
    case Fault::Deleted:
        return saysTheFileWentAway(Away::Deleted, message, file);
    case Fault::Renamed:
        return saysTheFileWentAway(Away::Renamed, message, file);
    case Fault::Overwritten:
        return saysTheFileWentAway(Away::OverwrittenWithGarbage, message, file);
    case Fault::Replaced:
        return saysTheFileWentAway(Away::ReplacedByAnotherFile, message, file);
    case Fault::Truncated:
        return saysTheFileWentAway(Away::Truncated, message, file);
    }
    return false;
}

// What is wrong with the messages after a step the fault refused: exactly
// one, critical, naming the file and saying what to do. Empty when right.
inline QString refusedOnce(const RecordingMessenger& messenger, Fault fault, const QString& file)
{
    if (messenger.entries().size() != 1)
        return QStringLiteral("%1 messages, one expected: %2")
            .arg(messenger.entries().size())
            .arg(messenger.texts().join(" | "));
    if (messenger.lastIcon() != Messenger::Icon::Critical)
        return QStringLiteral("not a critical message: %1").arg(messenger.last());
    if (!saysWhatToDo(fault, messenger.last(), file))
        return messenger.last();
    return {};
}

// The database file before a refused step, which must leave it exactly so:
// its bytes, and whether it is there at all.
class Untouched
{
public:
    explicit Untouched(const QString& file)
        : m_file(file), m_bytes(StoreFaults::bytesOf(file)), m_existed(QFile::exists(file))
    {
    }
    bool existed() const { return m_existed; }
    // Empty when the file is as it was.
    QString change() const
    {
        if (QFile::exists(m_file) != m_existed)
            return QStringLiteral("%1 %2").arg(m_file, m_existed ? "is gone" : "appeared");
        if (StoreFaults::bytesOf(m_file) != m_bytes)
            return QStringLiteral("%1 was written to").arg(m_file);
        return {};
    }

private:
    QString m_file;
    QByteArray m_bytes;
    bool m_existed;
};

} // namespace ScreenFaults

// A step refused under a fault: one critical message that says what to do.
#define CHECK_REFUSED_ONCE(messenger, fault, file)                                                                     \
    do {                                                                                                               \
        const QString wrong_ = ScreenFaults::refusedOnce(messenger, fault, file);                                      \
        QVERIFY2(wrong_.isEmpty(), qPrintable(wrong_));                                                                \
    } while (false)

// The database file as the Untouched snapshot found it.
#define CHECK_UNTOUCHED(untouched)                                                                                     \
    do {                                                                                                               \
        const QString change_ = (untouched).change();                                                                  \
        QVERIFY2(change_.isEmpty(), qPrintable(change_));                                                              \
    } while (false)

namespace ScreenFaults {

// A colour button pressed as the clerk does: focus, then the space bar.
inline void press(QWidget* window, const char* button)
{
    auto* b = control<ColourButton>(window, button);
    b->setFocus();
    QTest::keyClick(b, Qt::Key_Space);
}

} // namespace ScreenFaults
