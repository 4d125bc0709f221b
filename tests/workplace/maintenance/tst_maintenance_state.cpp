#include "literals.h"

#include "maintenance/maintenance_state.h"

#include <files/input_error.h>
#include <plugin_management/d_element.h>

#include <QtTest>

#include <limits>

using Kind = MaintenanceState::Kind;
Q_DECLARE_METATYPE(Kind)

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
        QTest::addColumn<qint64>("daysLeft");
        auto const row = [](char const* name, char const* today, char const* validity, int alert, Kind kind,
                            qint64 daysLeft) {
            QTest::newRow(name) << QDate::fromString(QLatin1String(today), Qt::ISODate)
                                << QString::fromLatin1(validity) << alert << kind << daysLeft;
        };
        row("long before", "2026-11-21", "2027-11-21", 14, Kind::Valid, 365);
        row("day before the alert", "2026-11-21", "2026-12-06", 14, Kind::Valid, 15);
        row("day of the alert", "2026-11-21", "2026-12-05", 14, Kind::Due, 14);
        row("day after the alert", "2026-11-21", "2026-12-04", 14, Kind::Due, 13);
        row("day before the last", "2026-11-21", "2026-11-22", 14, Kind::Due, 1);
        row("last day", "2026-11-21", "2026-11-21", 14, Kind::Due, 0);
        row("day after the last", "2026-11-21", "2026-11-20", 14, Kind::Overdue, -1);
        row("long after", "2026-11-21", "2025-11-21", 14, Kind::Overdue, -365);

        row("no alert, day before the last", "2026-11-21", "2026-11-22", 0, Kind::Valid, 1);
        row("no alert, last day", "2026-11-21", "2026-11-21", 0, Kind::Due, 0);
        row("no alert, day after the last", "2026-11-21", "2026-11-20", 0, Kind::Overdue, -1);
        row("alert of a day", "2026-11-21", "2026-11-22", 1, Kind::Due, 1);
        row("alert of a day, day before", "2026-11-21", "2026-11-23", 1, Kind::Valid, 2);
        row("alert of a year", "2026-11-21", "2027-11-21", 365, Kind::Due, 365);
        row("alert of a year, day before", "2026-11-21", "2027-11-22", 365, Kind::Valid, 366);
        row("greatest alert", "2026-11-21", "9999-12-31", std::numeric_limits<int>::max(), Kind::Due,
            2912118);

        row("over the end of the year", "2026-12-31", "2027-01-01", 0, Kind::Valid, 1);
        row("over a leap day", "2028-02-28", "2028-03-01", 2, Kind::Due, 2);
        row("until a leap day", "2028-02-28", "2028-02-29", 0, Kind::Valid, 1);
        row("leap day of a hundredth year", "2000-03-01", "2000-02-29", 0, Kind::Overdue, -1);
        row("over no leap day", "2027-02-28", "2027-03-01", 1, Kind::Due, 1);
        row("before 1970", "2026-11-21", "1969-12-31", 14, Kind::Overdue, -20779);
        row("first year", "2026-11-21", "0001-01-01", 14, Kind::Overdue, -739940);
        row("last year", "2026-11-21", "9999-12-31", 365, Kind::Valid, 2912118);
    }

    void dates()
    {
        QFETCH(QDate, today);
        QFETCH(QString, validity);
        QFETCH(int, alert);
        QFETCH(Kind, kind);
        QFETCH(qint64, daysLeft);
        DElement record;
        record.setValidityDate(validity);
        record.setStbExpiredDelay(alert);
        auto const state = maintenanceState(record, today);
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
        for (char const* const text : {" ",
                                       "soon",
                                       "null",
                                       "permanent",
                                       "2027",
                                       "2027-03",
                                       "2027-3-1",
                                       "27-03-01",
                                       "20270301",
                                       "01.03.2027",
                                       "2027/03/01",
                                       "2027 03 01",
                                       "2027-03-01T00:00:00",
                                       "2027-03-01 10:00",
                                       "2027-03-01Z",
                                       " 2027-03-01",
                                       "2027-03-01 ",
                                       "2027-03-01\n",
                                       "+2027-03-01",
                                       "-2027-03-01",
                                       "2027-02-29",
                                       "2100-02-29",
                                       "2027-04-31",
                                       "2027-13-01",
                                       "2027-00-01",
                                       "2027-01-00",
                                       "0000-01-01",
                                       "10000-01-01",
                                       "9999-12-32",
                                       "2027-03-01\u0660",
                                       "\uFF12\uFF10\uFF12\uFF17-03-01"})
            QTest::newRow(qPrintable(onOneLine(QString::fromUtf8(text))))
                << QString::fromUtf8(text) << Kind::Unreadable;
        QTest::newRow("date with a NUL") << QString::fromLatin1("2027-03-01\0", 11) << Kind::Unreadable;
        QTest::newRow("long") << QString(10'000, QLatin1Char('1')) << Kind::Unreadable;
    }

    void noDates()
    {
        QFETCH(QString, validity);
        QFETCH(Kind, kind);
        // Neither the day nor the alert makes a difference.
        for (auto const& today : {QDate(1969, 1, 1), QDate(2026, 11, 21), QDate(9999, 12, 31)}) {
            for (int const alert : {0, 365}) {
                DElement record;
                record.setValidityDate(validity);
                record.setStbExpiredDelay(alert);
                auto const state = maintenanceState(record, today);
                QCOMPARE(state.kind, kind);
                QCOMPARE(state.validity, validity);
                QCOMPARE(state.validity.isNull(), validity.isNull());
                QCOMPARE(state.daysLeft, 0);
            }
        }
    }

    void kinds_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("isAlert");
        QTest::addColumn<bool>("hasDaysLeft");
        QTest::newRow("not set") << Kind::NotSet << "notSet"_s << false << false;
        QTest::newRow("permanent") << Kind::Permanent << "permanent"_s << false << false;
        QTest::newRow("valid") << Kind::Valid << "valid"_s << false << true;
        QTest::newRow("due") << Kind::Due << "due"_s << true << true;
        QTest::newRow("overdue") << Kind::Overdue << "overdue"_s << true << true;
        QTest::newRow("unreadable") << Kind::Unreadable << "unreadable"_s << true << false;
    }

    void kinds()
    {
        QFETCH(Kind, kind);
        QFETCH(QString, name);
        QFETCH(bool, isAlert);
        QFETCH(bool, hasDaysLeft);
        MaintenanceState const state{kind, QString(), 0};
        QCOMPARE(kindName(kind), name);
        QCOMPARE(state.isAlert(), isAlert);
        QCOMPARE(state.hasDaysLeft(), hasDaysLeft);
    }

    void texts_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("validity");
        QTest::addColumn<int>("daysLeft");
        QTest::addColumn<QString>("text");
        auto const row = [](char const* name, Kind kind, QString const& validity, int daysLeft,
                            QString const& text) {
            QTest::newRow(name) << kind << validity << daysLeft << text;
        };
        QString const day = "2026-11-20"_s;
        row("not set", Kind::NotSet, QString(), 0, "no maintenance validity is set"_s);
        row("permanent", Kind::Permanent, ""_s, 0, "maintenance valid permanently"_s);
        row("valid", Kind::Valid, day, 365, "maintenance valid until 2026-11-20, 365 days left"_s);
        row("valid for a day", Kind::Valid, day, 1, "maintenance valid until 2026-11-20, 1 day left"_s);
        row("due", Kind::Due, day, 2, "maintenance due: valid until 2026-11-20, 2 days left"_s);
        row("due in a day", Kind::Due, day, 1, "maintenance due: valid until 2026-11-20, 1 day left"_s);
        row("last day", Kind::Due, day, 0, "maintenance due: valid until 2026-11-20, 0 days left"_s);
        row("overdue by a day", Kind::Overdue, day, -1,
            "maintenance overdue: it was valid until 2026-11-20, 1 day ago"_s);
        row("overdue", Kind::Overdue, day, -11,
            "maintenance overdue: it was valid until 2026-11-20, 11 days ago"_s);
        row("unreadable", Kind::Unreadable, "so\"on\n%1"_s, 0,
            "the maintenance validity is no date: \"so\"on\\n%1\""_s);
        row("long", Kind::Unreadable, QString(10'000, QLatin1Char('x')), 0,
            "the maintenance validity is no date: \"%1...\""_s.arg(QString(200, QLatin1Char('x'))));
    }

    void texts()
    {
        QFETCH(Kind, kind);
        QFETCH(QString, validity);
        QFETCH(int, daysLeft);
        QFETCH(QString, text);
        QCOMPARE(toText({kind, validity, daysLeft}), text);
    }
};

QTEST_GUILESS_MAIN(TestMaintenanceState)
#include "tst_maintenance_state.moc"
