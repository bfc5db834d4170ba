#pragma once

#include <QCommandLineParser>
#include <QString>

// The options the desktop program and the command-line tool share.
struct StartupOptions
{
    QString dataDir;
    QString port;
    QString trace;

    static void addTo(QCommandLineParser& parser);
    // Reads the parsed options; the data folder defaults to the program's own.
    static StartupOptions from(const QCommandLineParser& parser);
};
