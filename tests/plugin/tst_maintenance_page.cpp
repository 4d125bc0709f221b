#include "be_maintenance_plugin.h"
#include "literals.h"
#include "message_capture.h"

#include "maintenance/gui_setup.h"
#include "maintenance/maintenance_panel.h"
#include "maintenance/page_document.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

#include <QDate>
#include <QFile>
#include <QPluginLoader>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QtQuickTest>

#include <memory>
#include <optional>

/// The host of the pages that qml/*.qml open: `bench` there, and the `application` of the page. It keeps
/// account of what pages call, and of what the QML engine has to say.
class TestMaintenancePage : public QObject
{
    Q_OBJECT

public:
    // What a page calls.
    Q_INVOKABLE void updatePluginParameters(QString const& objectId, QVariantMap const& parameters)
    {
        note({"updatePluginParameters"_s, objectId, parameters});
    }
    Q_INVOKABLE void saveMaintenanceToFile() { note({"saveMaintenanceToFile"_s}); }
    Q_INVOKABLE void setConfigChanged() { note({"setConfigChanged"_s}); }
    Q_INVOKABLE void resetConfigChanged() { note({"resetConfigChanged"_s}); }

    // What the tests ask for.

    /// Opens the page in the plugin's resource, as a host does it.
    Q_INVOKABLE QQuickItem* openPage(QQuickItem* parent, QString const& name, QString const& id)
    {
        auto const document = pageDocument(plugin(), name, id);
        return make(parent, document.text, document.url);
    }
    /// Opens the page as it stands in the source tree, with the components there.
    Q_INVOKABLE QQuickItem* openSourcePage(QQuickItem* parent)
    {
        return make(parent, pageSource().toUtf8(), QUrl::fromLocalFile(QStringLiteral(PAGE_FILE)));
    }
    /// Opens the page with the components of another host.
    Q_INVOKABLE QQuickItem* openElsewhere(QQuickItem* parent)
    {
        QString const place =
            QStringLiteral(QUICK_TEST_SOURCE_DIR "/other_host/plugins/zrt/resource/maintenance_panel.qml");
        return make(parent, pageSource().toUtf8(), QUrl::fromLocalFile(place));
    }
    Q_INVOKABLE void closePage() { delete m_page.data(); }

    /// Whether and with what a record is attached to the pages that are opened from now on.
    Q_INVOKABLE void setRecord(QString const& serialNumber, QString const& validityDate, int alertDays)
    {
        m_record.reset(new DElement);
        m_record->setSerialNumber(serialNumber);
        m_record->setValidityDate(validityDate);
        m_record->setStbExpiredDelay(alertDays);
    }
    Q_INVOKABLE void removeRecord() { m_record.reset(); }
    /// Attaches the record to the page that is open.
    Q_INVOKABLE void attachRecord() { backend()->setElement(m_record); }
    Q_INVOKABLE QVariantMap record() const
    {
        return {{"serialNumber"_s, m_record->serialNumber()},
                {"validityDate"_s, m_record->validityDate()},
                {"isNull"_s, m_record->validityDate().isNull()},
                {"alertDays"_s, m_record->stbExpiredDelay()}};
    }

    Q_INVOKABLE QObject* backendOfPage() const { return backend(); }
    Q_INVOKABLE void setConnected(bool connected) { backend()->setConnected(connected); }

    /// Gives the page's backend a channel to read; nothing in the plugin does.
    Q_INVOKABLE void addChannel(QString const& id, QString const& readCommand)
    {
        auto const channel = DZrtToolChannel::create({{"id"_s, id}});
        channel->setReadCommand(readCommand);
        qobject_cast<BeMaintenanceToolZrt*>(backend())->statusChannelsModel()->append(channel);
    }

    /// From now on everything that is logged is kept; the test framework has its own way with it until then.
    Q_INVOKABLE void watchMessages()
    {
        m_messages.reset();
        m_messages.emplace();
    }

    /// The calls since this was asked last, each a list of its name and its arguments.
    Q_INVOKABLE QVariantList takeCalls() { return std::exchange(m_calls, {}); }
    /// What was logged since watchMessages() and is not accepted; the watch is over.
    Q_INVOKABLE QStringList takeWarnings()
    {
        QStringList texts;
        for (auto const& line : qAsConst(m_messages->lines)) {
            if (line.type != QtDebugMsg && !isInherentBindingLoop(line.text))
                texts += line.text;
        }
        m_messages.reset();
        return texts;
    }
    /// How many of the warnings were of the one kind that is accepted.
    Q_INVOKABLE int bindingLoops() const
    {
        int count = 0;
        for (auto const& line : qAsConst(m_messages->lines))
            count += isInherentBindingLoop(line.text) ? 1 : 0;
        return count;
    }
    Q_INVOKABLE QString pageSource() const
    {
        QFile file(":/{fe68f24c-ac43-4833-abc7-7d9f33744448}/maintenance_panel.qml"_s);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    Q_INVOKABLE QString isoDate(QDate date) const { return date.toString(Qt::ISODate); }
    Q_INVOKABLE QString className(QObject* object) const
    {
        return QString::fromLatin1(object->metaObject()->className());
    }

public slots:
    void applicationAvailable()
    {
        setUpGui();
        DAbstractPluginBackend::setElementSource([this](QString const&) { return m_record; });
    }
    void qmlEngineAvailable(QQmlEngine* engine)
    {
        m_engine = engine;
        engine->rootContext()->setContextProperty("application"_s, this);
        engine->rootContext()->setContextProperty("bench"_s, this);
    }
    void cleanupTestCase() { DAbstractPluginBackend::setElementSource({}); }

private:
    DAbstractPlugin& plugin() { return *qobject_cast<DAbstractPlugin*>(m_loader.instance()); }
    DAbstractPluginBackend* backend() const { return m_page->findChild<DAbstractPluginBackend*>(); }

    QQuickItem* make(QQuickItem* parent, QByteArray const& text, QUrl const& url)
    {
        QQmlComponent component(m_engine);
        component.setData(text, url);
        m_page = qobject_cast<QQuickItem*>(component.create());
        if (!m_page) {
            qWarning().noquote() << component.errorString();
            return nullptr;
        }
        QQmlEngine::setObjectOwnership(m_page, QQmlEngine::CppOwnership);
        m_page->setParentItem(parent);
        m_page->setSize(parent->size());
        return m_page;
    }

    void note(QVariantList const& call) { m_calls.append(QVariant(call)); }

    QPluginLoader m_loader{QStringLiteral(ZRT_PLUGIN_FILE)};
    QPointer<QQmlEngine> m_engine;
    QPointer<QQuickItem> m_page;
    QSharedPointer<DElement> m_record;
    QVariantList m_calls;
    std::optional<MessageCapture> m_messages;
};

QUICK_TEST_MAIN_WITH_SETUP(maintenance_page, TestMaintenancePage)
#include "tst_maintenance_page.moc"
