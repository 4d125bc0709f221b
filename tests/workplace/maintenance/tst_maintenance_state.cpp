#include "literals.h"

#include "maintenance/maintenance_state.h"

#include <plugin_management/d_element.h>

#include <QtTest>

#include <limits>

using Kind = MaintenanceState::Kind;
Q_DECLARE_METATYPE(Kind)

namespace
{

MaintenanceState stateOn(QDate const& today, QString const& validity, int alert)
{
    DElement record;
    record.setValidityDate(validity);
    record.setStbExpiredDelay(alert);
    return maintenanceState(record, today);
}

} // namespace

/// How it stands with a tool's maintenance, day by day.
class TestMaintenanceState : public QObject
{
    Q_OBJECT

private slots:
    void dates_data()
    {
        QTest::addColumn<QDate>("today");
        QTest::addColumn<QString>("validity");
        QTest::addColumn<int>("alert");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<int>("daysLeft");
        auto const row = [](char const* name, char const* today, char const* validity, int alert, Kind kind,
                            int daysLeft) {
            QTest::newRow(name) << QDate::fromString(QLatin1String(today), Qt::ISODate)
                                << QString::fromLatin1(validity) << alert << kind << daysLeft;
        };
        row("day before the alert", "2026-11-21", "2026-12-06", 14, Kind::Valid, 15);
        row("day of the alert", "2026-11-21", "2026-12-05", 14, Kind::Due, 14);
        row("last day", "2026-11-21", "2026-11-21", 14, Kind::Due, 0);
        row("day after the last", "2026-11-21", "2026-11-20", 14, Kind::Overdue, -1);
        row("no alert, day before the last", "2026-11-21", "2026-11-22", 0, Kind::Valid, 1);
        row("no alert, last day", "2026-11-21", "2026-11-21", 0, Kind::Due, 0);
        row("greatest alert", "2026-11-21", "9999-12-31", std::numeric_limits<int>::max(), Kind::Due,
            2912118);
        row("over the end of the year", "2026-12-31", "2027-01-01", 0, Kind::Valid, 1);
        row("over a leap day", "2028-02-28", "2028-03-01", 2, Kind::Due, 2);
        row("leap day of a hundredth year", "2000-03-01", "2000-02-29", 0, Kind::Overdue, -1);
        row("first year", "2026-11-21", "0001-01-01", 14, Kind::Overdue, -739940);
    }

    void dates()
    {
        QFETCH(QDate, today);
        QFETCH(QString, validity);
        QFETCH(int, alert);
        QFETCH(Kind, kind);
        QFETCH(int, daysLeft);
        auto const state = stateOn(today, validity, alert);
        QCOMPARE(state.kind, kind);
        QCOMPARE(state.validity, validity);
        QCOMPARE(state.daysLeft, daysLeft);
    }

    void noDates_data()
    {
        QTest::addColumn<QString>("validity");
        QTest::addColumn<Kind>("kind");
        QTest::newRow("null") << QString() << Kind::NotSet;
        QTest::newRow("empty") << ""_s << Kind::Permanent;
        QStringList const unreadable{
            " "_s,           "soon"_s,
            "null"_s,        "2027-03"_s,
            "2027-3-1"_s,    "20270301"_s,
            "01.03.2027"_s,  "2027/03/01"_s,
            "2027 03 01"_s,  "2027-03-01Z"_s,
            " 2027-03-01"_s, "2027-03-01 "_s,
            "+2027-03-01"_s, "-2027-03-01"_s,
            "2027-02-29"_s,  "2100-02-29"_s,
            "2027-13-01"_s,  "2027-00-01"_s,
            "2027-01-00"_s,  "0000-01-01"_s,
            "10000-01-01"_s, "2027-03-01T00:00:00"_s,
        };
        for (auto const& text : unreadable)
            QTest::newRow(qPrintable(text)) << text << Kind::Unreadable;
        QTest::newRow("date and line break") << "2027-03-01\n"_s << Kind::Unreadable;
        QTest::newRow("date and NUL") << QString::fromLatin1("2027-03-01\0", 11) << Kind::Unreadable;
        QTest::newRow("other digits") << "\uFF12\uFF10\uFF12\uFF17-03-01"_s << Kind::Unreadable;
    }

    // Neither the day nor the alert makes a difference.
    void noDates()
    {
        QFETCH(QString, validity);
        QFETCH(Kind, kind);
        for (auto const& today : {QDate(1969, 1, 1), QDate(9999, 12, 31)}) {
            for (int const alert : {0, 365}) {
                auto const state = stateOn(today, validity, alert);
                QCOMPARE(state.kind, kind);
                QCOMPARE(state.validity, validity);
                QCOMPARE(state.daysLeft, 0);
            }
        }
    }

    void kinds_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<bool>("isAlert");
        QTest::addColumn<bool>("hasDaysLeft");
        QTest::newRow("notSet") << Kind::NotSet << false << false;
        QTest::newRow("permanent") << Kind::Permanent << false << false;
        QTest::newRow("valid") << Kind::Valid << false << true;
        QTest::newRow("due") << Kind::Due << true << true;
        QTest::newRow("overdue") << Kind::Overdue << true << true;
        QTest::newRow("unreadable") << Kind::Unreadable << true << false;
    }

    void kinds()
    {
        QFETCH(Kind, kind);
        QFETCH(bool, isAlert);
        QFETCH(bool, hasDaysLeft);
        MaintenanceState const state{kind, QString(), 0};
        QCOMPARE(kindName(kind), QString::fromLatin1(QTest::currentDataTag()));
        QCOMPARE(state.isAlert(), isAlert);
        QCOMPARE(state.hasDaysLeft(), hasDaysLeft);
    }

    void texts()
    {
        QString const day = "2026-11-20"_s;
        QCOMPARE(toText({Kind::NotSet, QString(), 0}), "no maintenance validity is set"_s);
        QCOMPARE(toText({Kind::Permanent, ""_s, 0}), "maintenance valid permanently"_s);
        QCOMPARE(toText({Kind::Valid, day, 365}), "maintenance valid until 2026-11-20, 365 days left"_s);
        QCOMPARE(toText({Kind::Valid, day, 1}), "maintenance valid until 2026-11-20, 1 day left"_s);
        QCOMPARE(toText({Kind::Due, day, 0}), "maintenance due: valid until 2026-11-20, 0 days left"_s);
        QCOMPARE(toText({Kind::Overdue, day, -1}),
                 "maintenance overdue: it was valid until 2026-11-20, 1 day ago"_s);
        QCOMPARE(toText({Kind::Overdue, day, -11}),
                 "maintenance overdue: it was valid until 2026-11-20, 11 days ago"_s);
        QCOMPARE(toText({Kind::Unreadable, "so\"on\n%1"_s, 0}),
                 "the maintenance validity is no date: \"so\"on\\n%1\""_s);
    }
};

QTEST_GUILESS_MAIN(TestMaintenanceState)
#include "tst_maintenance_state.moc"
