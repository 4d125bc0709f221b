#pragma once

#include <QMap>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

class DElement;
class JsonInput;

/// The maintenance records of all tools, in one JSON file:
///
///     {"tools": {"left bench": {"serialNumber": "ZRT-0042",
///                               "validityDate": "2027-03-01",
///                               "alertBeforeExpiration": 14}}}
///
/// The validity is a day, "" for permanent, or null for not set; the alert is in days. Any field may be
/// absent.
///
/// Nothing in the file is lost: saving writes the edited fields into what the file holds by then and leaves
/// the rest, and the file is replaced as a whole or not at all.
class MaintenanceRecords
{
public:
    /// Reads the file; one that is not there holds no records. InputError if it is no file of records. A
    /// field that is not usable is told in complaints() and taken as not set.
    explicit MaintenanceRecords(QString const& fileName);

    /// Whether there is such a file. InputError if that is not to be found out.
    static bool areThere(QString const& fileName);

    QString fileName() const { return m_fileName; }
    QStringList complaints() const { return m_complaints; }

    /// The names of the tools that have a record, sorted.
    QStringList tools() const { return m_records.keys(); }
    /// The record of a tool, a new one if it has none; the same object each time.
    QSharedPointer<DElement> record(QString const& tool);

    /// Takes over what was edited, as a maintenance page hands it over: "serialNumber", "validityDate"
    /// (texts) and "alertBeforeExpiration" (days). InputError, and nothing taken, for any other key or type.
    void edit(QString const& tool, QVariantMap const& parameters);

    /// Writes what was edited since the last time; answers whether there was anything. InputError if that is
    /// not possible; then the file is as it was, and the edits stay for another try.
    bool save();

private:
    void read(QString const& tool, JsonInput const& input);

    QString const m_fileName;
    QStringList m_complaints;
    QMap<QString, QSharedPointer<DElement>> m_records;
    QMap<QString, QSet<QString>> m_edited; ///< keys by tool
};

/// The JSON Schema of the records.
QByteArray maintenanceSchema();
