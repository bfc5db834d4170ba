#include "store/AuditTrail.h"

#include "base/DurableFile.h"
#include "base/Version.h"

#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QCryptographicHash>
#include <QFile>
#include <QSaveFile>
#include <QSqlError>
#include <QSqlQuery>

#ifdef Q_OS_UNIX
#include <pwd.h>
#include <unistd.h>
#endif

namespace AuditTrail {

namespace {

const QString timeFormat = QStringLiteral("yyyy-MM-ddTHH:mm:ss");

QByteArray csvField(const QString& value)
{
    QByteArray bytes = value.toUtf8();
    if (bytes.contains(',') || bytes.contains('"') || bytes.contains('\n') || bytes.contains('\r')) {
        bytes.replace('"', "\"\"");
        bytes = '"' + bytes + '"';
    }
    return bytes;
}

QByteArray csvLine(const QStringList& fields)
{
    QByteArray out;
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0)
            out += ',';
        out += csvField(fields.at(i));
    }
    return out + "\r\n";
}

} // namespace

QString actionName(Action action)
{
    switch (action) {
    case Action::Download:
        return QStringLiteral("download");
    case Action::Send:
        return QStringLiteral("send");
    case Action::Receive:
        return QStringLiteral("receive");
    case Action::Settings:
        return QStringLiteral("settings");
    case Action::Password:
        return QStringLiteral("password");
    case Action::Login:
        return QStringLiteral("login");
    case Action::Restore:
        return QStringLiteral("restore");
    }
    return QString();
}

void record(SharedDatabase& db, Action action, const QString& details)
{
    record(db, db.now(), action, details);
}

void record(SharedDatabase& db, const QDateTime& at, Action action, const QString& details)
{
    db.execute(QStringLiteral("INSERT INTO AuditTrail (Time, User, Action, Details, Version) VALUES (?, ?, ?, ?, ?)"),
               {at.toString(timeFormat), osUser(), actionName(action), details, programVersion()});
}

bool tryRecord(SharedDatabase& db, const QDateTime& at, Action action, const QString& details, QString* error)
{
    try {
        record(db, at, action, details);
        return true;
    } catch (const StoreError& e) {
        if (error)
            *error = e.message();
        return false;
    }
}

QList<Event> read(SharedDatabase& db, const QDate& from, const QDate& to)
{
    // Times are ISO text, so the day range is a text range: from the first
    // second of `from` to before the day after `to`.
    QString sql = QStringLiteral("SELECT Id, Time, User, Action, Details, Version FROM AuditTrail WHERE 1 = 1");
    QVariantList values;
    if (from.isValid()) {
        sql += QStringLiteral(" AND Time >= ?");
        values << from.toString(Qt::ISODate);
    }
    if (to.isValid()) {
        sql += QStringLiteral(" AND Time < ?");
        values << to.addDays(1).toString(Qt::ISODate);
    }
    sql += QStringLiteral(" ORDER BY Time, Id");

    QSqlQuery q(db.connection());
    q.setForwardOnly(true);
    if (!q.prepare(sql))
        throw StoreProblem::error(db.connection(), q.lastError());
    for (const QVariant& v : values)
        q.addBindValue(v);
    if (!q.exec())
        throw StoreProblem::error(db.connection(), q.lastError());
    QList<Event> events;
    while (q.next()) {
        Event e;
        e.id = q.value(0).toLongLong();
        e.time = q.value(1).toString();
        e.user = q.value(2).toString();
        e.action = q.value(3).toString();
        e.details = q.value(4).toString();
        e.version = q.value(5).toString();
        events << e;
    }
    return events;
}

QStringList columnNames()
{
    return {QStringLiteral("Time"), QStringLiteral("User"), QStringLiteral("Action"), QStringLiteral("Details"),
            QStringLiteral("Version")};
}

QString field(const Event& event, int column)
{
    switch (column) {
    case 0:
        return event.time;
    case 1:
        return event.user;
    case 2:
        return event.action;
    case 3:
        return event.details;
    case 4:
        return event.version;
    default:
        return QString();
    }
}

QByteArray toCsv(const QList<Event>& events)
{
    const QStringList columns = columnNames();
    QByteArray out = csvLine(columns);
    for (const Event& e : events) {
        QStringList fields;
        for (int c = 0; c < columns.size(); ++c)
            fields << field(e, c);
        out += csvLine(fields);
    }
    return out;
}

bool writeCsv(const QList<Event>& events, const QString& path, QString* error)
{
    // QSaveFile: a failed write leaves an earlier file of that name as it
    // was. The file and its folder are synced, so that an exported trail
    // reported written is on the disk.
    QSaveFile file(path);
    const QByteArray csv = toCsv(events);
    if (!file.open(QIODevice::WriteOnly) || file.write(csv) != csv.size()) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    QString why;
    if (!DurableFile::commit(file, &why)) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(path, why);
        return false;
    }
    return true;
}

QString osUser()
{
#ifdef Q_OS_UNIX
    if (const passwd* pw = getpwuid(geteuid()); pw && pw->pw_name)
        return QString::fromLocal8Bit(pw->pw_name);
#endif
    for (const char* name : {"USER", "USERNAME", "LOGNAME"}) {
        const QString value = qEnvironmentVariable(name);
        if (!value.isEmpty())
            return value;
    }
    return QStringLiteral("unknown");
}

QString sha256(const QByteArray& bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

QString sha256File(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return QStringLiteral("unreadable");
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace AuditTrail
