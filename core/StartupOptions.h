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
    // Reads the parsed options; without --data-dir the data folder is
    // DataFolder::defaultFor the program's folder.
    static StartupOptions from(const QCommandLineParser& parser);
};
