#pragma once

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

class SharedDatabase;

// The append-only record of every event that changes stored data or sends
// data out of the branch: downloads stored, sends, receives, settings and
// folder changes, password changes, failed logins and restores of the
// database from a backup copy. Each event carries the
// time, the operating-system user and the program version. The table's
// triggers refuse UPDATE and DELETE, so an event once written stays.
namespace AuditTrail {

enum class Action { Download, Send, Receive, Settings, Password, Login, Restore };

// "download", "send", "receive", "settings", "password", "login", "restore".
QString actionName(Action action);

struct Event
{
    qint64 id = 0;
    QString time; // yyyy-MM-ddTHH:mm:ss, local time
    QString user;
    QString action;
    QString details;
    QString version;

    friend bool operator==(const Event&, const Event&) = default;
};

// Appends one event, at the database's clock time. Throws StoreError when
// it cannot be written.
void record(SharedDatabase& db, Action action, const QString& details);
// The same at a given time (a caller that holds the program's clock).
void record(SharedDatabase& db, const QDateTime& at, Action action, const QString& details);

// The same, for callers that must not throw (a screen's slot): false with
// the reason instead.
bool tryRecord(SharedDatabase& db, const QDateTime& at, Action action, const QString& details,
               QString* error = nullptr);

// The events from the day `from` to the day `to`, both included, oldest
// first; an invalid date leaves that end open. Throws StoreError.
QList<Event> read(SharedDatabase& db, const QDate& from = {}, const QDate& to = {});

// The column names, in the order of the CSV and of the audit window:
// Time, User, Action, Details, Version.
QStringList columnNames();
// One column of an event by its position in columnNames().
QString field(const Event& event, int column);

// The events as CSV (RFC 4180: commas, double quotes doubled, CR LF), with
// the header row Time,User,Action,Details,Version.
QByteArray toCsv(const QList<Event>& events);
// Writes toCsv(events) to a file, whole or not at all, synced to the disk
// with its folder; false with the reason ("Cannot write <file>: <why>"), a
// failed sync included.
bool writeCsv(const QList<Event>& events, const QString& path, QString* error = nullptr);

// The login name of the operating-system user running the program.
QString osUser();

// SHA-256 of bytes, in lower-case hex.
QString sha256(const QByteArray& bytes);
// SHA-256 of a file's contents; "unreadable" when it cannot be read.
QString sha256File(const QString& path);

} // namespace AuditTrail
