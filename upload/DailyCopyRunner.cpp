#include "upload/DailyCopyRunner.h"

#include "store/DailyCopy.h"

#include <QMutex>
#include <QMutexLocker>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>

namespace {

DatabaseCopy::Outcome copyOnce(const QString& dbPath, const QString& dataDir, const QDate& today)
{
    // Two copies of one day at once would write the same part file.
    static QMutex oneAtATime;
    const QMutexLocker lock(&oneAtATime);
    try {
        return DatabaseCopy::makeDailyCopy(dbPath, dataDir, today);
    } catch (const std::exception& e) {
        DatabaseCopy::Outcome out;
        out.text = QString::fromLocal8Bit(e.what());
        return out;
    }
}

} // namespace

DailyCopyRunner::DailyCopyRunner(QObject* parent) : QObject(parent)
{
    connect(&m_watcher, &QFutureWatcher<DatabaseCopy::Outcome>::finished, this, [this] {
        const QFuture<DatabaseCopy::Outcome> done = m_watcher.future();
        if (done.resultCount() > 0)
            emit finished(done.result());
    });
}

DailyCopyRunner::~DailyCopyRunner() = default;

bool DailyCopyRunner::start(const QString& dbPath, const QString& dataDir, const QDate& today)
{
    if (isRunning())
        return false;
    m_watcher.setFuture(QtConcurrent::run(copyOnce, dbPath, dataDir, today));
    return true;
}

bool DailyCopyRunner::isRunning() const
{
    return m_watcher.isRunning();
}
