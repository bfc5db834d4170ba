#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>

class UploadTerminal;

// The command-line options of tonvy-terminal's upload mode: where the
// collections come from, what the summary says, and the faults.
class UploadTerminalOptions
{
public:
    void addTo(QCommandLineParser& parser);
    // Sets up the terminal from the parsed options; the replies are built
    // afresh from the state file in stateDir at every header request. False
    // with a usage message on a bad value.
    bool apply(const QCommandLineParser& parser, const QString& stateDir, UploadTerminal& terminal,
               QString* error) const;

private:
    QCommandLineOption m_script{QStringLiteral("collections"),
                                QStringLiteral("Upload the collections of this script (lines: account amount "
                                               "dd/mm/yyyy hh:mm [number])."),
                                QStringLiteral("file")};
    QCommandLineOption m_generate{QStringLiteral("generate"),
                                  QStringLiteral("Upload <n> generated collections (default: one per account)."),
                                  QStringLiteral("n")};
    QCommandLineOption m_sample{QStringLiteral("sample-accounts"),
                                QStringLiteral("Without a download first: make up <n> accounts of agent 001."),
                                QStringLiteral("n")};
    QCommandLineOption m_date{QStringLiteral("collection-date"),
                              QStringLiteral("Date of generated collections, dd/mm/yyyy (default: the download's)."),
                              QStringLiteral("date")};
    QCommandLineOption m_announce{QStringLiteral("announce"),
                                  QStringLiteral("Announce <n> records in the upload header instead of the real "
                                                 "count."),
                                  QStringLiteral("n")};
    QCommandLineOption m_mismatch{QStringLiteral("summary-mismatch"),
                                  QStringLiteral("Make the summary's total one rupee more than the collections.")};
    QCommandLineOption m_corrupt{QStringLiteral("upload-corrupt"),
                                 QStringLiteral("Send a wrong check byte in the reply to record <n> (once, or "
                                                "<n>:<times>)."),
                                 QStringLiteral("n")};
    QCommandLineOption m_corruptNext{QStringLiteral("upload-corrupt-next"),
                                     QStringLiteral("Send a wrong check byte in the next <k> replies."),
                                     QStringLiteral("k")};
    QCommandLineOption m_split{QStringLiteral("upload-split"),
                               QStringLiteral("Send the reply to record <n> (or every reply: all) in pieces."),
                               QStringLiteral("n|all")};
    QCommandLineOption m_pieces{QStringLiteral("upload-pieces"),
                                QStringLiteral("Number of pieces for --upload-split (default 3)."),
                                QStringLiteral("k")};
    QCommandLineOption m_nack{QStringLiteral("upload-nack"),
                              QStringLiteral("Answer the first request for record <n> with NACK."),
                              QStringLiteral("n")};
    QCommandLineOption m_silent{QStringLiteral("upload-silent"),
                                QStringLiteral("Leave the first request for record <n> unanswered."),
                                QStringLiteral("n")};
    QCommandLineOption m_mute{QStringLiteral("upload-mute"), QStringLiteral("Never answer an upload request.")};
    QCommandLineOption m_delay{QStringLiteral("upload-delay"),
                               QStringLiteral("Hold back the first reply to record <n> for 1300 ms, or <ms> "
                                              "(a late reply that crosses the PC's next request)."),
                               QStringLiteral("n[:ms]")};
    QCommandLineOption m_misread{QStringLiteral("upload-misread"),
                                 QStringLiteral("Read the first request for record <n> as a request for <m> (a "
                                                "bit flipped on the line)."),
                                 QStringLiteral("n:m")};
    QCommandLineOption m_stay{QStringLiteral("stay-in-upload"),
                              QStringLiteral("Keep answering record requests after the end frame (by default "
                                             "the terminal leaves upload mode at \"OVER\" until the next header "
                                             "request).")};
};
