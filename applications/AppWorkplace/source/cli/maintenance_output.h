#pragma once

#include <QString>

class MaintenanceRecords;
class Output;

/// Where the maintenance records are unless somebody says otherwise.
QString defaultRecordsFile();

/// Tells how it stands today with the maintenance of a tool.
void showMaintenance(MaintenanceRecords& records, QString const& tool, bool json, Output& output);

/// Tells on standard error what was wrong in the records.
void showComplaints(MaintenanceRecords const& records);
