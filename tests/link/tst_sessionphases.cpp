// The phase logic of both sessions on its own: what each phase lets
// happen, the one place a phase changes, the time-out rules. No port, no
// timers.
#include "link/DownloadPhase.h"
#include "link/UploadPhase.h"

#include <QtTest>

using UP = UploadPhase::Phase;
using DP = DownloadPhase::Phase;

class tst_SessionPhases : public QObject
{
    Q_OBJECT
private slots:
    void uploadStartsIdleAndReadsNothing()
    {
        UploadPhase p;
        QCOMPARE(p.current(), UP::Idle);
        QVERIFY(!p.takesReplies());
        QVERIFY(!p.isBusy());
        QVERIFY(!p.responseTimeoutResends());
        QVERIFY(p.idleResendRuns()); // Timer3 runs from the screen's load
    }

    void uploadAskingPhasesTakeReplies()
    {
        for (UP phase : {UP::AwaitingHeader, UP::AwaitingSummary, UP::ReceivingRecords}) {
            UploadPhase p;
            QVERIFY(p.moveTo(phase));
            QVERIFY(!p.moveTo(phase)); // no change, no second signal
            QVERIFY(p.takesReplies());
            QVERIFY(p.isBusy());
            QVERIFY(p.responseTimeoutResends());
            QVERIFY(p.idleResendRuns());
        }
    }

    void uploadQuestionHoldsEverythingAndRemembersWhereItWas()
    {
        UploadPhase p;
        p.moveTo(UP::ReceivingRecords);
        p.moveTo(UP::CheckQuestion);
        QVERIFY(p.isBusy());
        QVERIFY(!p.takesReplies());
        QVERIFY(!p.responseTimeoutResends());
        QVERIFY(!p.idleResendRuns());
        QCOMPARE(p.beforeQuestion(), UP::ReceivingRecords);
        p.moveTo(p.beforeQuestion());
        QCOMPARE(p.current(), UP::ReceivingRecords);
    }

    void uploadDoneGoesOnResendingWhenIdle()
    {
        UploadPhase p;
        p.moveTo(UP::Done);
        QVERIFY(!p.isBusy());
        QVERIFY(!p.takesReplies());
        QVERIFY(!p.responseTimeoutResends());
        QVERIFY(p.idleResendRuns()); // as version 2.1 did
        p.moveTo(UP::Stopped);
        QVERIFY(!p.idleResendRuns());
        QVERIFY(!p.isBusy());
    }

    void uploadLastRecord()
    {
        QVERIFY(UploadPhase::isLastRecord(41, 40));
        QVERIFY(!UploadPhase::isLastRecord(40, 40));
        QVERIFY(UploadPhase::isLastRecord(2001, 5000));
        QVERIFY(!UploadPhase::isLastRecord(2000, 5000));
        QVERIFY(UploadPhase::isLastRecord(2001, 2500));
    }

    void uploadStepBackOnTheFirstTimeoutOfARun()
    {
        QCOMPARE(UploadPhase::afterTimeout(7, 1), 6);
        QCOMPARE(UploadPhase::afterTimeout(7, 2), 7);
        QCOMPARE(UploadPhase::afterTimeout(2, 1), 1);
        QCOMPARE(UploadPhase::afterTimeout(1, 1), 1);
        QCOMPARE(UploadPhase::afterTimeout(0, 1), 0);
    }

    void downloadBusyPhases()
    {
        for (DP phase : {DP::AwaitingHeaderAck, DP::HeaderAcknowledged, DP::SendingRecords, DP::DrainingRecords,
                         DP::AwaitingEndAck, DP::DrainingEnd}) {
            DownloadPhase p;
            p.moveTo(phase);
            QVERIFY(p.busy());
        }
        for (DP phase : {DP::Idle, DP::Done, DP::Stopped}) {
            DownloadPhase p;
            p.moveTo(phase);
            QVERIFY(!p.busy());
            QVERIFY(!p.readsAnswers());
            QVERIFY(!p.responseTimeoutRuns());
        }
    }

    void downloadDrainingDropsAnswersUntilTheTimeout()
    {
        DownloadPhase p;
        p.moveTo(DP::SendingRecords);
        QVERIFY(p.readsAnswers());
        p.moveTo(DownloadPhase::drainingOf(p.current()));
        QCOMPARE(p.current(), DP::DrainingRecords);
        QVERIFY(p.draining());
        QVERIFY(!p.readsAnswers());
        QVERIFY(p.responseTimeoutRuns());
        p.moveTo(DownloadPhase::afterDraining(p.current()));
        QCOMPARE(p.current(), DP::SendingRecords);

        QCOMPARE(DownloadPhase::drainingOf(DP::AwaitingEndAck), DP::DrainingEnd);
        QCOMPARE(DownloadPhase::afterDraining(DP::DrainingEnd), DP::AwaitingEndAck);
        QCOMPARE(DownloadPhase::afterDraining(DP::SendingRecords), DP::SendingRecords);
        QCOMPARE(DownloadPhase::drainingOf(DP::AwaitingHeaderAck), DP::AwaitingHeaderAck);
    }

    void downloadHeaderAndEndReadAnswers()
    {
        DownloadPhase p;
        p.moveTo(DP::AwaitingHeaderAck);
        QVERIFY(p.readsAnswers());
        QVERIFY(!p.responseTimeoutRuns()); // the header is sent once
        p.moveTo(DP::HeaderAcknowledged);
        QVERIFY(!p.readsAnswers());
        p.moveTo(DP::AwaitingEndAck);
        QVERIFY(p.readsAnswers());
        QVERIFY(p.responseTimeoutRuns());
    }

    void downloadCounterAfterTimeout()
    {
        QCOMPARE(DownloadPhase::afterTimeout(7, 1), 6);
        QCOMPARE(DownloadPhase::afterTimeout(7, 3), 7);
        QCOMPARE(DownloadPhase::afterTimeout(2, 1), 2); // never below the first account frame
        QCOMPARE(DownloadPhase::afterTimeout(0, 4), 2);
    }
};

QTEST_GUILESS_MAIN(tst_SessionPhases)
#include "tst_sessionphases.moc"
