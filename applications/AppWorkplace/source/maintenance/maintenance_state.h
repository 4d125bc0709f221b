#pragma once

#include <QDate>
#include <QString>

class DElement;

/// How it stands with a tool's maintenance on some day.
struct MaintenanceState
{
    enum class Kind
    {
        NotSet,     ///< the record has no validity
        Permanent,  ///< never due
        Valid,      ///< and no alert yet
        Due,        ///< within the days of the alert, the last day included
        Overdue,    ///< the validity has ended
        Unreadable, ///< the record has a validity that is no date
    };

    Kind kind = Kind::NotSet;
    QString validity;    ///< as the record has it
    qint64 daysLeft = 0; ///< until the last day; negative when it has passed

    bool hasDaysLeft() const { return kind == Kind::Valid || kind == Kind::Due || kind == Kind::Overdue; }
    /// Whether the operator must be told.
    bool isAlert() const { return kind == Kind::Due || kind == Kind::Overdue || kind == Kind::Unreadable; }
};

MaintenanceState maintenanceState(DElement const& record, QDate today);

/// "due", as a program reads it.
QString kindName(MaintenanceState::Kind kind);

/// "maintenance overdue: it was valid until 2026-11-20, 1 day ago", as a person reads it.
QString toText(MaintenanceState const& state);
