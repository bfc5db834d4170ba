#include "admin/Configuration.h"
#include "admin/frmConfigure.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QtTest>

class tst_frmConfigure : public QObject
{
    Q_OBJECT

private slots:
    void captionsAndNames();
    void emptyTableSaveCreatesRowThenEdits_data();
    void emptyTableSaveCreatesRowThenEdits();
    void nothingChosenInFontList_data();
    void nothingChosenInFontList();
    void storedPortSelectsItsItem_data();
    void storedPortSelectsItsItem();
    void storedPortOutsideTheListIsReported_data();
    void storedPortOutsideTheListIsReported();
    void loadFillsFieldsAndSettings_data();
    void loadFillsFieldsAndSettings();
    void blanksAroundNamesAreNotStored();
    void namesHeldToTheHeaderWidths();
    void tooLongEntryIsRefused();
    void enterInBankNameResetsPortToOne();
    void enterInPortListMovesToUpdate();
    void deviceShownBesideThePortList_data();
    void deviceShownBesideThePortList();
    void exitClosesTheScreen();

private:
    static void setRow(TestContext& t, const QString& bank, const QString& branch, const QString& port,
                       const QString& font);
    static QString field(TestContext& t, const QString& name);
};

void tst_frmConfigure::setRow(TestContext& t, const QString& bank, const QString& branch, const QString& port,
                              const QString& font)
{
    t.db.execute("INSERT INTO Path (SNo, BankName, BranchName, \"Comm Port\", FontSize) VALUES ('1', ?, ?, ?, ?)",
                 {bank, branch, port, font});
}

QString tst_frmConfigure::field(TestContext& t, const QString& name)
{
    SharedRecordset& rs = t.db.openSharedRecordset("select * from Path where SNo=?", {"1"});
    const QString value = rs.eof() ? QStringLiteral("<no row>") : rs.text(name);
    t.db.closeSharedRecordset();
    return value;
}

void tst_frmConfigure::captionsAndNames()
{
    TestContext t;
    frmConfigure w(*t.ctx);
    QCOMPARE(w.windowTitle(), QStringLiteral("Configuration"));
    QCOMPARE(w.font().family(), QStringLiteral("Arial"));
    QCOMPARE(w.findChild<QLabel*>("Label2")->text(), QStringLiteral("Configuration"));
    QVERIFY(w.findChild<QWidget*>("Frame1"));
    QCOMPARE(w.findChild<QLabel*>("Label3")->text(), QStringLiteral("Bank Name :"));
    QCOMPARE(w.findChild<QLabel*>("Label1")->text(), QStringLiteral("Branch Name :"));
    QCOMPARE(w.findChild<QLabel*>("Label4")->text(), QStringLiteral("Select Com. Port :"));
    QCOMPARE(w.findChild<QLabel*>("Label5")->text(), QStringLiteral("Select Font Size :"));
    QVERIFY(w.findChild<QLineEdit*>("txtBankName"));
    QVERIFY(w.findChild<QLineEdit*>("txtBranchName"));
    auto* port = w.findChild<QComboBox*>("cmbComPort");
    QCOMPARE(port->count(), 10);
    for (int i = 0; i < 10; ++i)
        QCOMPARE(port->itemText(i), QString::number(i + 1));
    QCOMPARE(port->currentIndex(), 0);
    auto* font = w.findChild<QComboBox*>("cmbFontSize");
    QCOMPARE(font->count(), 2);
    QCOMPARE(font->itemText(0), QStringLiteral("Small"));
    QCOMPARE(font->itemText(1), QStringLiteral("Big"));
    QCOMPARE(font->currentText(), QStringLiteral("Small"));
    QCOMPARE(w.findChild<ColourButton*>("cmdUpdate")->text(), QStringLiteral("&Update"));
    QCOMPARE(w.findChild<ColourButton*>("cmdExit")->text(), QStringLiteral("&Exit"));
    QVERIFY(w.findChild<QLabel*>("lblDevice"));
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmConfigure::emptyTableSaveCreatesRowThenEdits_data()
{
    QTest::addColumn<int>("fontIndex");
    QTest::addColumn<QString>("stored");
    QTest::newRow("Small") << 0 << "0";
    QTest::newRow("Big") << 1 << "1";
}

void tst_frmConfigure::emptyTableSaveCreatesRowThenEdits()
{
    QFETCH(int, fontIndex);
    QFETCH(QString, stored);
    TestContext t;
    frmConfigure w(*t.ctx);
    w.findChild<QLineEdit*>("txtBankName")->setText("First Bank");
    w.findChild<QLineEdit*>("txtBranchName")->setText("Main Road");
    w.findChild<QComboBox*>("cmbComPort")->setCurrentIndex(3);
    w.findChild<QComboBox*>("cmbFontSize")->setCurrentIndex(fontIndex);
    t.ctx->settings.FontSize = "untouched";

    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
    QCOMPARE(t.messenger.texts(), QStringList{"Data Saved Successfully"});
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(t.messenger.entries().last().title, QString());
    QCOMPARE(field(t, "SNo"), QStringLiteral("1"));
    QCOMPARE(field(t, "FontSize"), stored);
    QCOMPARE(field(t, "Comm Port"), QStringLiteral("4"));
    QCOMPARE(field(t, "BankName"), QStringLiteral("First Bank"));
    QCOMPARE(field(t, "BranchName"), QStringLiteral("Main Road"));
    QCOMPARE(t.ctx->settings.BankName, QStringLiteral("First Bank"));
    QCOMPARE(t.ctx->settings.BranchName, QStringLiteral("Main Road"));
    QCOMPARE(t.ctx->settings.CommPort, QStringLiteral("4"));
    // The add-new path resizes the window and leaves AppSettings.FontSize.
    QCOMPARE(t.ctx->settings.FontSize, QStringLiteral("untouched"));
    QCOMPARE(w.font().pointSizeF(), 1.0);

    // The second save edits the same row and refreshes the font size.
    w.findChild<QLineEdit*>("txtBankName")->setText("Second Bank");
    w.findChild<QComboBox*>("cmbFontSize")->setCurrentIndex(1 - fontIndex);
    w.setFont(QFont("Arial", 10));
    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
    QCOMPARE(t.messenger.count("Data Saved Successfully"), 2);
    SharedRecordset& rs = t.db.openSharedRecordset("select * from Path");
    QCOMPARE(rs.recordCount(), 1);
    QCOMPARE(field(t, "BankName"), QStringLiteral("Second Bank"));
    const QString other = stored == "0" ? "1" : "0";
    QCOMPARE(field(t, "FontSize"), other);
    QCOMPARE(t.ctx->settings.FontSize, other);
    QCOMPARE(w.font().pointSizeF(), 10.0);
}

void tst_frmConfigure::nothingChosenInFontList_data()
{
    QTest::addColumn<bool>("rowExists");
    QTest::addColumn<QString>("stored");
    QTest::newRow("add-new writes the index -1") << false << "-1";
    QTest::newRow("edit keeps the old value") << true << "1";
}

void tst_frmConfigure::nothingChosenInFontList()
{
    QFETCH(bool, rowExists);
    QFETCH(QString, stored);
    TestContext t;
    if (rowExists)
        setRow(t, "Bank", "Branch", "2", "1");
    frmConfigure w(*t.ctx);
    w.findChild<QComboBox*>("cmbFontSize")->setCurrentIndex(-1);
    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
    QCOMPARE(field(t, "FontSize"), stored);
    QCOMPARE(t.messenger.last(), QStringLiteral("Data Saved Successfully"));
    if (rowExists)
        QCOMPARE(t.ctx->settings.FontSize, QStringLiteral("1"));
}

void tst_frmConfigure::storedPortSelectsItsItem_data()
{
    QTest::addColumn<QString>("port");
    QTest::addColumn<int>("index");
    QTest::newRow("1") << "1" << 0;
    QTest::newRow("3") << "3" << 2;
    QTest::newRow("10 is the last item") << "10" << 9;
    QTest::newRow("with blanks") << " 7 " << 6;
}

void tst_frmConfigure::storedPortSelectsItsItem()
{
    QFETCH(QString, port);
    QFETCH(int, index);
    TestContext t;
    setRow(t, "Bank", "Branch", port, "0");
    frmConfigure w(*t.ctx);
    auto* list = w.findChild<QComboBox*>("cmbComPort");
    QCOMPARE(list->currentIndex(), index);
    QCOMPARE(list->currentText(), QString::number(index + 1));
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmConfigure::storedPortOutsideTheListIsReported_data()
{
    QTest::addColumn<QString>("port");
    QTest::addColumn<bool>("reported");
    QTest::newRow("11") << "11" << true;
    QTest::newRow("0") << "0" << true;
    QTest::newRow("-2") << "-2" << true;
    QTest::newRow("not a number") << "COM3" << true;
    QTest::newRow("empty: not chosen yet") << "" << false;
}

void tst_frmConfigure::storedPortOutsideTheListIsReported()
{
    QFETCH(QString, port);
    QFETCH(bool, reported);
    TestContext t;
    setRow(t, "Bank", "Branch", port, "0");
    frmConfigure w(*t.ctx);
    QCOMPARE(w.findChild<QComboBox*>("cmbComPort")->currentIndex(), 0);
    QCOMPARE(t.ctx->settings.CommPort, port);
    if (reported) {
        QCOMPARE(t.messenger.texts(), QStringList{Configuration::badPortMessage(port)});
        QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
        QVERIFY(t.messenger.last().contains("\"" + port + "\""));
    } else {
        QVERIFY(t.messenger.entries().isEmpty());
    }
    // The rest of the row is still shown.
    QCOMPARE(w.findChild<QLineEdit*>("txtBankName")->text(), QStringLiteral("Bank"));
}

void tst_frmConfigure::loadFillsFieldsAndSettings_data()
{
    QTest::addColumn<QString>("font");
    QTest::addColumn<QString>("shown");
    QTest::newRow("0 is Small") << "0"
                                << "Small";
    QTest::newRow("1 is Big") << "1"
                              << "Big";
    QTest::newRow("other leaves the list") << "7"
                                           << "Small";
}

void tst_frmConfigure::loadFillsFieldsAndSettings()
{
    QFETCH(QString, font);
    QFETCH(QString, shown);
    TestContext t;
    setRow(t, "Co-op Bank", "Market", "5", font);
    t.ctx->settings.FontSize = "not read here";
    frmConfigure w(*t.ctx);
    QCOMPARE(w.findChild<QLineEdit*>("txtBankName")->text(), QStringLiteral("Co-op Bank"));
    QCOMPARE(w.findChild<QLineEdit*>("txtBranchName")->text(), QStringLiteral("Market"));
    QCOMPARE(w.findChild<QComboBox*>("cmbFontSize")->currentText(), shown);
    QCOMPARE(w.findChild<QComboBox*>("cmbComPort")->currentText(), QStringLiteral("5"));
    QCOMPARE(t.ctx->settings.BankName, QStringLiteral("Co-op Bank"));
    QCOMPARE(t.ctx->settings.BranchName, QStringLiteral("Market"));
    QCOMPARE(t.ctx->settings.CommPort, QStringLiteral("5"));
    QCOMPARE(t.ctx->settings.FontSize, QStringLiteral("not read here"));
}

void tst_frmConfigure::blanksAroundNamesAreNotStored()
{
    TestContext t;
    setRow(t, "Old", "Old", "1", "0");
    frmConfigure w(*t.ctx);
    auto* bank = w.findChild<QLineEdit*>("txtBankName");
    bank->clear();
    QTest::keyClicks(bank, "  State  Bank  ");
    w.findChild<QLineEdit*>("txtBranchName")->setText(" Fort ");
    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
    QCOMPARE(field(t, "BankName"), QStringLiteral("State  Bank"));
    QCOMPARE(field(t, "BranchName"), QStringLiteral("Fort"));
    QCOMPARE(t.ctx->settings.BankName, QStringLiteral("State  Bank"));
    QCOMPARE(t.ctx->settings.BranchName, QStringLiteral("Fort"));
}

void tst_frmConfigure::namesHeldToTheHeaderWidths()
{
    TestContext t;
    setRow(t, "Old", "Old", "1", "0");
    frmConfigure w(*t.ctx);
    auto* bank = w.findChild<QLineEdit*>("txtBankName");
    auto* branch = w.findChild<QLineEdit*>("txtBranchName");
    QCOMPARE(bank->maxLength(), 48);
    QCOMPARE(branch->maxLength(), 22);
    bank->clear();
    branch->clear();
    QTest::keyClicks(bank, QString(60, 'B'));
    QTest::keyClicks(branch, QString(30, 'R'));
    QCOMPARE(bank->text(), QString(48, 'B'));
    QCOMPARE(branch->text(), QString(22, 'R'));
    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
    QCOMPARE(field(t, "BankName"), QString(48, 'B'));
    QCOMPARE(field(t, "BranchName"), QString(22, 'R'));
    QCOMPARE(t.messenger.texts(), QStringList{"Data Saved Successfully"});
}

void tst_frmConfigure::tooLongEntryIsRefused()
{
    // The boxes cannot take more; the rule behind them refuses it as well.
    Configuration::Entry entry;
    entry.bankName = QString(48, 'B');
    entry.branchName = QString(22, 'R');
    QCOMPARE(Configuration::entryProblem(entry), QString());
    entry.bankName = QString(49, 'B');
    QVERIFY(Configuration::entryProblem(entry).contains("at most 48"));
    entry.bankName = "  " + QString(48, 'B') + "  ";
    entry.branchName = QString(23, 'R');
    QVERIFY(Configuration::entryProblem(entry).contains("at most 22"));
}

void tst_frmConfigure::enterInBankNameResetsPortToOne()
{
    TestContext t;
    frmConfigure w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* port = w.findChild<QComboBox*>("cmbComPort");
    port->setCurrentIndex(4);
    QCOMPARE(port->currentText(), QStringLiteral("5"));
    auto* bank = w.findChild<QLineEdit*>("txtBankName");
    bank->setFocus();
    QTest::keyClicks(bank, "Bank");
    QTest::keyClick(bank, Qt::Key_Return);
    QCOMPARE(port->currentText(), QStringLiteral("1"));
    QTRY_COMPARE(QApplication::focusWidget(), port);
    QCOMPARE(bank->text(), QStringLiteral("Bank"));
    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
    QCOMPARE(field(t, "Comm Port"), QStringLiteral("1"));
}

void tst_frmConfigure::enterInPortListMovesToUpdate()
{
    TestContext t;
    frmConfigure w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* port = w.findChild<QComboBox*>("cmbComPort");
    port->setCurrentIndex(6);
    port->setFocus();
    QTest::keyClick(port, Qt::Key_Return);
    QTRY_COMPARE(QApplication::focusWidget(), w.findChild<ColourButton*>("cmdUpdate"));
    QCOMPARE(port->currentIndex(), 6);
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmConfigure::deviceShownBesideThePortList_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("ini");
    QTest::addColumn<QString>("portOverride");
    QTest::addColumn<QString>("expected");
#ifdef Q_OS_WIN
    QTest::newRow("port 3") << 2 << ""
                            << ""
                            << "Device: COM3";
#else
    QTest::newRow("port 1") << 0 << ""
                            << ""
                            << "Device: /dev/ttyS0";
    QTest::newRow("port 10") << 9 << ""
                             << ""
                             << "Device: /dev/ttyS9";
    QTest::newRow("mapped in ports.ini") << 1 << "2=/dev/ttyUSB0\n"
                                         << ""
                                         << "Device: /dev/ttyUSB0 (ports.ini line 1)";
    QTest::newRow("ports.ini line that cannot be read") << 1 << "2=/dev/ttyUSB0\n2 /dev/ttyUSB1\n"
                                                        << ""
                                                        << "Device: none (ports.ini line 2 cannot be read)";
    QTest::newRow("another port than the mapped one") << 2 << "2=/dev/ttyUSB0\n"
                                                      << ""
                                                      << "Device: /dev/ttyS2";
#endif
    QTest::newRow("given with --port") << 4 << ""
                                       << "/dev/pts/7"
                                       << "Device: /dev/pts/7 (given with --port)";
}

void tst_frmConfigure::deviceShownBesideThePortList()
{
    QFETCH(int, index);
    QFETCH(QString, ini);
    QFETCH(QString, portOverride);
    QFETCH(QString, expected);
    TestContext t;
    if (!ini.isEmpty()) {
        QFile f(t.path("ports.ini"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(ini.toUtf8());
    }
    t.ctx->portOverride = portOverride;
    frmConfigure w(*t.ctx);
    w.findChild<QComboBox*>("cmbComPort")->setCurrentIndex(index);
    const QLabel* label = w.findChild<QLabel*>("lblDevice");
    QCOMPARE(label->text(), expected);
    // The whole reason, with the file, where the label names only the line.
    if (expected.contains("cannot be read"))
        QVERIFY2(label->toolTip().startsWith("Line 2 of " + t.path("ports.ini") + " cannot be read"),
                 qPrintable(label->toolTip()));
    else
        QVERIFY(label->toolTip().isEmpty());
}

void tst_frmConfigure::exitClosesTheScreen()
{
    TestContext t;
    frmConfigure w(*t.ctx);
    w.show();
    QTest::mouseClick(w.findChild<ColourButton*>("cmdExit"), Qt::LeftButton);
    QVERIFY(!w.isVisible());
    QCOMPARE(field(t, "SNo"), QStringLiteral("<no row>"));
}

QTEST_MAIN(tst_frmConfigure)
#include "tst_frmconfigure.moc"
