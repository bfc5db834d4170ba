#include "desktop/ProgramIcon.h"

#include <QFile>
#include <QImage>
#include <QtTest>

// The icon the windows carry comes from the program's own resources, in every
// size rendered from desktop/tonvy.svg, and the desktop entry it names is the
// one that is installed.
class tst_ProgramIcon : public QObject
{
    Q_OBJECT

private slots:
    void everySizeIsBuiltIn();
    void theDesktopEntryExists();
};

void tst_ProgramIcon::everySizeIsBuiltIn()
{
    const QList<int> sizes = programIconSizes();
    if (sizes.isEmpty())
        QSKIP("built without rsvg-convert (librsvg2-bin): no PNG icons");
    QCOMPARE(sizes, QList<int>({16, 22, 24, 32, 48, 64, 128, 256}));
    const QIcon icon = programIcon();
    QVERIFY(!icon.isNull());
    for (const int size : sizes) {
        const QImage image(QStringLiteral(":/icons/tonvy-%1.png").arg(size));
        QVERIFY2(!image.isNull(), qPrintable(QString::number(size)));
        QCOMPARE(image.size(), QSize(size, size));
        QVERIFY(icon.availableSizes().contains(QSize(size, size)));
        // Drawn, not blank: the middle of the terminal's body is opaque.
        QCOMPARE(qAlpha(image.pixel(size / 2, size / 2)), 255);
    }
}

void tst_ProgramIcon::theDesktopEntryExists()
{
    QVERIFY(QFile::exists(QStringLiteral(TONVY_SOURCE_DIR "/desktop/") + desktopEntryName() + ".desktop"));
    QVERIFY(QFile::exists(QStringLiteral(TONVY_SOURCE_DIR "/desktop/") + desktopEntryName() + ".metainfo.xml.in"));
}

QTEST_MAIN(tst_ProgramIcon)
#include "tst_programicon.moc"
