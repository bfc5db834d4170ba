#include "store/CopyParts.h"

#include "base/DurableFile.h"
#include "base/PathUtil.h"
#include "store/StoreProblem.h"

#include <QAtomicInt>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

namespace DatabaseCopy {

namespace {

QAtomicInt connectionCounter;

} // namespace

QString native(const QString& path)
{
    return QDir::toNativeSeparators(path);
}

QString typed(const QString& path)
{
    const QString p = native(path);
    return p.contains(QLatin1Char(' ')) ? QLatin1Char('"') + p + QLatin1Char('"') : p;
}

QString restoreCommand(const QString& dataDir, const QString& file)
{
    return QStringLiteral("tonvy-cli --data-dir %1 restore %2").arg(typed(dataDir), file);
}

QString megabytes(qint64 bytes)
{
    return QLocale::c().toString(static_cast<double>(bytes) / 1e6, 'f', 1) + QStringLiteral(" MB");
}

QString sqliteWords(const QSqlError& error)
{
    const QString db = error.databaseText().trimmed();
    return db.isEmpty() ? error.text().trimmed() : db;
}

bool syncFile(const QString& path, QString* why)
{
    // Through DurableFile, whose sync the tests can make fail.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (why)
            *why = file.errorString();
        return false;
    }
    return DurableFile::syncFile(file, why);
}

bool createPrivate(const QString& path, QString* why)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        *why = f.errorString();
        return false;
    }
    f.close();
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return true;
}

QString uniquePath(const QString& folder, const QString& stem)
{
    QString path = PathUtil::join(folder, stem + QStringLiteral(".db"));
    for (int n = 2; QFileInfo::exists(path); ++n)
        path = PathUtil::join(folder, QStringLiteral("%1-%2.db").arg(stem).arg(n));
    return path;
}

QList<CopyFile> copiesIn(const QString& folder, const QString& pattern)
{
    QList<CopyFile> copies;
    const QRegularExpression re(pattern);
    const QDir dir(folder);
    for (const QFileInfo& info : dir.entryInfoList(QDir::Files)) {
        if (re.match(info.fileName()).hasMatch())
            copies.append({info.absoluteFilePath(), info.lastModified()});
    }
    return copies;
}

Connection::Connection(const QString& path, bool readOnly)
    : m_name(QStringLiteral("tonvy-copy-%1").arg(connectionCounter.fetchAndAddRelaxed(1)))
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
    db.setDatabaseName(path);
    QString options = QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(StoreProblem::busyTimeoutMs);
    if (readOnly)
        options += QStringLiteral(";QSQLITE_OPEN_READONLY");
    db.setConnectOptions(options);
    m_open = db.open();
    if (!m_open)
        m_error = db.lastError();
}

Connection::~Connection()
{
    {
        QSqlDatabase db = QSqlDatabase::database(m_name, false);
        if (db.isValid())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_name);
}

} // namespace DatabaseCopy
