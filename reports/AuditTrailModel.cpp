#include "reports/AuditTrailModel.h"

#include "store/StoreError.h"

#include <QLocale>

namespace {

QString shownDate(const QDate& date)
{
    // As the report screen's date pickers show it.
    return QLocale::c().toString(date, QStringLiteral("dd-MMM-yyyy"));
}

} // namespace

AuditTrailModel::AuditTrailModel(QObject* parent) : QAbstractTableModel(parent) {}

bool AuditTrailModel::load(SharedDatabase& db, const QDate& from, const QDate& to, QString* error)
{
    QList<AuditTrail::Event> events;
    bool ok = true;
    try {
        events = AuditTrail::read(db, from, to);
    } catch (const StoreError& e) {
        ok = false;
        if (error)
            *error = QStringLiteral("The audit trail cannot be read: %1").arg(e.message());
    }
    beginResetModel();
    m_events = std::move(events);
    m_from = from;
    m_to = to;
    endResetModel();
    return ok;
}

QString AuditTrailModel::summary() const
{
    const auto count = m_events.size();
    return QStringLiteral("%1 to %2: %3 %4, oldest first")
        .arg(shownDate(m_from), shownDate(m_to))
        .arg(count)
        .arg(count == 1 ? QStringLiteral("event") : QStringLiteral("events"));
}

QString AuditTrailModel::emptyRangeMessage(const QDate& from, const QDate& to)
{
    return QStringLiteral("The audit trail has no events from %1 to %2.").arg(shownDate(from), shownDate(to));
}

QString AuditTrailModel::suggestedFileName(const QDate& from, const QDate& to)
{
    return QStringLiteral("AuditTrail_%1_%2.csv")
        .arg(from.toString(QStringLiteral("yyyyMMdd")), to.toString(QStringLiteral("yyyyMMdd")));
}

bool AuditTrailModel::saveCsv(const QString& path, QString* error) const
{
    return AuditTrail::writeCsv(m_events, path, error);
}

int AuditTrailModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_events.size());
}

int AuditTrailModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(AuditTrail::columnNames().size());
}

QVariant AuditTrailModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_events.size())
        return {};
    // The details can be long: the tooltip shows them whole.
    if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
        return AuditTrail::field(m_events.at(index.row()), index.column());
    return {};
}

QVariant AuditTrailModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole)
        return {};
    if (orientation == Qt::Vertical)
        return section + 1;
    const QStringList columns = AuditTrail::columnNames();
    return section >= 0 && section < columns.size() ? QVariant(columns.at(section)) : QVariant();
}
