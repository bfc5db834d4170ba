// The two collection reports against a branch's five years of history: 10
// agents x 200 accounts, one collection per account and day, 3.65 million
// history rows, built here in a temporary folder. Each measurement runs in a
// child process of its own so that its peak memory is its own.
//
//   bench_reports [--db FILE]     (an existing FILE is used as it stands;
//                                  a missing one is built and kept)

#include "bench/HistoryBuilder.h"
#include "reports/ReportPages.h"
#include "reports/ReportRenderer.h"
#include "store/SharedDatabase.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <cstdio>
#include <sys/resource.h>

namespace {

long peakRssKb()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Processor time used so far (user and system), in seconds.
double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Figures
{
    double seconds = -1;
    long peakKb = 0;
    QString note;
};

// One measurement, run in this process (the child).
int measure(const QString& phase, const QString& dbPath, const QString& outDir)
{
    SharedDatabase db;
    QString error;
    if (!db.open(dbPath, &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    const ReportHeader header{QStringLiteral("Sahyadri Co-operative Bank"), QStringLiteral("Kothrud 014"),
                              QDate(2026, 11, 23)};
    const ReportLimits day{QDate(2026, 10, 15), QDate(2026, 10, 15), {}, {}};
    const ReportLimits month{QDate(2026, 10, 1), QDate(2026, 10, 31), {}, {}};
    const ReportLimits year{QDate(2025, 1, 1), QDate(2025, 12, 31), {}, {}};
    const double cpuBefore = cpuSeconds();
    QElapsedTimer timer;
    timer.start();
    QString note;
    bool ok = true;
    const QString out = QDir(outDir).filePath(phase);
    if (phase == QLatin1String("day-pdf")) {
        ok = ReportRenderer::writePdf(db, ReportKind::Daily, day, header, out + ".pdf", &error);
    } else if (phase == QLatin1String("day-agent1-pdf")) {
        ReportLimits one = day;
        one.agentId = QStringLiteral("1");
        ok = ReportRenderer::writePdf(db, ReportKind::Daily, one, header, out + ".pdf", &error);
    } else if (phase == QLatin1String("month-pdf")) {
        ok = ReportRenderer::writePdf(db, ReportKind::Daily, month, header, out + ".pdf", &error);
    } else if (phase == QLatin1String("month-csv")) {
        ok = ReportRenderer::writeCsv(db, ReportKind::Daily, month, out + ".csv", &error);
    } else if (phase == QLatin1String("agent-year-pdf")) {
        ok = ReportRenderer::writePdf(db, ReportKind::Agent, year, header, out + ".pdf", &error);
    } else if (phase == QLatin1String("month-first-page") || phase == QLatin1String("month-page-700")) {
        // What View does: the page breaks, then the page in sight painted at
        // screen size.
        const auto pages = ReportPages::make(db, ReportKind::Daily, month, header);
        const int index = phase == QLatin1String("month-first-page") ? 0 : 700;
        QImage image(860, 1216, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::white);
        QPainter painter(&image);
        ReportPages::beginPage(painter, image);
        pages->paintPage(painter, index);
        painter.end();
        note = QStringLiteral("%1 pages").arg(pages->pageCount());
    } else {
        std::fprintf(stderr, "unknown phase %s\n", qPrintable(phase));
        return 2;
    }
    const double seconds = timer.nsecsElapsed() / 1e9;
    const double cpu = cpuSeconds() - cpuBefore;
    if (!ok) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    if (note.isEmpty())
        note = QStringLiteral("%1 KB written")
                   .arg(QFileInfo(out + (phase.endsWith("csv") ? ".csv" : ".pdf")).size() / 1024);
    std::printf("%.3f %.3f %ld %s\n", seconds, cpu, peakRssKb(), qPrintable(note));
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();

    const int phaseAt = static_cast<int>(args.indexOf(QStringLiteral("--phase")));
    if (phaseAt > 0 && phaseAt + 3 < args.size())
        return measure(args[phaseAt + 1], args[phaseAt + 2], args[phaseAt + 3]);

    QTemporaryDir dir;
    const QString dbPath = HistoryBuilder::prepare(args, dir.path(), "Reports");
    if (dbPath.isEmpty())
        return 1;

    struct Phase
    {
        const char* name;
        const char* what;
        const char* target;
    };
    const Phase phases[] = {
        {"day-pdf", "daily report, one day (2,000 rows), PDF", "< 0.3 s"},
        {"day-agent1-pdf", "daily report, one day, agent \"1\", PDF", ""},
        {"month-pdf", "daily report, October 2026 (62,000 rows), PDF", "< 5 s, < 150 MB"},
        {"month-csv", "daily report, October 2026, CSV", ""},
        {"agent-year-pdf", "agent summary, 2025, PDF", "< 1 s"},
        {"month-first-page", "View of October 2026: first page", "< 1 s"},
        {"month-page-700", "View of October 2026: page 701", ""},
    };
    std::printf("\n%-48s %8s %8s %8s  %-16s %s\n", "report", "seconds", "cpu s", "peak MB", "target", "");
    for (const Phase& phase : phases) {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--phase"), QString::fromLatin1(phase.name), dbPath, dir.path()});
        child.waitForFinished(-1);
        const QString out = QString::fromLocal8Bit(child.readAllStandardOutput()).trimmed();
        const QStringList f = out.split(QLatin1Char(' '));
        if (child.exitCode() != 0 || f.size() < 3) {
            std::printf("%-48s failed: %s\n", phase.what,
                        qPrintable(QString::fromLocal8Bit(child.readAllStandardError())));
            continue;
        }
        std::printf("%-48s %8.3f %8.3f %8.1f  %-16s %s\n", phase.what, f[0].toDouble(), f[1].toDouble(),
                    f[2].toDouble() / 1024.0, phase.target, qPrintable(f.mid(3).join(QLatin1Char(' '))));
        std::fflush(stdout);
    }
    std::printf("\n(seconds: wall clock; cpu s: processor time of the measuring process; peak MB: its peak\n"
                " resident memory, start-up included. Each line runs in a fresh process.)\n");
    return 0;
}
