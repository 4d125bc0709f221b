#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QVariant>

class MaintenanceRecords;

/// The workstation as maintenance pages see it: the global `application` of their QML.
class PanelApplication : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isConfigChanged READ isConfigChanged NOTIFY configChanged)

public:
    /// From now on pages get their tools' records from here. One at a time; the records must outlive it.
    explicit PanelApplication(MaintenanceRecords& records);
    ~PanelApplication() override;

    /// Makes a tool known, and answers the id under which its pages speak to the application: the same in
    /// every run.
    QString addTool(QString const& tool);

    /// What the operator edited on the page of the tool with this id.
    Q_INVOKABLE void updatePluginParameters(QString const& objectId, QVariantMap const& parameters);
    /// Saves what was edited on all pages.
    Q_INVOKABLE void saveMaintenanceToFile();
    /// There are edits that are not saved yet; called with each.
    Q_INVOKABLE void setConfigChanged();
    Q_INVOKABLE void resetConfigChanged();

    bool isConfigChanged() const { return m_isConfigChanged; }
    /// Why edits were not taken or not saved, one line; empty if all went well.
    QString problem() const { return m_problem; }

    /// The operator gives up what was not saved: from now on nothing is.
    void giveUp() { m_isGivenUp = true; }
    bool isGivenUp() const { return m_isGivenUp; }

signals:
    /// An edit, or all edits are saved.
    void configChanged();
    /// Edits were written to the file.
    void saved();

private:
    MaintenanceRecords& m_records;
    QMap<QString, QString> m_tools; ///< names by id
    bool m_isConfigChanged = false;
    bool m_isGivenUp = false;
    QString m_problem;
};
