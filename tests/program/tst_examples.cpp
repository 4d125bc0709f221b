#include "literals.h"
#include "terminal.h"
#include "workplace.h"

#include "log_lines/find_log_lines.h"

#include <QtTest>

namespace
{

QString const c_examples = QStringLiteral(WORKPLACE_EXAMPLES "/");
QString workingDayTranscript()
{
    return QString::fromUtf8(contentOf(QStringLiteral(TRANSCRIPT)));
}

QString recordedTrace(QString const& name)
{
    return withoutPlaces(QString::fromUtf8(contentOf(c_examples + "traces/%1.jsonl"_s.arg(name))));
}

/// What --json prints of an example: its recorded trace, without what is of use in a trace alone.
QString expectedJson(QString const& name)
{
    static QRegularExpression const ofTracesAlone(
        "^.*\"event\":\"(stopAll|instruction|withdrawn|reply|dropped|notDelivered\".*\"goesOn\":false}$).*\n"_s,
        QRegularExpression::MultilineOption);
    return recordedTrace(name).remove(ofTracesAlone);
}

/// The files of a folder and those below it, as they can be named in it.
QStringList filesIn(QString const& folder, QString const& filter)
{
    QStringList names;
    for (QDirIterator it(folder, {filter}, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        names += QDir(folder).relativeFilePath(it.next());
    names.sort();
    return names;
}

/// The examples that are work sequences, "faults/late".
QStringList sequences()
{
    QStringList names;
    auto const files = filesIn(c_examples, "*.json"_s);
    for (auto const& file : files) {
        if (contentOf(c_examples + file).contains("\"steps\""))
            names += file.chopped(5); // without ".json"
    }
    return names;
}

} // namespace

/// The examples as a user runs them.
class TestExamples : public QObject
{
    Q_OBJECT

private slots:
    void everySequence_data()
    {
        QTest::addColumn<QString>("name");
        auto const names = sequences();
        for (auto const& name : names)
            QTest::newRow(qPrintable(name)) << name;
    }

    // The same in each run, and as recorded.
    void everySequence()
    {
        QFETCH(QString, name);
        QString const trace = m_workplace.filePath("trace"_s);
        QString const commandLine = "run %1.json --trace %2"_s.arg(name, trace);
        Outcome const asText = run(commandLine);
        QCOMPARE(asText, prints(asText.out));
        QByteArray const traceBesideText = contentOf(trace);
        QCOMPARE(withoutPlaces(QString::fromUtf8(traceBesideText)), recordedTrace(name));

        Outcome asJson = run(commandLine + " --json"_s);
        asJson.out = withoutPlaces(asJson.out);
        QCOMPARE(asJson, prints(expectedJson(name)));
        QCOMPARE(contentOf(trace), traceBesideText);

        Outcome const replayed = run("replay traces/%1.jsonl"_s.arg(name));
        QCOMPARE(replayed, prints(replayed.out));
        QVERIFY2(
            QRegularExpression("^[1-9][0-9]* steps, all as recorded\n$"_s).match(replayed.out).hasMatch(),
            qPrintable(replayed.out));
    }

    void everyTraceHasItsSequence()
    {
        QCOMPARE(filesIn(c_examples + "traces"_s, "*.jsonl"_s),
                 sequences().replaceInStrings(QRegularExpression("$"_s), ".jsonl"_s));
    }

    void workingDay() { QCOMPARE(run("run working_day.json"_s), prints(workingDayTranscript())); }

    // Each progress bar is written over the one before.
    void workingDayAtATerminal()
    {
        Terminal const terminal;
        QCOMPARE(run("run working_day.json"_s,
                     [&](QProcess& program) { program.setStandardOutputFile(terminal.name()); }),
                 prints({}));
        QString shown = terminal.shown();
        QCOMPARE(shown.count(QLatin1Char('\r')), 3);
        QCOMPARE(linesOf(shown).filter("restoring ["_s).size(), 1);
        QCOMPARE(shown.replace(QLatin1Char('\r'), QLatin1Char('\n')), workingDayTranscript());
    }

    void progressAtATerminal_data()
    {
        QTest::addColumn<QString>("begin");
        QTest::addColumn<QString>("end");
        QTest::newRow("replay traces/working_day.jsonl") << "\rreplaying 2 %\rreplaying 3 %"_s
                                                         << "\rreplaying 100 %\r\x1b[K"_s;
        QTest::newRow("explain traces/working_day.jsonl") << "\rreading 1 %\rreading 2 %"_s
                                                          << "\rreading 100 %\r\x1b[K"_s;
    }

    void progressAtATerminal()
    {
        QFETCH(QString, begin);
        QFETCH(QString, end);
        QString const shown = errorsAtATerminal(QLatin1String(QTest::currentDataTag()));
        QVERIFY2(shown.startsWith(begin) && shown.endsWith(end), qPrintable(shown));
        QCOMPARE(shown.count("\x1b[K"_s), 1);
    }

    void progressMakesRoomForADifference()
    {
        QByteArray trace = contentOf(c_examples + "traces/init.jsonl"_s);
        trace.replace(R"("name":"getInfo")", R"("name":"getDate")");
        QString const shown = errorsAtATerminal("replay "_s + m_workplace.write("other"_s, trace));
        QVERIFY2(shown.contains(" %\r\x1b[K\rreplaying "_s), qPrintable(shown));
    }

    // The traces differ in their date alone.
    void realTime()
    {
        QString const trace = m_workplace.filePath("trace"_s);
        QString const commandLine = "run faults/delay.json --trace "_s + trace;
        Outcome const simulated = run(commandLine);
        QByteArray const simulatedTrace = contentOf(trace);
        QCOMPARE(run(commandLine + " --real-time"_s), simulated);
        QByteArray realTrace = contentOf(trace);
        int const date = realTrace.indexOf(QDate::currentDate().toString(Qt::ISODate).toLatin1());
        QVERIFY(date > 0);
        QByteArray const start = "2000-01-01T00:00:00.000";
        QCOMPARE(realTrace.replace(date, start.size(), start), simulatedTrace);
    }

    void everyFaultHasAnExample()
    {
        QSet<QString> shown;
        auto const files = filesIn(c_examples, "*.controller.json"_s);
        for (auto const& file : files) {
            auto const faults = QJsonDocument::fromJson(contentOf(c_examples + file))["faults"_s].toArray();
            for (auto const& fault : faults)
                shown += fault["kind"_s].toString();
        }
        auto const schema = QJsonDocument::fromJson(run("schema controller"_s).out.toUtf8());
        auto const kinds =
            schema["properties"_s]["faults"_s]["items"_s]["properties"_s]["kind"_s]["oneOf"_s].toArray();
        QSet<QString> known;
        for (auto const& kind : kinds)
            known += kind["const"_s].toString();
        QVERIFY(!known.isEmpty());
        QCOMPARE(shown, known);
    }

private:
    /// Runs the program in the folder of the examples, so that no path of this machine is in what it prints.
    Outcome run(QString const& commandLine, Workplace::SetUp const& setUp = {}) const
    {
        return m_workplace.run(commandLine, [&](QProcess& program) {
            program.setWorkingDirectory(c_examples);
            if (setUp)
                setUp(program);
        });
    }

    QString errorsAtATerminal(QString const& commandLine) const
    {
        Terminal const terminal;
        run(commandLine, [&](QProcess& program) { program.setStandardErrorFile(terminal.name()); });
        return terminal.shown();
    }

    Workplace m_workplace;
};

QTEST_GUILESS_MAIN(TestExamples)
#include "tst_examples.moc"
