#pragma once

#include <QObject>
#include <QQmlApplicationEngine>
#include <QString>

#include <memory>

class DAbstractPlugin;
class MaintenanceRecords;
struct MaintenanceState;
class PanelApplication;
class QQuickItem;
class QQuickWindow;

/// Whether a warning of the QML engine is the one that a maintenance page cannot avoid: whenever one of its
/// values is read, its backend tells that all may have changed, and the engine takes that for a mistake. What
/// else it says is worth reading.
bool isInherentBindingLoop(QString const& warning);

/// The maintenance page of one tool in a window: `panel` in the window's QML.
///
/// The page is the plugin's. Closing the window ends it, whereupon it hands over what was edited and has it
/// saved; if that fails the window stays and says why.
class MaintenancePanel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString tool READ tool CONSTANT)
    Q_PROPERTY(QString alert READ alert NOTIFY changed)
    Q_PROPERTY(bool isUrgent READ isUrgent NOTIFY changed)
    Q_PROPERTY(QString problem READ problem NOTIFY changed)
    Q_PROPERTY(bool mayDiscard READ mayDiscard NOTIFY changed)

public:
    enum class Theme
    {
        Light,
        Dark,
    };

    /// Opens the page; InputError if the plugin has none or a faulty one. Everything that is handed in must
    /// outlive the panel.
    MaintenancePanel(DAbstractPlugin const& plugin, QString const& tool, MaintenanceRecords& records,
                     PanelApplication& application, Theme theme);
    ~MaintenancePanel() override;

    QQuickWindow& window() const { return *m_window; }
    /// The page; null once it is closed.
    QQuickItem* page() const { return m_page.get(); }

    QString tool() const { return m_tool; }
    /// What the operator must know about the tool's maintenance; empty if all is well.
    QString alert() const;
    /// Whether there is more to it than that the maintenance is due soon.
    bool isUrgent() const;
    /// What is wrong with the records, or why they could not be saved.
    QString problem() const;
    /// Whether it was tried in vain to save the edits.
    bool mayDiscard() const { return m_mayDiscard; }

    /// For a keyboard: the first field is the place to begin.
    void focusFirstField();

    /// Ends the page. Answers whether the window may go: the edits are saved, or given up.
    Q_INVOKABLE bool close();
    /// Gives up the edits and closes the window.
    Q_INVOKABLE void discard();

signals:
    void changed();

private:
    MaintenanceState state() const;
    void openPage();

    DAbstractPlugin const& m_plugin;
    QString const m_tool;
    MaintenanceRecords& m_records;
    PanelApplication& m_application;
    QQmlApplicationEngine m_engine;
    QQuickWindow* m_window = nullptr; // the engine's
    std::unique_ptr<QQuickItem> m_page;
    bool m_mayDiscard = false;
};
