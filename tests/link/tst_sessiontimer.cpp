// The session's restartable timer fires as a QTimer of the same interval
// would: not before its time, again every interval, not at all once stopped,
// and a start postpones it.

#include "link/SessionTimer.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

class tst_SessionTimer : public QObject
{
    Q_OBJECT
private slots:
    void firesAfterItsInterval();
    void repeatsUntilStopped();
    void stoppedDoesNotFire();
    void startingAgainPostpones();
    void shorterIntervalIsKept();
    void handlerMayStartAgain();
};

void tst_SessionTimer::firesAfterItsInterval()
{
    SessionTimer timer;
    timer.setInterval(60);
    QSignalSpy fired(&timer, &SessionTimer::timeout);
    QElapsedTimer clock;
    clock.start();
    timer.start();
    QVERIFY(timer.isActive());
    QVERIFY(fired.wait(2000));
    QVERIFY2(clock.elapsed() >= 60, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(fired.count(), 1);
}

void tst_SessionTimer::repeatsUntilStopped()
{
    SessionTimer timer;
    timer.setInterval(20);
    QSignalSpy fired(&timer, &SessionTimer::timeout);
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(fired.count() >= 3, 2000);
    QVERIFY(timer.isActive());
    timer.stop();
    QVERIFY(!timer.isActive());
    const int count = fired.count();
    QTest::qWait(100);
    QCOMPARE(fired.count(), count);
}

void tst_SessionTimer::stoppedDoesNotFire()
{
    SessionTimer timer;
    timer.setInterval(30);
    QSignalSpy fired(&timer, &SessionTimer::timeout);
    timer.start();
    timer.stop();
    QTest::qWait(120);
    QCOMPARE(fired.count(), 0);
}

void tst_SessionTimer::startingAgainPostpones()
{
    // Restarted every 40 ms with an interval of 100 ms: it never comes due,
    // as a receive's response time-out never does while replies keep coming.
    SessionTimer timer;
    timer.setInterval(100);
    QSignalSpy fired(&timer, &SessionTimer::timeout);
    QElapsedTimer clock;
    clock.start();
    timer.start();
    for (int i = 0; i < 8; ++i) {
        QTest::qWait(40);
        timer.start();
    }
    QCOMPARE(fired.count(), 0);
    const qint64 lastStart = clock.elapsed();
    QVERIFY(fired.wait(2000));
    QVERIFY2(clock.elapsed() - lastStart >= 100, qPrintable(QString::number(clock.elapsed() - lastStart)));
}

void tst_SessionTimer::shorterIntervalIsKept()
{
    SessionTimer timer;
    timer.setInterval(5000);
    timer.start();
    timer.setInterval(40);
    QSignalSpy fired(&timer, &SessionTimer::timeout);
    QElapsedTimer clock;
    clock.start();
    timer.start();
    QVERIFY(fired.wait(2000));
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
}

void tst_SessionTimer::handlerMayStartAgain()
{
    SessionTimer timer;
    timer.setInterval(20);
    int count = 0;
    connect(&timer, &SessionTimer::timeout, this, [&] {
        ++count;
        timer.stop();
        if (count < 3)
            timer.start();
    });
    timer.start();
    QTRY_COMPARE_WITH_TIMEOUT(count, 3, 2000);
    QTest::qWait(80);
    QCOMPARE(count, 3);
    QVERIFY(!timer.isActive());
}

QTEST_GUILESS_MAIN(tst_SessionTimer)
#include "tst_sessiontimer.moc"
