#include "terminal/UploadTerminalOptions.h"

#include "base/DayText.h"
#include "terminal/UploadTerminal.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

bool number(const QCommandLineParser& parser, const QCommandLineOption& option, int lowest, int highest, int* target,
            QString* error)
{
    if (!parser.isSet(option))
        return true;
    bool ok = false;
    const int n = parser.value(option).toInt(&ok);
    if (!ok || n < lowest || n > highest) {
        *error = QStringLiteral("--%1 needs a number from %2 to %3, not \"%4\".")
                     .arg(option.names().first())
                     .arg(lowest)
                     .arg(highest)
                     .arg(parser.value(option));
        return false;
    }
    *target = n;
    return true;
}

// The day the download was for: ddmm from the key, the year from the PC's
// clock sent with the download header.
QDate downloadDay(const TerminalAccounts& state)
{
    const QDate sent = QDate::fromString(state.clock.left(8), QStringLiteral("dd/MM/yy")).addYears(100);
    const int year = sent.isValid() ? sent.year() : QDate::currentDate().year();
    const QDate day =
        QDate::fromString(state.agentDateKey.mid(3, 4) + QString::number(year), QStringLiteral("ddMMyyyy"));
    return day.isValid() ? day : QDate::currentDate();
}

} // namespace

void UploadTerminalOptions::addTo(QCommandLineParser& parser)
{
    parser.addOptions({m_script, m_generate, m_sample, m_date, m_announce, m_mismatch, m_corrupt, m_corruptNext,
                       m_split, m_pieces, m_nack, m_silent, m_mute, m_delay, m_misread, m_stay});
}

bool UploadTerminalOptions::apply(const QCommandLineParser& parser, const QString& stateDir, UploadTerminal& terminal,
                                  QString* error) const
{
    UploadTerminal::Faults& faults = terminal.faults();
    if (parser.isSet(m_corrupt)) {
        const QStringList parts = parser.value(m_corrupt).split(QLatin1Char(':'));
        bool ok = parts.size() <= 2;
        faults.corruptRecord = ok ? parts.at(0).toInt(&ok) : -1;
        if (ok && parts.size() == 2)
            faults.corruptTimes = parts.at(1).toInt(&ok);
        if (!ok || faults.corruptRecord < 0 || faults.corruptTimes < 1) {
            *error = QStringLiteral("--upload-corrupt needs a record number, optionally :times, not \"%1\".")
                         .arg(parser.value(m_corrupt));
            return false;
        }
    }
    if (parser.isSet(m_delay)) {
        const QStringList parts = parser.value(m_delay).split(QLatin1Char(':'));
        bool ok = parts.size() <= 2;
        faults.delayRecord = ok ? parts.at(0).toInt(&ok) : -1;
        if (ok && parts.size() == 2)
            faults.delayMs = parts.at(1).toInt(&ok);
        if (!ok || faults.delayRecord < 0 || faults.delayMs < 0) {
            *error = QStringLiteral("--upload-delay needs a record number, optionally :milliseconds, not \"%1\".")
                         .arg(parser.value(m_delay));
            return false;
        }
    }
    if (parser.isSet(m_misread)) {
        const QStringList parts = parser.value(m_misread).split(QLatin1Char(':'));
        bool ok = parts.size() == 2, ok2 = false;
        faults.misreadRecord = ok ? parts.at(0).toInt(&ok) : -1;
        faults.misreadAs = parts.size() == 2 ? parts.at(1).toInt(&ok2) : -1;
        if (!ok || !ok2 || faults.misreadRecord < 0 || faults.misreadAs < 0) {
            *error = QStringLiteral("--upload-misread needs two record numbers n:m, not \"%1\".")
                         .arg(parser.value(m_misread));
            return false;
        }
    }
    if (!number(parser, m_corruptNext, 1, 1000000, &faults.corruptNext, error) ||
        !number(parser, m_pieces, 2, 137, &faults.pieces, error) ||
        !number(parser, m_nack, 0, 65535, &faults.nackRecord, error) ||
        !number(parser, m_silent, 0, 65535, &faults.silentRecord, error))
        return false;
    if (parser.isSet(m_split)) {
        if (parser.value(m_split) == QLatin1String("all"))
            faults.splitRecord = -2;
        else if (!number(parser, m_split, 0, 65535, &faults.splitRecord, error))
            return false;
    }
    faults.mute = parser.isSet(m_mute);
    terminal.setStayInUpload(parser.isSet(m_stay));

    UploadRecords::Options options;
    options.summaryMismatch = parser.isSet(m_mismatch);
    int generated = -1;
    int sample = 0;
    if (!number(parser, m_announce, 0, 65535, &options.announce, error) ||
        !number(parser, m_generate, 0, 1000000, &generated, error) ||
        !number(parser, m_sample, 1, 32767, &sample, error))
        return false;
    QDate date;
    if (parser.isSet(m_date)) {
        const DayText::Reading day = DayText::readDayMonthYear(parser.value(m_date));
        if (!day.shaped || parser.value(m_date).trimmed().size() != 10) {
            *error = QStringLiteral("--collection-date needs dd/mm/yyyy, not \"%1\".").arg(parser.value(m_date));
            return false;
        }
        if (!day.date.isValid()) {
            *error = DayText::noSuchDayText(QStringLiteral("--collection-date"), parser.value(m_date), day);
            return false;
        }
        date = day.date;
    }
    const QString script = parser.isSet(m_script) ? parser.value(m_script) : QString();
    if (!script.isEmpty() && !QFileInfo(script).isFile()) {
        *error = QStringLiteral("The collection script %1 does not exist.").arg(QDir::toNativeSeparators(script));
        return false;
    }

    const QString statePath = QDir(stateDir).filePath(TerminalAccounts::fileName());
    terminal.setRecordProvider([=](UploadRecords* out, QString* why) {
        TerminalAccounts state;
        if (QFileInfo::exists(statePath)) {
            if (!state.load(statePath, why))
                return false;
        } else if (sample > 0) {
            state = UploadRecords::sampleAccounts(sample, date.isValid() ? date : QDate::currentDate());
        } else {
            *why = QStringLiteral("no accounts: download to the terminal first, or start it with --sample-accounts");
            return false;
        }
        QList<Collection> collections;
        if (!script.isEmpty()) {
            QFile file(script);
            if (!file.open(QIODevice::ReadOnly)) {
                *why = QStringLiteral("cannot read %1: %2").arg(script, file.errorString());
                return false;
            }
            if (!UploadRecords::parseScript(file.readAll(), &collections, why)) {
                *why = QStringLiteral("%1, %2").arg(script, *why);
                return false;
            }
        } else {
            const int count = generated >= 0 ? generated : static_cast<int>(state.accounts.size());
            collections = UploadRecords::generate(state, count, date.isValid() ? date : downloadDay(state));
        }
        return UploadRecords::build(state, collections, options, out, why);
    });
    return true;
}
