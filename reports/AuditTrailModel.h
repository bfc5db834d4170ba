#pragma once

#include "store/AuditTrail.h"

#include <QAbstractTableModel>
#include <QDate>

class SharedDatabase;

// The audit events of a range of days as a read-only table (Time, User,
// Action, Details, Version; oldest first, as the CSV), for the report
// screen's audit window. Holds the events it read, so the CSV saved is the
// table as shown.
class AuditTrailModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit AuditTrailModel(QObject* parent = nullptr);

    // Reads the events from the day `from` to the day `to`, both included.
    // False with the reason when the store cannot be read; the table is then
    // empty.
    bool load(SharedDatabase& db, const QDate& from, const QDate& to, QString* error = nullptr);

    const QList<AuditTrail::Event>& events() const { return m_events; }
    QDate from() const { return m_from; }
    QDate to() const { return m_to; }

    // "16-Nov-2007 to 18-Nov-2007: 3 events, oldest first"
    QString summary() const;
    // What to tell the user instead of showing an empty table.
    static QString emptyRangeMessage(const QDate& from, const QDate& to);
    // The file name to suggest for the CSV: AuditTrail_20071116_20071118.csv
    static QString suggestedFileName(const QDate& from, const QDate& to);

    // Writes the events held, exactly as `tonvy-cli audit` would write them.
    bool saveCsv(const QString& path, QString* error = nullptr) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QList<AuditTrail::Event> m_events;
    QDate m_from;
    QDate m_to;
};
