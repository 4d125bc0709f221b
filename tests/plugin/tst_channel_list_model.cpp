#include "literals.h"
#include "message_capture.h"
#include "meta_entries.h"
#include "variants.h"

#include <olm_d_zrt_tool_channel.h>

#include <QAbstractItemModelTester>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QStringListModel>
#include <QtTest>

#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

namespace
{

using Channel = QSharedPointer<DZrtToolChannel>;
using Change = std::function<void(OLM_DZrtToolChannel&)>;

constexpr int c_objectRole = 256;

Channel channelOf(QString const& id)
{
    return DZrtToolChannel::create({{"id"_s, id}});
}

// Channels by their ids: "a b"; "-" is a null pointer.
void fill(OLM_DZrtToolChannel& model, QString const& ids)
{
    auto const list = ids.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (auto const& id : list)
        model.append(id == "-"_s ? Channel() : channelOf(id));
}

QString contentOf(OLM_DZrtToolChannel const& model)
{
    QStringList ids;
    for (int i = 0; i < model.count(); ++i)
        ids += model.at(i) ? model.at(i)->id() : "-"_s;
    return ids.join(QLatin1Char(' '));
}

// Whether each channel, and no other, is found by its id, provided that ids are letters up to x.
bool isIndexRight(OLM_DZrtToolChannel const& model)
{
    QMap<QString, Channel> expected;
    for (int i = model.count() - 1; i >= 0; --i) {
        if (model.at(i))
            expected.insert(model.at(i)->id(), model.at(i));
    }
    QStringList ids{QString()};
    for (char letter = 'a'; letter <= 'x'; ++letter)
        ids += QString(QLatin1Char(letter));
    return std::all_of(ids.cbegin(), ids.cend(),
                       [&](QString const& id) { return model.byKey(id) == expected.value(id); });
}

/// Writes down how a model tells of its changes, and whether it is in step by then.
class ChangeLog : public QObject
{
public:
    explicit ChangeLog(OLM_DZrtToolChannel const& model) : m_model(model)
    {
        using Model = QAbstractItemModel;
        connect(&model, &Model::rowsAboutToBeInserted, this,
                [this](QModelIndex const& parent, int first, int last) {
                    addRows("inserting"_s, parent, first, last);
                });
        connect(&model, &Model::rowsInserted, this, [this](QModelIndex const& parent, int first, int last) {
            addRows("inserted"_s, parent, first, last);
        });
        connect(&model, &Model::rowsAboutToBeRemoved, this,
                [this](QModelIndex const& parent, int first, int last) {
                    addRows("removing"_s, parent, first, last);
                });
        connect(&model, &Model::rowsRemoved, this, [this](QModelIndex const& parent, int first, int last) {
            addRows("removed"_s, parent, first, last);
        });
        connect(&model, &Model::modelAboutToBeReset, this,
                [this] { lines += "resetting %1"_s.arg(m_model.count()); });
        connect(&model, &Model::modelReset, this, [this] { lines += "reset"_s; });
        connect(&model, &Model::dataChanged, this, [this] { lines += "data"_s; });
        connect(&model, &Model::layoutChanged, this, [this] { lines += "layout"_s; });
        connect(&model, &OLM_DZrtToolChannel::changed, this, [this] {
            lines += "changed"_s;
            checkStep();
        });
    }

    QStringList take()
    {
        QStringList taken;
        taken.swap(lines);
        return taken;
    }

    QStringList lines;

private:
    void addRows(QString const& what, QModelIndex const& parent, int first, int last)
    {
        lines += "%1 %2 %3"_s.arg(what).arg(first).arg(last);
        if (parent.isValid())
            lines += "not at the root"_s;
    }
    void checkStep()
    {
        if (!isIndexRight(m_model))
            lines += "index out of step"_s;
        if (m_model.property("length").toInt() != m_model.count()
            || m_model.property("isEmpty").toInt() != (m_model.count() == 0 ? 1 : 0))
            lines += "properties out of step"_s;
    }

    OLM_DZrtToolChannel const& m_model;
};

QVariant invoke(OLM_DZrtToolChannel& model, char const* method, int argument)
{
    QVariant answer = "not invoked"_s;
    QMetaObject::invokeMethod(&model, method, Qt::DirectConnection, Q_RETURN_ARG(QVariant, answer),
                              Q_ARG(int, argument));
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

/// The channels in a list whose rows have no children, as item views would have it.
class FlatList : public OLM_DZrtToolChannel
{
public:
    int rowCount(QModelIndex const& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : OLM_DZrtToolChannel::rowCount(parent);
    }
};

// Whatever was left to be deleted is, wherever the engine or an event left it.
void collect(QJSEngine& engine)
{
    for (int i = 0; i < 5; ++i) {
        engine.collectGarbage();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

} // namespace

Q_DECLARE_METATYPE(Change)

/// The list of status channels, and the list of any objects underneath.
class TestChannelListModel : public QObject
{
    Q_OBJECT

private slots:
    void metaObject()
    {
        auto const& meta = OLM_DZrtToolChannel::staticMetaObject;
        QCOMPARE(meta.className(), "OLM_DZrtToolChannel");
        // A template has no meta-object of its own.
        QCOMPARE(meta.superClass(), &QAbstractListModel::staticMetaObject);
        static_assert(
            std::is_base_of_v<__qobjectsqmllist::QObjectListModelBase<DZrtToolChannel>, OLM_DZrtToolChannel>);
        QCOMPARE(ownEntries(meta), (QStringList{
                                       "int length [read] notify changed()"_s,
                                       "int isEmpty [read] notify changed()"_s,
                                       "public signal void changed()"_s,
                                       "public method QVariant header(int section)"_s,
                                       "protected method QVariant item(int i)"_s,
                                   }));
    }

    void roleNames()
    {
        OLM_DZrtToolChannel const model;
        auto expected = QStringListModel().roleNames();
        expected.insert(c_objectRole, "modelData");
        QCOMPARE(model.roleNames(), expected);
        QCOMPARE(expected.size(), 7);
    }

    void empty()
    {
        OLM_DZrtToolChannel const model;
        QVERIFY(!model.parent());
        QObject parent;
        QCOMPARE((new OLM_DZrtToolChannel(&parent))->parent(), &parent);
        QCOMPARE(model.rowCount(), 0);
        QCOMPARE(model.property("length"), QVariant(0));
        QCOMPARE(model.property("isEmpty"), QVariant(1));
        QVERIFY(model.at(0).isNull());
        QVERIFY(model.byKey(QString()).isNull());
        for (int row = -1; row < 3; ++row)
            QVERIFY(!model.data(indexAt(row), c_objectRole).isValid());
    }

    void dataOfEveryRole_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<bool>("isThere");

        QTest::newRow("no row") << -1 << false;
        QTest::newRow("first") << 0 << true;
        QTest::newRow("last") << 1 << true;
        QTest::newRow("one too many") << 2 << false;
        QTest::newRow("two too many") << 3 << false;
    }

    void dataOfEveryRole()
    {
        QFETCH(int, row);
        QFETCH(bool, isThere);
        OLM_DZrtToolChannel model;
        fill(model, "a b"_s);
        QCOMPARE(indexAt(row).row(), row);
        for (int role = -2; role < 2 * c_objectRole; ++role) {
            QVariant const answer = model.data(indexAt(row), role);
            if (role != c_objectRole || !isThere) {
                QVERIFY2(!answer.isValid(), qPrintable(QString::number(role)));
                continue;
            }
            QCOMPARE(answer.userType(), int{QMetaType::QObjectStar});
            QCOMPARE(answer.value<QObject*>(), model.at(row).data());
        }
        QVERIFY(!model.data(indexAt(row)).isValid());
    }

    void itemOfEveryRow_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<bool>("isThere");

        QTest::newRow("far below") << std::numeric_limits<int>::min() << false;
        QTest::newRow("below") << -1 << false;
        QTest::newRow("first") << 0 << true;
        QTest::newRow("null") << 1 << true;
        QTest::newRow("last") << 2 << true;
        QTest::newRow("one too many") << 3 << false;
        QTest::newRow("far too many") << std::numeric_limits<int>::max() << false;
    }

    void itemOfEveryRow()
    {
        QFETCH(int, row);
        QFETCH(bool, isThere);
        OLM_DZrtToolChannel model;
        fill(model, "a - b"_s);
        QVariant const item = invoke(model, "item", row);
        QCOMPARE(item.isValid(), isThere);
        if (!isThere)
            return;
        QCOMPARE(item.userType(), qMetaTypeId<DZrtToolChannel*>());
        QCOMPARE(item.typeName(), "DZrtToolChannel*");
        QCOMPARE(item.value<DZrtToolChannel*>(), model.at(row).data());
    }

    void hasNoHeader()
    {
        OLM_DZrtToolChannel model;
        for (int i = 0; i < 2; ++i) {
            for (int section = -1; section < 3; ++section) {
                for (int role = 0; role < 2 * c_objectRole; ++role) {
                    QVERIFY(!model.headerData(section, Qt::Horizontal, role).isValid());
                    QVERIFY(!model.headerData(section, Qt::Vertical, role).isValid());
                }
                QVERIFY(!invoke(model, "header", section).isValid());
            }
            fill(model, "a b"_s);
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

    void declaredRolesAreNamed()
    {
        auto expected = QStringListModel().roleNames();
        expected.insert(c_objectRole, "modelData");
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
        QTest::newRow("undeclared") << 0 << c_lengthRole + 1 << QVariant();
        QTest::newRow("edit is not display") << 0 << int{Qt::EditRole} << QVariant();
        QTest::newRow("below") << -1 << c_lengthRole << QVariant();
        QTest::newRow("one too many") << 2 << c_lengthRole << QVariant();
    }

    void declaredRolesAnswer()
    {
        QFETCH(int, row);
        QFETCH(int, role);
        QFETCH(QVariant, value);
        ScrewList model;
        model.append(QSharedPointer<Screw>::create(20, "flat"_s));
        model.append(QSharedPointer<Screw>::create(35, "round"_s));
        QCOMPARE(model.changes, 2);
        QCOMPARE(model.data(indexAt(row), role), value);
        QCOMPARE(model.data(indexAt(row), c_objectRole).value<QObject*>(), model.at(row).data());
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
        model.clear();
        QVERIFY(!model.headerData(0, Qt::Horizontal, c_lengthRole).isValid());
    }

    void declaredRolesOfNull()
    {
        ScrewList model;
        model.append({});
        QCOMPARE(model.count(), 1);
        QVERIFY(!model.data(indexAt(0), c_lengthRole).isValid());
        QVariant const object = model.data(indexAt(0), c_objectRole);
        QCOMPARE(object.userType(), int{QMetaType::QObjectStar});
        QVERIFY(!object.value<QObject*>());
    }

    void firstDeclarationCounts()
    {
        ScrewList model(
            {{c_lengthRole, "head"}, {c_lengthRole, "length"}, {c_objectRole, "length"}, {300, "no"}});
        model.append(QSharedPointer<Screw>::create(20, "flat"_s));
        QCOMPARE(model.data(indexAt(0), c_lengthRole), QVariant("flat"_s));
        // A declared property goes before the object itself.
        QCOMPARE(model.data(indexAt(0), c_objectRole), QVariant(20));
        QVERIFY(!model.data(indexAt(0), 300).isValid());
        // Nor does it count what was set without being declared.
        model.at(0)->setProperty("no", 1);
        QVERIFY(!model.data(indexAt(0), 300).isValid());
    }

    void changes_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QStringList>("told");

        auto const insertAt = [](int i, QString const& id) {
            return Change([i, id](OLM_DZrtToolChannel& model) { model.insert(i, channelOf(id)); });
        };
        auto const removeAt = [](int i) {
            return Change([i](OLM_DZrtToolChannel& model) { model.removeAt(i); });
        };
        Change const append = [](OLM_DZrtToolChannel& model) { model.append(channelOf("c"_s)); };
        Change const appendNull = [](OLM_DZrtToolChannel& model) { model.append({}); };
        Change const insertNull = [](OLM_DZrtToolChannel& model) { model.insert(1, {}); };
        Change const clear = [](OLM_DZrtToolChannel& model) { model.clear(); };
        auto const inserted = [](int i) {
            return QStringList{"inserting %1 %1"_s.arg(i), "inserted %1 %1"_s.arg(i), "changed"_s};
        };
        auto const removed = [](int i) {
            return QStringList{"removing %1 %1"_s.arg(i), "removed %1 %1"_s.arg(i), "changed"_s};
        };
        auto const reset = [](int count) {
            return QStringList{"resetting %1"_s.arg(count), "reset"_s, "changed"_s};
        };
        QString const none;
        QString const ab = "a b"_s;
        QString const abc = "a b c"_s;
        QString const c = "c"_s;
        int const most = std::numeric_limits<int>::max();
        int const least = std::numeric_limits<int>::min();

        QTest::newRow("append to none") << none << append << c << inserted(0);
        QTest::newRow("append") << ab << append << abc << inserted(2);
        QTest::newRow("append null") << ab << appendNull << "a b -"_s << inserted(2);
        QTest::newRow("insert into none") << none << insertAt(0, c) << c << inserted(0);
        QTest::newRow("insert first") << ab << insertAt(0, c) << "c a b"_s << inserted(0);
        QTest::newRow("insert between") << ab << insertAt(1, c) << "a c b"_s << inserted(1);
        QTest::newRow("insert last") << ab << insertAt(2, c) << abc << inserted(2);
        QTest::newRow("insert below") << ab << insertAt(-1, c) << "c a b"_s << inserted(0);
        QTest::newRow("insert far below") << ab << insertAt(least, c) << "c a b"_s << inserted(0);
        QTest::newRow("insert beyond") << ab << insertAt(3, c) << abc << inserted(2);
        QTest::newRow("insert far beyond") << ab << insertAt(most, c) << abc << inserted(2);
        QTest::newRow("insert null") << ab << insertNull << "a - b"_s << inserted(1);
        QTest::newRow("insert the same id before") << ab << insertAt(0, "b"_s) << "b a b"_s << inserted(0);
        QTest::newRow("insert the same id behind") << ab << insertAt(2, "a"_s) << "a b a"_s << inserted(2);
        QTest::newRow("remove first") << abc << removeAt(0) << "b c"_s << removed(0);
        QTest::newRow("remove between") << abc << removeAt(1) << "a c"_s << removed(1);
        QTest::newRow("remove last") << abc << removeAt(2) << ab << removed(2);
        QTest::newRow("remove the only one") << c << removeAt(0) << none << removed(0);
        QTest::newRow("remove null") << "a - b"_s << removeAt(1) << ab << removed(1);
        QTest::newRow("remove the first of an id") << "a b a"_s << removeAt(0) << "b a"_s << removed(0);
        QTest::newRow("remove the second of an id") << "a b a"_s << removeAt(2) << ab << removed(2);
        QTest::newRow("remove from none") << none << removeAt(0) << none << QStringList();
        QTest::newRow("remove below") << ab << removeAt(-1) << ab << QStringList();
        QTest::newRow("remove far below") << ab << removeAt(least) << ab << QStringList();
        QTest::newRow("remove beyond") << ab << removeAt(2) << ab << QStringList();
        QTest::newRow("remove far beyond") << ab << removeAt(most) << ab << QStringList();
        QTest::newRow("clear none") << none << clear << none << reset(0);
        QTest::newRow("clear") << abc << clear << none << reset(3);
        QTest::newRow("clear nulls") << "- a -"_s << clear << none << reset(3);
    }

    void changes()
    {
        QFETCH(QString, before);
        QFETCH(Change, change);
        QFETCH(QString, after);
        QFETCH(QStringList, told);
        OLM_DZrtToolChannel model;
        fill(model, before);
        QCOMPARE(contentOf(model), before);
        ChangeLog log(model);
        change(model);
        QCOMPARE(log.take(), told);
        QCOMPARE(contentOf(model), after);
        QVERIFY(isIndexRight(model));
    }

    void renamedChannel()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a - b"_s);
        auto const first = model.at(0);
        ChangeLog log(model);
        first->setId("c"_s);
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(model.byKey("a"_s), first);
        QVERIFY(model.byKey("c"_s).isNull());
        // The next change of the list indexes it anew.
        model.removeAt(1);
        QVERIFY(isIndexRight(model));
    }

    void sameIdTwice()
    {
        OLM_DZrtToolChannel model;
        fill(model, "a b a"_s);
        auto const first = model.at(0);
        auto const second = model.at(2);
        QVERIFY(first != second);
        QCOMPARE(model.byKey("a"_s), first);
        model.removeAt(0);
        QCOMPARE(model.byKey("a"_s), second);
        model.insert(0, first);
        QCOMPARE(model.byKey("a"_s), first);
    }

    void goesBeforeItsChannels()
    {
        auto model = std::make_unique<OLM_DZrtToolChannel>();
        fill(*model, "a b"_s);
        auto const held = model->at(0);
        QPointer<DZrtToolChannel> const released = model->at(1).data();
        model.reset();
        QVERIFY(released.isNull());
        QCOMPARE(held->id(), "a"_s);
    }

    void blockedSignals()
    {
        // Nobody hears of the changes, but the index knows of them.
        OLM_DZrtToolChannel model;
        QSignalBlocker const blocker(model);
        fill(model, "a b"_s);
        QCOMPARE(model.byKey("b"_s), model.at(1));
        model.removeAt(1);
        QVERIFY(model.byKey("b"_s).isNull());
        QWeakPointer<DZrtToolChannel> const last = model.at(0);
        model.clear();
        QVERIFY(model.byKey("a"_s).isNull());
        QVERIFY(last.isNull());
    }

    void modelTester_data()
    {
        QTest::addColumn<bool>("isFlat");

        QTest::newRow("as it is") << false;
        QTest::newRow("rows have no children") << true;
    }

    void modelTester()
    {
        QFETCH(bool, isFlat);
        std::unique_ptr<OLM_DZrtToolChannel> const owned(isFlat ? new FlatList : new OLM_DZrtToolChannel);
        auto& model = *owned;
        MessageCapture const messages;
        {
            QAbstractItemModelTester const tester(&model,
                                                  QAbstractItemModelTester::FailureReportingMode::Warning);
            fill(model, "a b - a"_s);
            model.insert(-1, channelOf("c"_s));
            model.insert(2, {});
            model.at(0)->setId("b"_s);
            model.removeAt(0);
            model.removeAt(4);
            model.removeAt(9);
            model.clear();
            model.clear();
            fill(model, "a b"_s);
            QCoreApplication::processEvents();
        }
        QStringList complaints;
        for (auto const& line : messages.lines) {
            QCOMPARE(line.category, QByteArray("qt.modeltest"));
            // Behind the complaint stands where in Qt it was made.
            complaints += line.text.section(" (qabstractitemmodeltester.cpp:"_s, 0, 0);
        }
        complaints.removeDuplicates();
        // That rows are counted whatever the parent makes them promise children, which are not there to be
        // had.
        QCOMPARE(complaints,
                 isFlat ? QStringList() : QStringList{"FAIL! childIndex.isValid() () returned FALSE"_s});
    }

    void outlivesScripts_data()
    {
        QTest::addColumn<QString>("taken");
        QTest::addColumn<bool>("isKept");
        QTest::addColumn<bool>("isListLast");

        struct Way
        {
            char const* name;
            QString script;
        };
        Way const ways[] = {
            {"item", "channels.item(0)"_s},
            {"data", "channels.data(channels.index(0, 0), 256)"_s},
        };
        for (auto const& way : ways) {
            for (bool const isKept : {false, true}) {
                for (bool const isListLast : {false, true}) {
                    QTest::addRow("%s, %s, %s", way.name, isKept ? "kept" : "dropped",
                                  isListLast ? "released by the list" : "released by somebody else")
                        << way.script << isKept << isListLast;
                }
            }
        }
    }

    void outlivesScripts()
    {
        QFETCH(QString, taken);
        QFETCH(bool, isKept);
        QFETCH(bool, isListLast);
        OLM_DZrtToolChannel model;
        QQmlEngine::setObjectOwnership(&model, QQmlEngine::CppOwnership);
        QQmlEngine engine;
        engine.globalObject().setProperty("channels"_s, engine.newQObject(&model));
        auto held = channelOf("a"_s);
        model.append(held);
        QPointer<DZrtToolChannel> const guarded = held.data();
        auto const run = [&engine](QString const& script) { return engine.evaluate(script).toString(); };

        run("var taken = %1; var view = { channel: taken }"_s.arg(taken));
        QCOMPARE(run("taken.id"_s), "a"_s);
        if (!isKept)
            run("taken = view = undefined"_s);
        collect(engine);
        QCOMPARE(guarded.data(), held.data());

        if (isListLast)
            held.reset();
        else
            model.clear();
        collect(engine);
        QVERIFY(!guarded.isNull());
        QCOMPARE(guarded->id(), "a"_s);
        QCOMPARE(run("view ? view.channel.id : 'dropped'"_s), isKept ? "a"_s : "dropped"_s);

        held.reset();
        model.clear();
        QVERIFY(guarded.isNull());
        collect(engine);
        if (isKept) {
            // What is left of a channel in a script is an object that stands for none.
            QCOMPARE(run("typeof taken.id + typeof view.channel.id"_s), "undefinedundefined"_s);
            QVERIFY(!engine.globalObject().property("taken"_s).toQObject());
        }
    }

    void outlivesDelegates()
    {
        OLM_DZrtToolChannel model;
        auto held = channelOf("a"_s);
        model.append(held);
        model.append(channelOf("b"_s));
        QPointer<DZrtToolChannel> const first = held.data();
        QPointer<DZrtToolChannel> const second = model.at(1).data();

        QQmlEngine engine;
        engine.rootContext()->setContextProperty("channels"_s, &model);
        QQmlComponent component(&engine);
        component.setData("import QtQuick 2.15\n"
                          "Item {\n"
                          "    property QtObject last: null\n"
                          "    property alias count: repeater.count\n"
                          "    Repeater {\n"
                          "        id: repeater\n"
                          "        model: channels\n"
                          "        Item {\n"
                          "            property var channel: modelData\n"
                          "            property string text: modelData.id\n"
                          "        }\n"
                          "        onItemAdded: function(index, item) { last = item.channel }\n"
                          "    }\n"
                          "    function texts() {\n"
                          "        var list = []\n"
                          "        for (var i = 0; i < repeater.count; ++i)\n"
                          "            list.push(repeater.itemAt(i).text)\n"
                          "        return list.join(' ')\n"
                          "    }\n"
                          "    function nameOfLast() { return last === null ? 'null' : last.id }\n"
                          "}\n",
                          QUrl());
        std::unique_ptr<QObject> const page(component.create());
        QVERIFY2(page, qPrintable(component.errorString()));
        auto const ask = [&page](char const* function) {
            QVariant answer;
            QMetaObject::invokeMethod(page.get(), function, Q_RETURN_ARG(QVariant, answer));
            return answer.toString();
        };
        collect(engine);
        QCOMPARE(ask("texts"), "a b"_s);
        QCOMPARE(ask("nameOfLast"), "b"_s);
        QVERIFY(first && second);

        // The delegates follow the channels' properties.
        first->setId("c"_s);
        QCOMPARE(ask("texts"), "c b"_s);

        model.clear();
        collect(engine);
        QCOMPARE(page->property("count").toInt(), 0);
        QVERIFY(!first.isNull());
        QVERIFY(second.isNull());
        QCOMPARE(ask("nameOfLast"), "null"_s);
        QCOMPARE(first->id(), "c"_s);
        held.reset();
        QVERIFY(first.isNull());
        collect(engine);
    }
};

QTEST_GUILESS_MAIN(TestChannelListModel)
#include "tst_channel_list_model.moc"
