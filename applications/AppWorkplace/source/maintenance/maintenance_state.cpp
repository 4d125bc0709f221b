#include "maintenance_state.h"

#include <files/input_error.h>
#include <plugin_management/d_element.h>

namespace
{

QString days(qint64 count)
{
    return count == 1 ? QStringLiteral("1 day") : QStringLiteral("%1 days").arg(count);
}

} // namespace

MaintenanceState maintenanceState(DElement const& record, QDate today)
{
    using Kind = MaintenanceState::Kind;
    QString const validity = record.validityDate();
    if (validity.isNull())
        return {Kind::NotSet, validity, 0};
    if (validity.isEmpty())
        return {Kind::Permanent, validity, 0};
    QDate const lastDay = QDate::fromString(validity, Qt::ISODate);
    // Qt reads some texts as dates that are not written as one.
    if (!lastDay.isValid() || lastDay.toString(Qt::ISODate) != validity)
        return {Kind::Unreadable, validity, 0};
    qint64 const left = today.daysTo(lastDay);
    if (left < 0)
        return {Kind::Overdue, validity, left};
    return {left <= record.stbExpiredDelay() ? Kind::Due : Kind::Valid, validity, left};
}

QString kindName(MaintenanceState::Kind kind)
{
    switch (kind) {
    case MaintenanceState::Kind::NotSet:
        return QStringLiteral("notSet");
    case MaintenanceState::Kind::Permanent:
        return QStringLiteral("permanent");
    case MaintenanceState::Kind::Valid:
        return QStringLiteral("valid");
    case MaintenanceState::Kind::Due:
        return QStringLiteral("due");
    case MaintenanceState::Kind::Overdue:
        return QStringLiteral("overdue");
    case MaintenanceState::Kind::Unreadable:
        break;
    }
    return QStringLiteral("unreadable");
}

QString toText(MaintenanceState const& state)
{
    switch (state.kind) {
    case MaintenanceState::Kind::NotSet:
        return QStringLiteral("no maintenance validity is set");
    case MaintenanceState::Kind::Permanent:
        return QStringLiteral("maintenance valid permanently");
    case MaintenanceState::Kind::Valid:
        return QStringLiteral("maintenance valid until %1, %2 left")
            .arg(state.validity, days(state.daysLeft));
    case MaintenanceState::Kind::Due:
        return QStringLiteral("maintenance due: valid until %1, %2 left")
            .arg(state.validity, days(state.daysLeft));
    case MaintenanceState::Kind::Overdue:
        return QStringLiteral("maintenance overdue: it was valid until %1, %2 ago")
            .arg(state.validity, days(-state.daysLeft));
    case MaintenanceState::Kind::Unreadable:
        break;
    }
    return QStringLiteral("the maintenance validity is no date: \"%1\"").arg(shown(state.validity));
}
