#include "literals.h"
#include "message_capture.h"
#include "meta_entries.h"
#include "qml_object.h"
#include "variants.h"

#include <olm_d_zrt_tool_channel.h>

#include <QAbstractItemModelTester>
#include <QPointer>
#include <QStringListModel>
#include <QtTest>

#include <limits>
#include <memory>
#include <type_traits>

namespace
{

constexpr int c_objectRole = 256;
constexpr int c_most = std::numeric_limits<int>::max();
constexpr int c_least = std::numeric_limits<int>::min();

// "-" stands for a null pointer.
QSharedPointer<DZrtToolChannel> channelOf(QString const& id)
{
    return id == "-"_s ? QSharedPointer<DZrtToolChannel>() : DZrtToolChannel::create({{"id"_s, id}});
}

// Channels by their ids: "a b".
void fill(OLM_DZrtToolChannel& model, QString const& ids)
{
    auto const list = ids.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (auto const& id : list)
        model.append(channelOf(id));
}

QString contentOf(OLM_DZrtToolChannel const& model)
{
    QStringList ids;
    for (int i = 0; i < model.count(); ++i)
        ids += model.at(i) ? model.at(i)->id() : "-"_s;
    return ids.join(QLatin1Char(' '));
}

// Carries out "append a", "insert 0 a", "remove 0" or "clear".
void change(OLM_DZrtToolChannel& model, QString const& order)
{
    QStringList const words = order.split(QLatin1Char(' '));
    if (words[0] == "append"_s)
        model.append(channelOf(words[1]));
    else if (words[0] == "insert"_s)
        model.insert(words[1].toInt(), channelOf(words[2]));
    else if (words[0] == "remove"_s)
        model.removeAt(words[1].toInt());
    else
        model.clear();
}

// Whether each channel, and no other, is found by its id, provided that ids are letters up to d.
bool isIndexRight(OLM_DZrtToolChannel const& model)
{
    QMap<QString, QSharedPointer<DZrtToolChannel>> expected;
    for (int i = model.count() - 1; i >= 0; --i) {
        if (model.at(i))
            expected.insert(model.at(i)->id(), model.at(i));
    }
    QStringList const ids{QString(), "a"_s, "b"_s, "c"_s, "d"_s};
    return std::all_of(ids.cbegin(), ids.cend(),
                       [&](QString const& id) { return model.byKey(id) == expected.value(id); });
}

/// Writes down how a model tells of its changes, and whether it is in step by then.
class ChangeLog : public QObject
{
public:
    explicit ChangeLog(OLM_DZrtToolChannel const& model)
    {
        using Model = QAbstractItemModel;
        auto const addRows = [this](char const* what) {
            return [this, what](QModelIndex const& parent, int first, int last) {
                m_lines += "%1 %2 %3"_s.arg(QLatin1String(what)).arg(first).arg(last);
                if (parent.isValid())
                    m_lines += "not at the root"_s;
            };
        };
        connect(&model, &Model::rowsAboutToBeInserted, this, addRows("inserting"));
        connect(&model, &Model::rowsInserted, this, addRows("inserted"));
        connect(&model, &Model::rowsAboutToBeRemoved, this, addRows("removing"));
        connect(&model, &Model::rowsRemoved, this, addRows("removed"));
        connect(&model, &Model::modelAboutToBeReset, this,
                [&] { m_lines += "resetting %1"_s.arg(model.count()); });
        connect(&model, &Model::modelReset, this, [this] { m_lines += "reset"_s; });
        connect(&model, &OLM_DZrtToolChannel::changed, this, [&] {
            m_lines += isIndexRight(model) ? "changed"_s : "changed, index out of step"_s;
            if (model.property("length") != model.count()
                || model.property("isEmpty") != (model.count() == 0 ? 1 : 0))
                m_lines += "properties out of step"_s;
        });
    }

    QString take() { return std::exchange(m_lines, {}).join(", "_s); }

private:
    QStringList m_lines;
};

QVariant invoke(OLM_DZrtToolChannel& model, char const* method, int argument)
{
    QVariant answer = "not invoked"_s;
    QMetaObject::invokeMethod(&model, method, Q_RETURN_ARG(QVariant, answer), Q_ARG(int, argument));
    return answer;
}

// An index at any row, for a model's answer depends on nothing else of it.
QModelIndex indexAt(int row)
{
    static QStringListModel const rows(QStringList{QString(), QString(), QString(), QString(), QString()});
    return rows.index(row);
}

/// What stands in a list that is not about channels.
class Screw : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int length MEMBER m_length)
    Q_PROPERTY(QString head MEMBER m_head)

public:
    Screw(int length, QString const& head) : m_length(length), m_head(head) {}

private:
    int m_length;
    QString m_head;
};

constexpr int c_lengthRole = Qt::UserRole + 7;

/// A list with properties as roles.
class ScrewList : public __qobjectsqmllist::QObjectListModelBase<Screw>
{
public:
    explicit ScrewList(PropertyRoles const& roles = {{c_lengthRole, "length"}, {Qt::DisplayRole, "head"}})
        : QObjectListModelBase(nullptr, roles)
    {}

    int changes = 0;

protected:
    void notifyChanged() override { ++changes; }
};

/// The channels in a list whose rows have no children: a model's tester takes it amiss that they seem to
/// have.
class FlatList : public OLM_DZrtToolChannel
{
public:
    int rowCount(QModelIndex const& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : OLM_DZrtToolChannel::rowCount(parent);
    }
};

} // namespace

/// The list of status channels, and the list of any objects underneath.
class TestChannelListModel : public QObject
{
    Q_OBJECT

private slots:
    void metaObject()
    {
        static_assert(
            std::is_base_of_v<__qobjectsqmllist::QObjectListModelBase<DZrtToolChannel>, OLM_DZrtToolChannel>);
        QCOMPARE(describe(OLM_DZrtToolChannel::staticMetaObject),
                 (QStringList{
                     // A template has no meta-object of its own.
                     "class OLM_DZrtToolChannel : QAbstractListModel"_s,
                     "int length [read] notify changed()"_s,
                     "int isEmpty [read] notify changed()"_s,
                     "public signal void changed()"_s,
                     "public method QVariant header(int section)"_s,
                     "protected method QVariant item(int i)"_s,
                 }));
    }

    void empty()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<OLM_DZrtToolChannel> const model = new OLM_DZrtToolChannel(parent.get());
        QCOMPARE(model->rowCount(), 0);
        QCOMPARE(model->property("length"), QVariant(0));
        QCOMPARE(model->property("isEmpty"), QVariant(1));
        QVERIFY(!model->data(indexAt(0), c_objectRole).isValid());
        parent.reset();
        QVERIFY(model.isNull());
        QVERIFY(!OLM_DZrtToolChannel().parent());
    }

    void objectIsOnlyData()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a b"_s);
        QList<int> rolesWithData;
        for (int row = -1; row < 4; ++row) {
            rolesWithData.clear();
            for (int role = -2; role < 2 * c_objectRole; ++role) {
                if (model.data(indexAt(row), role).isValid())
                    rolesWithData += role;
            }
            bool const isThere = row == 0 || row == 1;
            QCOMPARE(rolesWithData, isThere ? QList<int>{c_objectRole} : QList<int>());
            QVariant const object = model.data(indexAt(row), c_objectRole);
            QCOMPARE(object.userType(), int{isThere ? QMetaType::QObjectStar : QMetaType::UnknownType});
            QCOMPARE(object.value<QObject*>(), model.at(row).data());
            QVERIFY(!model.data(indexAt(row)).isValid());
        }
    }

    void itemOfRow()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a - b"_s);
        for (int const row : {0, 1, 2}) {
            QVariant const item = invoke(model, "item", row);
            QCOMPARE(item.typeName(), "DZrtToolChannel*");
            QCOMPARE(item.value<DZrtToolChannel*>(), model.at(row).data());
        }
        for (int const row : {c_least, -1, 3, c_most})
            QVERIFY(!invoke(model, "item", row).isValid());
    }

    void channelsHaveNoHeader()
    {
        OLM_DZrtToolChannel model;
        for (auto const* ids : {"", "a b"}) {
            fill(model, QString::fromLatin1(ids));
            for (int section = -1; section < 3; ++section) {
                for (int role = 0; role < 2 * c_objectRole; ++role) {
                    QVERIFY(!model.headerData(section, Qt::Horizontal, role).isValid());
                    QVERIFY(!model.headerData(section, Qt::Vertical, role).isValid());
                }
                QVERIFY(!invoke(model, "header", section).isValid());
            }
        }
    }

    void rowCountIgnoresParent()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a b"_s);
        QCOMPARE(model.rowCount(), 2);
        QCOMPARE(model.rowCount(model.index(0)), 2);
        QCOMPARE(model.rowCount(indexAt(4)), 2);
    }

    void rolesAreNamed()
    {
        auto expected = QStringListModel().roleNames();
        expected.insert(c_objectRole, "modelData");
        QCOMPARE(OLM_DZrtToolChannel().roleNames(), expected);
        expected.insert(c_lengthRole, "length");
        expected.insert(Qt::DisplayRole, "head");
        QCOMPARE(ScrewList().roleNames(), expected);
    }

    void declaredRolesAnswer_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("role");
        QTest::addColumn<QVariant>("value");

        QTest::newRow("length of the first") << 0 << c_lengthRole << QVariant(20);
        QTest::newRow("length of the last") << 1 << c_lengthRole << QVariant(35);
        QTest::newRow("head") << 1 << int{Qt::DisplayRole} << QVariant("round"_s);
        QTest::newRow("length of null") << 2 << c_lengthRole << QVariant();
        QTest::newRow("undeclared") << 0 << c_lengthRole + 1 << QVariant();
        QTest::newRow("edit is not display") << 0 << int{Qt::EditRole} << QVariant();
        QTest::newRow("below") << -1 << c_lengthRole << QVariant();
        QTest::newRow("one too many") << 3 << c_lengthRole << QVariant();
    }

    void declaredRolesAnswer()
    {
        QFETCH(int, row);
        QFETCH(int, role);
        QFETCH(QVariant, value);
        ScrewList model;
        model.append(QSharedPointer<Screw>::create(20, "flat"_s));
        model.append(QSharedPointer<Screw>::create(35, "round"_s));
        model.append({});
        QCOMPARE(model.changes, 3);
        QVERIFY(isSame(model.data(indexAt(row), role), value));
        QVariant const object = model.data(indexAt(row), c_objectRole);
        QCOMPARE(object.isValid(), row >= 0 && row < 3);
        QCOMPARE(object.value<QObject*>(), model.at(row).data());
    }

    void declaredRolesHaveHeaders()
    {
        ScrewList model;
        QVERIFY(!model.headerData(0, Qt::Horizontal, c_lengthRole).isValid());
        model.append(QSharedPointer<Screw>::create(20, "flat"_s));
        for (int section = -1; section < 3; ++section) {
            QVERIFY(isSame(model.headerData(section, Qt::Horizontal, c_lengthRole), "length"_s));
            QVERIFY(isSame(model.headerData(section, Qt::Horizontal), "head"_s));
            QVERIFY(!model.headerData(section, Qt::Horizontal, c_objectRole).isValid());
            QVERIFY(!model.headerData(section, Qt::Vertical, c_lengthRole).isValid());
        }
    }

    void firstDeclarationCounts()
    {
        ScrewList model(
            {{c_lengthRole, "head"}, {c_lengthRole, "length"}, {c_objectRole, "length"}, {300, "no"}});
        model.append(QSharedPointer<Screw>::create(20, "flat"_s));
        QCOMPARE(model.data(indexAt(0), c_lengthRole), QVariant("flat"_s));
        // A declared property goes before the object itself.
        QCOMPARE(model.data(indexAt(0), c_objectRole), QVariant(20));
        // What was set without being declared does not count.
        model.at(0)->setProperty("no", 1);
        QVERIFY(!model.data(indexAt(0), 300).isValid());
    }

    void changes_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("order");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("told");

        auto const row = [](char const* name, char const* before, QString const& order, char const* after,
                            QString const& told) {
            QTest::newRow(name) << QString::fromLatin1(before) << order << QString::fromLatin1(after) << told;
        };
        auto const inserted = [](int i) { return "inserting %1 %1, inserted %1 %1, changed"_s.arg(i); };
        auto const removed = [](int i) { return "removing %1 %1, removed %1 %1, changed"_s.arg(i); };
        auto const reset = [](int count) { return "resetting %1, reset, changed"_s.arg(count); };
        QString const nothing;
        row("append to none", "", "append c"_s, "c", inserted(0));
        row("append", "a b", "append c"_s, "a b c", inserted(2));
        row("append null", "a b", "append -"_s, "a b -", inserted(2));
        row("insert into none", "", "insert 0 c"_s, "c", inserted(0));
        row("insert first", "a b", "insert 0 c"_s, "c a b", inserted(0));
        row("insert between", "a b", "insert 1 c"_s, "a c b", inserted(1));
        row("insert last", "a b", "insert 2 c"_s, "a b c", inserted(2));
        row("insert below", "a b", "insert -1 c"_s, "c a b", inserted(0));
        row("insert far below", "a b", "insert %1 c"_s.arg(c_least), "c a b", inserted(0));
        row("insert beyond", "a b", "insert 3 c"_s, "a b c", inserted(2));
        row("insert far beyond", "a b", "insert %1 c"_s.arg(c_most), "a b c", inserted(2));
        row("insert null", "a b", "insert 1 -"_s, "a - b", inserted(1));
        row("insert the same id before", "a b", "insert 0 b"_s, "b a b", inserted(0));
        row("insert the same id behind", "a b", "insert 2 a"_s, "a b a", inserted(2));
        row("remove first", "a b c", "remove 0"_s, "b c", removed(0));
        row("remove between", "a b c", "remove 1"_s, "a c", removed(1));
        row("remove last", "a b c", "remove 2"_s, "a b", removed(2));
        row("remove the only one", "c", "remove 0"_s, "", removed(0));
        row("remove null", "a - b", "remove 1"_s, "a b", removed(1));
        row("remove the first of an id", "a b a", "remove 0"_s, "b a", removed(0));
        row("remove the second of an id", "a b a", "remove 2"_s, "a b", removed(2));
        row("remove from none", "", "remove 0"_s, "", nothing);
        row("remove below", "a b", "remove -1"_s, "a b", nothing);
        row("remove far below", "a b", "remove %1"_s.arg(c_least), "a b", nothing);
        row("remove beyond", "a b", "remove 2"_s, "a b", nothing);
        row("remove far beyond", "a b", "remove %1"_s.arg(c_most), "a b", nothing);
        row("clear none", "", "clear"_s, "", reset(0));
        row("clear", "a b c", "clear"_s, "", reset(3));
        row("clear nulls", "- a -", "clear"_s, "", reset(3));
    }

    void changes()
    {
        QFETCH(QString, before);
        QFETCH(QString, order);
        QFETCH(QString, after);
        QFETCH(QString, told);
        OLM_DZrtToolChannel model;
        fill(model, before);
        ChangeLog log(model);
        change(model, order);
        QCOMPARE(log.take(), told);
        QCOMPARE(contentOf(model), after);
        QVERIFY(isIndexRight(model));
    }

    void renamedChannel()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a - b"_s);
        ChangeLog log(model);
        model.at(0)->setId("c"_s);
        QCOMPARE(log.take(), QString());
        QCOMPARE(model.byKey("a"_s), model.at(0));
        QVERIFY(model.byKey("c"_s).isNull());
        // The next change of the list indexes it anew.
        model.removeAt(1);
        QVERIFY(isIndexRight(model));
    }

    void blockedSignals()
    {
        // Nobody hears of the changes, but the index knows of them.
        OLM_DZrtToolChannel model;
        QSignalBlocker const blocker(model);
        fill(model, "a b"_s);
        QVERIFY(isIndexRight(model));
        model.removeAt(1);
        QVERIFY(isIndexRight(model));
        QWeakPointer<DZrtToolChannel> const last = model.at(0);
        model.clear();
        QVERIFY(isIndexRight(model));
        QVERIFY(last.isNull());
    }

    void modelTester()
    {
        FlatList model;
        MessageCapture const messages;
        QAbstractItemModelTester const tester(&model,
                                              QAbstractItemModelTester::FailureReportingMode::Warning);
        for (auto const* order : {"append a", "append b", "append -", "append a", "insert -1 c", "insert 2 -",
                                  "remove 0", "remove 4", "remove 9", "clear", "append b"})
            change(model, QString::fromLatin1(order));
        QCoreApplication::processEvents();
        QCOMPARE(messages.lines.size(), 0);
    }

    void outlivesScripts()
    {
        QQmlEngine engine;
        auto const run = [&engine](QString const& script) { return engine.evaluate(script).toString(); };
        for (auto const& script : {"channels.item(0)"_s, "channels.data(channels.index(0, 0), 256)"_s}) {
            OLM_DZrtToolChannel model;
            QQmlEngine::setObjectOwnership(&model, QQmlEngine::CppOwnership);
            engine.globalObject().setProperty("channels"_s, engine.newQObject(&model));
            fill(model, "a"_s);
            QPointer<DZrtToolChannel> const channel = model.at(0).data();
            QCOMPARE(run("taken = %1; taken.id"_s.arg(script)), "a"_s);
            run("taken = undefined"_s);
            collectGarbage(engine);
            QVERIFY(!channel.isNull());

            // A script that keeps one is left with an object that stands for none.
            run("taken = %1"_s.arg(script));
            model.clear();
            QVERIFY(channel.isNull());
            QCOMPARE(run("typeof taken.id"_s), "undefined"_s);
        }
    }

    void outlivesDelegates()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a b"_s);
        auto const held = model.at(0);
        QPointer<DZrtToolChannel> const listed = model.at(1).data();
        QmlObject page(R"(
            import QtQuick 2.15
            Item {
                Repeater {
                    id: repeater
                    model: subject
                    Item {
                        property var channel: modelData
                        property string text: modelData.id
                    }
                }
                function show() {
                    var list = []
                    for (var i = 0; i < repeater.count; ++i)
                        list.push(repeater.itemAt(i).text)
                    return list.join()
                }
            })",
                       &model);
        QVERIFY2(page.object, qPrintable(page.error));
        collectGarbage(page.engine);
        QCOMPARE(page.call("show"), "a,b"_s);
        // The delegates follow the channels' properties.
        held->setId("c"_s);
        QCOMPARE(page.call("show"), "c,b"_s);

        model.clear();
        collectGarbage(page.engine);
        QCOMPARE(page.call("show"), QString());
        QVERIFY(listed.isNull());
        QCOMPARE(held->id(), "c"_s);
    }
};

QTEST_GUILESS_MAIN(TestChannelListModel)
#include "tst_channel_list_model.moc"
