// tonvy-terminal: plays the hand-held terminal on a pseudo-terminal so that
// the program (or tonvy-cli) can be tried without the device. Give the
// device path it prints to --port.

#include "base/Version.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/Pty.h"
#include "terminal/UploadTerminal.h"
#include "terminal/UploadTerminalOptions.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>
#include <QTimer>
#include <functional>

namespace {

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err()
{
    static QTextStream stream(stderr);
    return stream;
}

struct DownloadOptions
{
    QCommandLineOption nack{QStringLiteral("nack"), QStringLiteral("Answer NACK to download frame <n> once."),
                            QStringLiteral("n")};
    QCommandLineOption wrongNumber{QStringLiteral("wrong-number"),
                                   QStringLiteral("Acknowledge download frame <n> once with a wrong record number."),
                                   QStringLiteral("n")};
    QCommandLineOption silent{QStringLiteral("silent"),
                              QStringLiteral("Do not answer download frame <n> once (the PC times out and resends)."),
                              QStringLiteral("n")};
    QCommandLineOption notDownloadMode{QStringLiteral("not-download-mode"),
                                       QStringLiteral("Answer every download frame with CLOS or BACK, as a terminal "
                                                      "that is not in its download mode."),
                                       QStringLiteral("clos|back")};

    void addTo(QCommandLineParser& parser) { parser.addOptions({nack, wrongNumber, silent, notDownloadMode}); }

    bool read(const QCommandLineParser& parser, DownloadTerminal::Faults* faults, QString* error) const
    {
        auto number = [&](const QCommandLineOption& option, int* target) {
            if (!parser.isSet(option))
                return true;
            bool ok = false;
            const int n = parser.value(option).toInt(&ok);
            if (!ok || n < 0 || n > 32767) {
                *error = QStringLiteral("--%1 needs a frame number from 0 (the header) to 32767, not \"%2\".")
                             .arg(option.names().first(), parser.value(option));
                return false;
            }
            *target = n;
            return true;
        };
        if (!number(nack, &faults->nackFrame) || !number(wrongNumber, &faults->wrongNumberFrame) ||
            !number(silent, &faults->silentFrame))
            return false;
        if (parser.isSet(notDownloadMode)) {
            const QString word = parser.value(notDownloadMode).toLower();
            if (word != QLatin1String("clos") && word != QLatin1String("back")) {
                *error = QStringLiteral("--not-download-mode takes clos or back, not \"%1\".")
                             .arg(parser.value(notDownloadMode));
                return false;
            }
            faults->notDownloadMode = word.toUpper().toLatin1();
        }
        return true;
    }
};

// A pulled cable, at a time or after a number of frames.
struct LineDropOptions
{
    QCommandLineOption at{QStringLiteral("drop-line"),
                          QStringLiteral("Pull the cable <at>:<for> milliseconds: <at> ms after the first byte from "
                                         "the PC the line goes dead for <for> ms (bytes lost both ways). May be "
                                         "given more than once."),
                          QStringLiteral("at:for")};
    QCommandLineOption afterFrames{QStringLiteral("drop-after-frames"),
                                   QStringLiteral("Pull the cable <n>:<for>: after the terminal has taken its n-th "
                                                  "frame (download frames, upload requests) the line goes dead for "
                                                  "<for> ms. May be given more than once."),
                                   QStringLiteral("n:for")};

    struct Drop
    {
        int when = 0; // ms, or frame count
        int forMs = 0;
    };
    QList<Drop> timed;
    QList<Drop> counted;

    void addTo(QCommandLineParser& parser) { parser.addOptions({at, afterFrames}); }

    bool read(const QCommandLineParser& parser, QString* error)
    {
        auto parse = [&](const QCommandLineOption& option, QList<Drop>* into, int least) {
            for (const QString& value : parser.values(option)) {
                const QStringList parts = value.split(QLatin1Char(':'));
                bool ok1 = false;
                bool ok2 = false;
                const Drop d{parts.value(0).toInt(&ok1), parts.value(1).toInt(&ok2)};
                if (parts.size() != 2 || !ok1 || !ok2 || d.when < least || d.forMs < 1) {
                    *error = QStringLiteral("--%1 takes two numbers a:b (b at least 1 ms), not \"%2\".")
                                 .arg(option.names().first(), value);
                    return false;
                }
                into->append(d);
            }
            return true;
        };
        return parse(at, &timed, 0) && parse(afterFrames, &counted, 1);
    }
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tonvy-terminal"));
    QCoreApplication::setApplicationVersion(programVersion());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Plays the hand-held collection terminal on a pseudo-terminal.\n"
                       "The first line printed names the device to give the program with --port.\n"
                       "Download frames are numbered by the record number they carry: 0 is the header,\n"
                       "2 the first account."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption stateDir(QStringLiteral("state"),
                                      QStringLiteral("Folder of the terminal's state file (default: the current "
                                                     "folder)."),
                                      QStringLiteral("dir"), QStringLiteral("."));
    const QCommandLineOption baud(QStringLiteral("baud"),
                                  QStringLiteral("Pace the terminal's bytes as a line at this speed (19200 as the "
                                                 "real cable); 0 sends at once."),
                                  QStringLiteral("rate"), QStringLiteral("0"));
    const QCommandLineOption quiet(QStringLiteral("quiet"), QStringLiteral("Print only the device line and errors."));
    parser.addOptions({stateDir, baud, quiet});
    DownloadOptions downloadOptions;
    downloadOptions.addTo(parser);
    UploadTerminalOptions uploadOptions;
    uploadOptions.addTo(parser);
    LineDropOptions dropOptions;
    dropOptions.addTo(parser);
    parser.process(app);

    QString error;
    DownloadTerminal::Faults downloadFaults;
    if (!downloadOptions.read(parser, &downloadFaults, &error)) {
        err() << error << Qt::endl;
        return 2;
    }
    if (!dropOptions.read(parser, &error)) {
        err() << error << Qt::endl;
        return 2;
    }
    bool ok = false;
    const int rate = parser.value(baud).toInt(&ok);
    if (!ok || rate < 0) {
        err() << QStringLiteral("--baud needs a number of bits per second, not \"%1\".").arg(parser.value(baud))
              << Qt::endl;
        return 2;
    }
    const QString dir = parser.value(stateDir);
    if (!QFileInfo(dir).isDir()) {
        err() << QStringLiteral("The state folder %1 does not exist.").arg(QDir::toNativeSeparators(dir)) << Qt::endl;
        return 2;
    }

    Pty pty;
    if (!pty.open(&error)) {
        err() << QStringLiteral("Cannot open a pseudo-terminal: %1").arg(error) << Qt::endl;
        return 1;
    }
    pty.setBaud(rate);

    const bool verbose = !parser.isSet(quiet);
    auto note = [verbose](const QString& text) {
        if (verbose)
            out() << text << Qt::endl;
    };

    DownloadTerminal download(&pty);
    download.setFaults(downloadFaults);
    download.setStateDir(dir);
    download.setLineBaud(rate);
    QObject::connect(&download, &DownloadTerminal::note, note);

    UploadTerminal upload(&pty);
    if (!uploadOptions.apply(parser, dir, upload, &error)) {
        err() << error << Qt::endl;
        return 2;
    }
    QObject::connect(&upload, &UploadTerminal::note, note);
    QObject::connect(&upload, &UploadTerminal::replySent, [&note](int record, const QString& how) {
        note(QStringLiteral("upload record %1 requested: %2")
                 .arg(record)
                 .arg(how.isEmpty() ? QStringLiteral("answered") : how));
    });
    QObject::connect(&upload, &UploadTerminal::overReceived, [&upload](const QByteArray&) {
        out() << QStringLiteral("OVER received (%1 so far)").arg(upload.overCount()) << Qt::endl;
    });

    // Everything the PC sends starts 01 FF 10 F0 and a command byte: 'D' for
    // the download exchange, 'U' for the upload one. The PC waits for an
    // answer after every frame, so a chunk that starts no frame belongs to
    // the exchange of the frame before it.
    QHash<char, std::function<void(const QByteArray&)>> exchanges;
    exchanges.insert('D', [&download](const QByteArray& bytes) { download.receive(bytes); });
    exchanges.insert('U', [&upload](const QByteArray& bytes) { upload.receive(bytes); });
    auto pullCable = [&pty, &note](int forMs) {
        note(QStringLiteral("line down for %1 ms").arg(forMs));
        pty.dropFor(forMs);
        QTimer::singleShot(forMs, &pty, [&note] { note(QStringLiteral("line up again")); });
    };
    int framesTaken = 0;
    auto frameTaken = [&] {
        ++framesTaken;
        for (const LineDropOptions::Drop& d : std::as_const(dropOptions.counted)) {
            if (d.when == framesTaken)
                pullCable(d.forMs);
        }
    };
    QObject::connect(&download, &DownloadTerminal::headerReceived, frameTaken);
    QObject::connect(&download, &DownloadTerminal::accountReceived, frameTaken);
    QObject::connect(&upload, &UploadTerminal::replySent, frameTaken);
    bool firstByteSeen = false;

    std::function<void(const QByteArray&)> current;
    QObject::connect(&pty, &Pty::readyRead, [&] {
        const QByteArray bytes = pty.readAll();
        if (!firstByteSeen) {
            firstByteSeen = true;
            for (const LineDropOptions::Drop& d : std::as_const(dropOptions.timed))
                QTimer::singleShot(d.when, &pty, [&pullCable, d] { pullCable(d.forMs); });
        }
        const qsizetype head = bytes.indexOf(QByteArrayLiteral("\x01\xFF\x10\xF0"));
        if (head >= 0 && head + 4 < bytes.size()) {
            const char command = bytes.at(head + 4);
            current = exchanges.value(command);
            if (!current)
                note(QStringLiteral("ignored a frame with command byte 0x%1")
                         .arg(static_cast<unsigned char>(command), 2, 16, QLatin1Char('0')));
        }
        if (current)
            current(bytes);
    });

    out() << QStringLiteral("Terminal ready on %1").arg(pty.devicePath()) << Qt::endl;
    note(QStringLiteral("State file: %1")
             .arg(QDir::toNativeSeparators(QFileInfo(download.statePath()).absoluteFilePath())));
    return app.exec();
}
