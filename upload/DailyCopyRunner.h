#pragma once

#include "store/CheckedCopy.h"

#include <QDate>
#include <QFutureWatcher>
#include <QObject>
#include <QString>

// The day's checked copy of the database (DatabaseCopy::makeDailyCopy), made
// on a thread of the program's pool with connections of its own, so that the
// clerk's screen stays responsive for the seconds a long history takes. The
// outcome comes back as a signal on the thread that started the copy.
//
// A runner that goes (its screen closed) leaves a copy under way to finish on
// its own, unheard; the program waits for it when it quits. Either way the
// copy gets its name only once checked (a part left by a copy that was cut
// off is removed by the next one). One daily copy runs at a time in the
// program: a second one waits for the first, then finds the day's copy made.
class DailyCopyRunner : public QObject
{
    Q_OBJECT
public:
    explicit DailyCopyRunner(QObject* parent = nullptr);
    ~DailyCopyRunner() override;

    // Starts the copy; false (nothing started) while one started here runs.
    bool start(const QString& dbPath, const QString& dataDir, const QDate& today);
    bool isRunning() const;

signals:
    void finished(const DatabaseCopy::Outcome& outcome);

private:
    QFutureWatcher<DatabaseCopy::Outcome> m_watcher;
};
