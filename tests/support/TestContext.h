#pragma once

#include "base/Clock.h"
#include "core/AppContext.h"
#include "store/SharedDatabase.h"
#include "tests/support/RecordingMessenger.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

// A fresh data folder with a new database, a recording messenger and a
// pinned clock (16 Nov 2007, 10:20:30), as most tests need.
struct TestContext
{
    QTemporaryDir dir;
    SharedDatabase db;
    RecordingMessenger messenger;
    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30))};
    std::unique_ptr<AppContext> ctx;

    TestContext()
    {
        QString error;
        if (!db.open(QDir(dir.path()).filePath(SharedDatabase::fileName()), &error))
            qFatal("cannot open test database: %s", qPrintable(error));
        ctx = std::make_unique<AppContext>(db, messenger, clock);
        ctx->dataDir = dir.path();
    }

    QString path(const QString& name) const { return QDir(dir.path()).filePath(name); }
};
