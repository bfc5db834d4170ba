#include "ColourButton.h"
#include "LinkChannel.h"
#include "FakeChannel.h"
#include "TestContext.h"
#include "UploadRecords.h"
#include "UploadSession.h"
#include "frmReceive.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QProgressBar>
#include <QSqlQuery>

namespace {

const QByteArray agent = "AG0000000000005";

QByteArray request(int record)
{
    return UploadSession::requestFrame(record / 256, record % 256);
}

} // namespace

class tst_frmReceive : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void controlsAndCaptions();
    void loadOpensPortAndEnablesReceive();
    void portFailureReported();
    void receiveStarts_data();
    void receiveStarts();
    void receiveTwiceBeforeHeaderResendsHeaderRequest();
    void wholeReceiveFillsLabelsAndStores();
    void cancelOnCheckQuestionClosesScreen();
    void exitClosesPort();

private:
    template <typename T> T* child(const char* name)
    {
        T* w = m_form->findChild<T*>(QLatin1String(name));
        if (!w)
            qFatal("no control named %s", name);
        return w;
    }
    void open(bool portOpens = true);

    std::unique_ptr<TestContext> t;
    std::unique_ptr<frmReceive> m_form;
    FakeChannel* m_link = nullptr;
};

void tst_frmReceive::init()
{
    t = std::make_unique<TestContext>();
    t->ctx->settings.BankInfoPath = t->path(QStringLiteral("bank"));
    QDir().mkpath(t->ctx->settings.BankInfoPath);
}

void tst_frmReceive::cleanup()
{
    m_form.reset();
    t.reset();
    m_link = nullptr;
}

void tst_frmReceive::open(bool portOpens)
{
    t->ctx->setChannelFactory([this, portOpens] {
        auto link = std::make_unique<FakeChannel>();
        if (!portOpens)
            link->openError = QStringLiteral("Cannot open /dev/ttyS0: no such device");
        m_link = link.get();
        return link;
    });
    m_form = std::make_unique<frmReceive>(*t->ctx);
    m_form->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
}

void tst_frmReceive::controlsAndCaptions()
{
    open();
    QCOMPARE(m_form->windowTitle(), QStringLiteral("Receive Data"));
    QCOMPARE(m_form->font().family(), QStringLiteral("Arial"));
    const QList<QPair<const char*, QString>> labels = {
        {"Label2", QStringLiteral("Receive Data from HandHeld")},
        {"Label1", QStringLiteral("Agent ID :")},
        {"Label3", QStringLiteral("Date (ddmm) :")},
        {"Label5", QStringLiteral("Records Received :")},
        {"Label7", QStringLiteral("Total No. of Transactions:")},
        {"Label8", QStringLiteral("Total Amount Collected:")},
        {"Label9", QStringLiteral("Upload in Progress,Please wait ...")},
    };
    for (const auto& [name, text] : labels)
        QCOMPARE(child<QLabel>(name)->text(), text);
    for (const char* name : {"Label4", "Label6", "lblRecord", "TotalTransact", "txtTotalAmount"})
        QCOMPARE(child<QLabel>(name)->text(), QString());
    QVERIFY(child<QWidget>("Frame1"));
    QVERIFY(child<QProgressBar>("progressBar"));
    QCOMPARE(child<ColourButton>("cmdSend")->text(), QStringLiteral("&Receive"));
    QCOMPARE(child<ColourButton>("cmdexit")->text(), QStringLiteral("&Exit"));
    QVERIFY(child<QLabel>("Label9")->isHidden());
}

void tst_frmReceive::loadOpensPortAndEnablesReceive()
{
    t->ctx->link.UploadDone = true;
    open();
    QVERIFY(m_link);
    QVERIFY(m_link->isOpen());
    QVERIFY(child<ColourButton>("cmdSend")->isEnabled());
    QVERIFY(!t->ctx->link.UploadDone);
    QVERIFY(m_link->written.isEmpty()); // nothing is asked before Receive
    QVERIFY(t->messenger.entries().isEmpty());
}

void tst_frmReceive::portFailureReported()
{
    open(false);
    QCOMPARE(t->messenger.texts(), QStringList{QStringLiteral("Cannot open /dev/ttyS0: no such device")});
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
}

void tst_frmReceive::receiveStarts_data()
{
    QTest::addColumn<int>("how");
    QTest::newRow("click") << 0;
    QTest::newRow("Enter") << int(Qt::Key_Return);
    QTest::newRow("keypad Enter") << int(Qt::Key_Enter);
}

void tst_frmReceive::receiveStarts()
{
    QFETCH(int, how);
    open();
    auto* receive = child<ColourButton>("cmdSend");
    if (how == 0) {
        QTest::mouseClick(receive, Qt::LeftButton);
    } else {
        receive->setFocus();
        QTest::keyClick(receive, static_cast<Qt::Key>(how));
    }
    QCOMPARE(m_link->written, QList<QByteArray>{request(0)});
    QCOMPARE(m_link->written.first(), QByteArray::fromHex("01FF10F055000300 0000"));
    QCOMPARE(m_form->session().summary().TotalRecords, 5000);
    QCOMPARE(t->ctx->link.RecordNo, QStringLiteral("0"));
}

void tst_frmReceive::receiveTwiceBeforeHeaderResendsHeaderRequest()
{
    open();
    auto* receive = child<ColourButton>("cmdSend");
    QTest::mouseClick(receive, Qt::LeftButton);
    m_form->session().summary().TotalRecords = 40;
    t->ctx->link.RecordNo = QStringLiteral("7");
    QTest::mouseClick(receive, Qt::LeftButton);
    QCOMPARE(m_link->written, (QList<QByteArray>{request(0), request(0)}));
    QCOMPARE(m_form->session().summary().TotalRecords, 5000);
    QCOMPARE(t->ctx->link.RecordNo, QStringLiteral("0"));
    QVERIFY(receive->isEnabled());
}

void tst_frmReceive::wholeReceiveFillsLabelsAndStores()
{
    t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                 "AgreedAmount, AgentID, MyDate, BranchID, CustomerCode, BankSoftACNumber) "
                                 "VALUES ('S', 'DD001', '000000000000101', 'SITA', '1234.5', '50', ?, '151107', "
                                 "'BR1', 'C1', 'BS1')"),
                  {QString::fromLatin1(agent)});
    open();
    auto* receive = child<ColourButton>("cmdSend");
    auto* busy = child<QLabel>("Label9");
    QTest::mouseClick(receive, Qt::LeftButton);

    m_link->feed(UploadRecords::headerRecord(2, agent));
    QVERIFY(!receive->isEnabled());
    QCOMPARE(m_link->written.last(), request(1));
    QCOMPARE(child<QLabel>("Label4")->text(), QString()); // not before the summary

    // The summary arrives in two pieces.
    const QByteArray summary = UploadRecords::summaryRecord("005", "1611", 3, QByteArray::fromHex("00000085"));
    m_link->feed(summary.left(60));
    QCOMPARE(child<QLabel>("TotalTransact")->text(), QString());
    m_link->feed(summary.mid(60));
    QCOMPARE(child<QLabel>("Label4")->text(), QStringLiteral("005"));
    QCOMPARE(child<QLabel>("Label6")->text(), QStringLiteral("1611"));
    QCOMPARE(child<QLabel>("TotalTransact")->text(), QStringLiteral("3"));
    QCOMPARE(child<QLabel>("txtTotalAmount")->text(), QStringLiteral("85.00"));
    QCOMPARE(m_link->written.last(), request(2));
    QVERIFY(busy->isHidden());

    m_link->feed(UploadRecords::transactionRecord(
        "S", "DD001", "000000000000101",
        {QByteArray::fromHex("000050 16B7 0900 0001"), QByteArray::fromHex("000020 16B7 0930 0002")}, '\x02'));
    QVERIFY(!busy->isHidden());
    QCOMPARE(child<QLabel>("lblRecord")->text(), QStringLiteral("1 / 2"));
    QCOMPARE(child<QProgressBar>("progressBar")->value(), 1);
    QCOMPARE(m_link->written.last(), request(3));

    m_link->feed(UploadRecords::transactionRecord("S", "DD001", "000000000000101",
                                                  {QByteArray::fromHex("000015 16B7 1000 0003")}, '\x01'));
    QCOMPARE(child<QLabel>("lblRecord")->text(), QStringLiteral("2 / 2"));
    QCOMPARE(child<QProgressBar>("progressBar")->value(), 2);
    QVERIFY(busy->isHidden());
    QCOMPARE(m_link->written.last(), UploadSession::endFrame());
    QCOMPARE(t->messenger.texts(), QStringList{QStringLiteral("Upload Completed Successfully")});

    QSqlQuery q(t->db.connection());
    QVERIFY(q.exec(QStringLiteral("SELECT count(*) FROM RestoreData")));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toInt(), 3);
    QVERIFY(QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/005_16_11_07.txt"))));
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))));
    QVERIFY(!receive->isEnabled());
}

void tst_frmReceive::cancelOnCheckQuestionClosesScreen()
{
    open();
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    QByteArray bad = UploadRecords::headerRecord(2, agent);
    bad[136] = static_cast<char>(bad.at(136) + 1);
    t->messenger.queueAnswer(false);
    for (int i = 0; i < 15; ++i)
        m_link->feed(bad);
    QCOMPARE(t->messenger.count(UploadSession::crcQuestionText()), 1);
    // The request after Cancel still goes out, then the screen closes.
    QCOMPARE(m_link->written.size(), 16);
    QTRY_VERIFY(!m_form->isVisible());
    QVERIFY(!m_link->isOpen());
}

void tst_frmReceive::exitClosesPort()
{
    open();
    QVERIFY(m_link->isOpen());
    QTest::mouseClick(child<ColourButton>("cmdexit"), Qt::LeftButton);
    QVERIFY(!m_form->isVisible());
    QVERIFY(!m_link->isOpen());
}

QTEST_MAIN(tst_frmReceive)
#include "tst_frmreceive.moc"
