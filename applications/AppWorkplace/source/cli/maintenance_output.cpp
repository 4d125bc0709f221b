#include "maintenance_output.h"

#include "output.h"

#include "maintenance/maintenance_records.h"
#include "maintenance/maintenance_state.h"
#include "trace/event_json.h"

#include <files/input_error.h>

#include <QDate>
#include <QStandardPaths>

#include <cstdio>

QString defaultRecordsFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
           + QStringLiteral("/workplace/maintenance.json");
}

void showMaintenance(MaintenanceRecords& records, QString const& tool, bool json, Output& output)
{
    auto const state = maintenanceState(*records.record(tool), QDate::currentDate());
    if (!json) {
        output.write(QStringLiteral("%1: %2\n").arg(onOneLine(tool), toText(state)).toUtf8());
        return;
    }
    nlohmann::ordered_json line{
        {"kind", "maintenance"}, {"tool", tool.toStdString()}, {"state", kindName(state.kind).toStdString()}};
    if (!state.validity.isEmpty())
        line["validityDate"] = state.validity.toStdString();
    if (state.hasDaysLeft())
        line["daysLeft"] = state.daysLeft;
    output.write(toLine(line));
}

void showComplaints(MaintenanceRecords const& records)
{
    auto const complaints = records.complaints();
    for (auto const& complaint : complaints)
        std::fprintf(stderr, "workplace: %s\n", qUtf8Printable(onOneLine(complaint)));
}
