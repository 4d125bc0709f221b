#include "maintenance_panel.h"

#include "maintenance_records.h"
#include "maintenance_state.h"
#include "page_document.h"
#include "panel_application.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QQmlComponent>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegularExpression>
#include <QtDebug>

namespace
{

// How many complaints about the records leave room for the page.
constexpr int c_shownComplaints = 3;

} // namespace

bool isInherentBindingLoop(QString const& warning)
{
    static QRegularExpression const pattern(
        QStringLiteral("/(UiTextField\\.qml:.*\"text\"|UiSpinBox\\.qml:.*\"value\"|maintenance_panel\\.qml:.*"
                       "\"(text|date|value)\")$"));
    return warning.contains(QLatin1String("Binding loop detected")) && pattern.match(warning).hasMatch();
}

MaintenancePanel::MaintenancePanel(DAbstractPlugin const& plugin, QString const& tool,
                                   MaintenanceRecords& records, PanelApplication& application, Theme theme)
    : m_plugin(plugin)
    , m_tool(tool)
    , m_records(records)
    , m_application(application)
{
    m_engine.setOutputWarningsToStandardError(false);
    connect(&m_engine, &QQmlEngine::warnings, this, [](QList<QQmlError> const& warnings) {
        for (auto const& warning : warnings) {
            if (!isInherentBindingLoop(warning.toString()))
                qWarning().noquote() << warning.toString();
        }
    });
    connect(&application, &PanelApplication::configChanged, this, &MaintenancePanel::changed);
    m_engine.rootContext()->setContextProperty(QStringLiteral("application"), &application);
    m_engine.rootContext()->setContextProperty(QStringLiteral("panel"), this);
    m_engine.setInitialProperties({{QStringLiteral("dark"), theme == Theme::Dark}});
    m_engine.load(QUrl(QStringLiteral("qrc:/applications/AppWorkplace/gui/PanelWindow.qml")));
    m_window = qobject_cast<QQuickWindow*>(m_engine.rootObjects().value(0));
    if (!m_window)
        throw InputError(QStringLiteral("the window for the maintenance page cannot be made"));
    openPage();
}

MaintenancePanel::~MaintenancePanel()
{
    // While the engine is there: the page's last words are scripts.
    m_page.reset();
}

void MaintenancePanel::openPage()
{
    auto const document = pageDocument(m_plugin, m_tool, m_application.addTool(m_tool));
    QQmlComponent component(&m_engine);
    component.setData(document.text, document.url);
    auto* const item = qobject_cast<QQuickItem*>(component.create());
    if (!item)
        throw InputError(QStringLiteral("%1: faulty maintenance page: %2")
                             .arg(m_plugin.pluginName(), component.errorString().simplified()));
    m_page.reset(item);
    auto* const place = m_window->property("place").value<QQuickItem*>();
    item->setParentItem(place);
    item->setWidth(place->width());
    connect(place, &QQuickItem::widthChanged, item, [item, place] { item->setWidth(place->width()); });
}

MaintenanceState MaintenancePanel::state() const
{
    return maintenanceState(*m_records.record(m_tool), QDate::currentDate());
}

QString MaintenancePanel::alert() const
{
    auto const now = state();
    // The page itself cannot tell a validity that is not set from a permanent one.
    bool const isNotSet = now.kind == MaintenanceState::Kind::NotSet;
    return now.isAlert() || isNotSet ? toText(now) : QString();
}

bool MaintenancePanel::isUrgent() const
{
    auto const kind = state().kind;
    return kind == MaintenanceState::Kind::Overdue || kind == MaintenanceState::Kind::Unreadable;
}

QString MaintenancePanel::problem() const
{
    QStringList lines = m_records.complaints();
    if (lines.size() > c_shownComplaints)
        lines = lines.mid(0, c_shownComplaints)
                << QStringLiteral("and %1 more").arg(lines.size() - c_shownComplaints);
    if (!m_application.problem().isEmpty())
        lines.prepend(m_application.problem());
    return lines.join(QLatin1Char('\n'));
}

void MaintenancePanel::focusFirstField()
{
    m_page->nextItemInFocusChain()->forceActiveFocus(Qt::TabFocusReason);
}

bool MaintenancePanel::close()
{
    m_page.reset();
    if (m_application.isGivenUp() || m_application.problem().isEmpty())
        return true;
    m_mayDiscard = true;
    openPage();
    emit changed();
    return false;
}

void MaintenancePanel::discard()
{
    m_application.giveUp();
    m_window->close();
}
