#include "be_maintenance_plugin.h"
#include "literals.h"
#include "living_objects.h"
#include "message_capture.h"
#include "scratch_folder.h"
#include "shipped_plugin.h"

#include "maintenance/gui_setup.h"
#include "maintenance/maintenance_panel.h"
#include "maintenance/maintenance_records.h"
#include "maintenance/page_document.h"
#include "maintenance/panel_application.h"

#include <plugin_management/d_element.h>

#include <QGuiApplication>
#include <QInputMethodEvent>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlExpression>
#include <QQuickItem>
#include <QQuickWindow>
#include <QtTest>

#include <functional>
#include <memory>
#include <optional>

namespace
{

QString const c_tool = "left bench"_s;
QString const c_id = "{a-tool}"_s;

/// The `application` of the page: keeps account of what the page calls.
class Application : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void updatePluginParameters(QString const& objectId, QVariantMap const& parameters)
    {
        calls.append({"updatePluginParameters"_s, objectId, parameters});
    }
    Q_INVOKABLE void saveMaintenanceToFile() { calls.append({"saveMaintenanceToFile"_s}); }
    Q_INVOKABLE void setConfigChanged() {}

    QList<QVariantList> calls;
};

// Everything that is posted, what is to be deleted included.
void settle()
{
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

/// The page in a window, with channels that the test, the list alone, and a script hold.
class Page
{
public:
    Page(std::unique_ptr<QQmlEngine>& itsEngine, std::unique_ptr<QQuickWindow>& itsWindow)
        : engine(itsEngine)
        , window(itsWindow)
    {
        record->setSerialNumber("ZRT-0042"_s);
        record->setValidityDate("2027-03-01"_s);
        record->setStbExpiredDelay(14);
        if (!engine) {
            engine = std::make_unique<QQmlEngine>();
            engine->globalObject().setProperty("shelf"_s, engine->newObject());
        }
        engine->rootContext()->setContextProperty("application"_s, &application);
        if (!window) {
            window = std::make_unique<QQuickWindow>();
            window->resize(640, 480);
            window->show();
            window->requestActivate();
            if (!QTest::qWaitForWindowActive(window.get()))
                qFatal("the window does not become active");
        }
        DAbstractPluginBackend::setElementSource([this](QString const&) { return record; });
        auto const document = pageDocument(*ShippedPlugin().root(), c_tool, c_id);
        QQmlComponent component(engine.get());
        component.setData(document.text, document.url);
        root = qobject_cast<QQuickItem*>(component.create());
        if (!root)
            qFatal("%s", qPrintable(component.errorString()));
        QQmlEngine::setObjectOwnership(root, QQmlEngine::CppOwnership);
        root->setParentItem(window->contentItem());
        root->setSize(window->contentItem()->size());
        backend = root->findChild<BeMaintenanceToolZrt*>();
        window->grabWindow(); // everything finds its place

        held = appendChannel("held"_s);
        listed = appendChannel("listed"_s).data();
        QQmlExpression expression(qmlContext(root), root,
                                  "shelf.model = be.statusChannelsModel;"
                                  "shelf.held = shelf.model.item(0);"
                                  "shelf.listed = shelf.model.item(1)"_s);
        expression.evaluate();
        if (expression.hasError())
            qFatal("%s", qPrintable(expression.error().toString()));
    }

    QSharedPointer<DZrtToolChannel> appendChannel(QString const& id) const
    {
        auto channel = DZrtToolChannel::create({{"id"_s, id}});
        channel->setReadCommand("read "_s + id);
        backend->statusChannelsModel()->append(channel);
        return channel;
    }

    /// The first item of a kind in a part of the page.
    QQuickItem* inner(char const* part, char const* kind) const
    {
        auto const items =
            root->findChild<QQuickItem*>("maintenance_panel_tool_zrt.idColumn.%1"_s.arg(QLatin1String(part)))
                ->childItems();
        for (auto* const item : items) {
            if (QByteArray(item->metaObject()->className()).startsWith(kind))
                return item;
        }
        qFatal("there is no %s", kind);
    }
    QQuickItem* serialNumber() const { return inner("idValueSetSerialNumber", "TextField"); }

    QPoint centerOf(QQuickItem* item) const
    {
        return item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
    }
    void click(QQuickItem* item) const
    {
        QTest::mouseClick(window.get(), Qt::LeftButton, Qt::NoModifier, centerOf(item));
    }
    QQuickItem* calendar() const { return named(*window->contentItem(), "calendar"_s); }

    Application application;
    QSharedPointer<DElement> record{new DElement};
    std::unique_ptr<QQmlEngine>& engine;
    std::unique_ptr<QQuickWindow>& window;
    QPointer<QQuickItem> root;
    QPointer<BeMaintenanceToolZrt> backend;
    QSharedPointer<DZrtToolChannel> held;
    QPointer<DZrtToolChannel> listed;

private:
    static QQuickItem* named(QQuickItem const& item, QString const& name)
    {
        auto const items = item.childItems();
        for (auto* const child : items) {
            auto* const found = child->objectName() == name ? child : named(*child, name);
            if (found)
                return found;
        }
        return nullptr;
    }
};

using Step = void (*)(Page&);

// What becomes of the page while it is open.

void nothing(Page& /*page*/) {}

void typeText(Page& page)
{
    page.serialNumber()->forceActiveFocus();
    QTest::keyClick(page.window.get(), Qt::Key_End);
    QTest::keyClick(page.window.get(), '7');
    QVERIFY(page.serialNumber()->hasActiveFocus());
    QCOMPARE(page.record->serialNumber(), "ZRT-00427"_s);
}

void composeText(Page& page)
{
    page.serialNumber()->forceActiveFocus();
    QInputMethodEvent event("7"_s, {});
    QCoreApplication::sendEvent(page.serialNumber(), &event);
    QCOMPARE(page.serialNumber()->property("preeditText").toString(), "7"_s);
}

void holdStep(Page& page)
{
    auto* const box = page.inner("idExpirationInDays", "SpinBox");
    auto* const up = box->property("up").value<QObject*>()->property("indicator").value<QQuickItem*>();
    QTest::mousePress(page.window.get(), Qt::LeftButton, Qt::NoModifier, page.centerOf(up));
    QVERIFY(box->property("up").value<QObject*>()->property("pressed").toBool());
}

void beginCalendar(Page& page)
{
    page.click(page.inner("idValueSetValidityDate", "UiButton"));
    QVERIFY(page.calendar());
    QVERIFY(!page.calendar()->hasActiveFocus());
}

void turnMonth(Page& page)
{
    page.click(page.inner("idValueSetValidityDate", "UiButton"));
    QTRY_VERIFY(page.calendar() && page.calendar()->hasActiveFocus());
    QTest::keyClick(page.window.get(), Qt::Key_PageDown);
    QCOMPARE(page.calendar()->property("shownMonth").toInt(), 3);
}

// A switch is taken once, and refused while that is pending.
void startTreatment(Page& page)
{
    page.backend->setConnected(true);
    QVERIFY(QMetaObject::invokeMethod(page.root, "updateData"));
    page.backend->clickedOnChannel(1);
    QVERIFY(page.backend->hasPendingTreatments());
    QSignalSpy const retries(page.backend, &BeMaintenanceToolZrt::delayingClickedOnChannel);
    page.backend->clickedOnChannel(1);
    QCoreApplication::sendPostedEvents(page.backend);
    QCOMPARE(retries.count(), 2);
}

void refuseSwitch(Page& page)
{
    QSignalSpy const retries(page.backend, &BeMaintenanceToolZrt::delayingClickedOnChannel);
    page.backend->clickedOnChannel(0);
    page.backend->clickedOnChannel(1);
    for (int i = 0; i < 3; ++i)
        QCoreApplication::sendPostedEvents(page.backend);
    QCOMPARE(retries.count(), 8);
}

void letGoOfChannels(Page& page)
{
    page.held.reset(new DZrtToolChannel);
    page.backend->statusChannelsModel()->clear();
    QVERIFY(page.listed.isNull());
}

// In which order things go.

void closePage(Page& page)
{
    delete page.root.data();
}

void pageThenEngine(Page& page)
{
    delete page.root.data();
    page.engine.reset();
}

// What is left of the page is still there to be called.
void engineThenPage(Page& page)
{
    page.engine.reset();
    page.backend->setSerialNumber("after"_s);
    page.backend->setConnected(!page.backend->isConnected());
    page.backend->updateChannelsValue();
    page.backend->applyTreatmentReply(0, "read held"_s, {});
    settle();
    delete page.root.data();
}

void windowThenPage(Page& page)
{
    page.window.reset();
    settle();
    delete page.root.data();
}

void windowThenEngineThenPage(Page& page)
{
    page.window.reset();
    engineThenPage(page);
}

} // namespace

Q_DECLARE_METATYPE(Step)

/// The maintenance page is opened and closed again and again, in the middle of whatever, and leaves nothing
/// behind.
class TestPageLifetime : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        setUpGui();
        QVERIFY(m_plugin.root());
        // What Qt makes once and keeps is there then.
        comeAndGo(turnMonth, closePage, {});
        cleanup();
        m_atRest = m_living.byClass();
    }

    void cleanup()
    {
        m_engine.reset();
        m_window.reset();
        DAbstractPluginBackend::setElementSource({});
        settle();
    }

    void comesAndGoes_data()
    {
        QTest::addColumn<Step>("meanwhile");
        QTest::addColumn<Step>("go");
        QTest::addColumn<int>("rounds");
        QTest::addColumn<QVariantMap>("edits");

        QVariantMap const none;
        QVariantMap const typed{{"serialNumber"_s, "ZRT-00427"_s}};
        // So many that what the collector of garbage has not yet found of one page does not count.
        constexpr int many = 40;
        constexpr int some = 16; // where each takes an engine or a window of its own, or waits for one
        auto const row = [](char const* name, Step meanwhile, Step go, int rounds, QVariantMap const& edits) {
            QTest::newRow(name) << meanwhile << go << rounds << edits;
        };
        row("at rest", nothing, closePage, many, none);
        row("typing", typeText, closePage, many, typed);
        row("composing", composeText, closePage, many, none);
        row("stepping", holdStep, closePage, many, none);
        row("calendar opens", beginCalendar, closePage, many, none);
        row("calendar turned", turnMonth, closePage, some, none);
        row("treatment pending", startTreatment, closePage, many, none);
        row("switch refused", refuseSwitch, closePage, many, none);
        row("channels before", letGoOfChannels, closePage, many, none);

        row("engine after, calendar", beginCalendar, pageThenEngine, some, none);
        row("engine after, switch", refuseSwitch, pageThenEngine, some, none);
        row("engine before, typing", typeText, engineThenPage, some, typed);
        row("engine before, treatment", startTreatment, engineThenPage, some, none);
        row("engine before, switch", refuseSwitch, engineThenPage, some, none);
        row("window before, typing", typeText, windowThenPage, some, typed);
        row("window before, calendar", beginCalendar, windowThenPage, some, none);
        row("window and engine before", typeText, windowThenEngineThenPage, some, typed);
    }

    void comesAndGoes()
    {
        QFETCH(Step, meanwhile);
        QFETCH(Step, go);
        QFETCH(int, rounds);
        QFETCH(QVariantMap, edits);

        QMap<QString, int> early;
        for (int round = 1; round <= rounds; ++round) {
            comeAndGo(meanwhile, go, edits);
            if (QTest::currentTestFailed())
                return;
            if (round == rounds / 2)
                early = m_living.byClass();
        }
        // The collector of garbage may be late by a page or two, and on a busy machine what fades out by
        // more, but not for good.
        auto const growing = [&] {
            if (m_engine)
                m_engine->collectGarbage();
            QStringList classes;
            auto const late = m_living.byClass();
            for (auto one = late.cbegin(); one != late.cend(); ++one) {
                if (one.value() - early.value(one.key()) >= rounds / 2)
                    classes += one.key();
            }
            return classes.join(QLatin1Char(' '));
        };
        QTRY_COMPARE(growing(), QString());
        cleanup();
        QCOMPARE(differences(m_atRest, m_living.byClass()), QString());
    }

private:
    void comeAndGo(Step meanwhile, Step go, QVariantMap const& edits)
    {
        MessageCapture log;
        {
            Page page(m_engine, m_window);
            QWeakPointer<DElement> const record = page.record;
            meanwhile(page);
            if (QTest::currentTestFailed())
                return;
            QPointer<DZrtToolChannel> const held = page.held.data();
            m_engine->collectGarbage();
            go(page);
            settle();
            if (m_window)
                QTest::mouseRelease(m_window.get(), Qt::LeftButton);
            if (m_engine) {
                m_engine->globalObject().setProperty("shelf"_s, m_engine->newObject());
                m_engine->collectGarbage();
                settle();
            }
            QVERIFY2(!held.isNull(), "a channel went with the script that had it");
            QVERIFY(page.root.isNull());
            QVERIFY(page.backend.isNull());
            QVERIFY(page.listed.isNull());
            // Nobody listens to what the test still holds.
            page.held->setId("after"_s);
            QCOMPARE(page.application.calls, (QList<QVariantList>{{"updatePluginParameters"_s, c_id, edits},
                                                                  {"saveMaintenanceToFile"_s}}));
            DAbstractPluginBackend::setElementSource({});
            page.record.reset();
            QVERIFY(record.isNull());
        }
        for (auto const& line : qAsConst(log.lines))
            QVERIFY2(line.type == QtDebugMsg || isInherentBindingLoop(line.text), qPrintable(line.text));
    }

    LivingObjects m_living;
    QMap<QString, int> m_atRest;
    ShippedPlugin m_plugin;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QQuickWindow> m_window;
};

QTEST_MAIN(TestPageLifetime)
#include "tst_page_lifetime.moc"
