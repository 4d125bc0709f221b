#include "complaint.h"
#include "literals.h"
#include "outcome.h"
#include "scratch_folder.h"

#include "log_lines/find_log_lines.h"

#include <zrt_controller/zrt_formats.h>

#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace
{

QString const examples = QStringLiteral(WORKPLACE_EXAMPLES);
QString const faultExamples = QStringLiteral(WORKPLACE_EXAMPLES "/faults");
QString const workingDay = "working_day.json"_s;

/// Runs the program in the folder of the examples.
Outcome run(QStringList const& arguments)
{
    QProcess program;
    program.setWorkingDirectory(examples);
    program.start(QStringLiteral(WORKPLACE_PROGRAM), arguments);
    return outcomeOf(program);
}

/// What the program writes when it stands at a terminal.
class Terminal
{
public:
    Terminal() : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
            qFatal("there is no terminal to be had");
        m_name = QString::fromLocal8Bit(::ptsname(m_master));
        m_slave =
            ::open(::ptsname(m_master), O_RDWR | O_NOCTTY); // so that nothing is lost when the program ends
    }
    ~Terminal()
    {
        ::close(m_slave);
        ::close(m_master);
    }
    Terminal(Terminal const&) = delete;
    Terminal& operator=(Terminal const&) = delete;

    enum class Channel
    {
        Output,
        Error,
    };

    /// Runs the program in the folder of the examples, with one of its channels on the terminal.
    QString run(QStringList const& arguments, Channel channel = Channel::Output)
    {
        QProcess program;
        program.setWorkingDirectory(examples);
        if (channel == Channel::Output)
            program.setStandardOutputFile(m_name);
        else
            program.setStandardErrorFile(m_name);
        program.start(QStringLiteral(WORKPLACE_PROGRAM), arguments);
        QByteArray text;
        do
            readInto(text);
        while (!program.waitForFinished(20) && program.state() != QProcess::NotRunning);
        readInto(text);
        return QString::fromUtf8(text.replace("\r\n", "\n")); // the terminal's own line ends
    }

private:
    void readInto(QByteArray& text) const
    {
        char buffer[4096];
        for (ssize_t count = 0; (count = ::read(m_master, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<int>(count));
    }

    int const m_master;
    int m_slave = -1;
    QString m_name;
};

/// The work sequences in a folder, the set-up files left out.
QStringList sequencesIn(QString const& folder)
{
    QStringList names;
    auto const files = QDir(folder).entryList({"*.json"_s}, QDir::Files, QDir::Name);
    for (auto const& file : files) {
        if (QJsonDocument::fromJson(contentOf(folder + QLatin1Char('/') + file)).object().contains("steps"_s))
            names += file;
    }
    return names;
}

QStringList linesOf(QString const& text)
{
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QJsonObject objectOf(QString const& line)
{
    return QJsonDocument::fromJson(line.toUtf8()).object();
}

} // namespace

/// The examples as a user runs them.
class TestExamples : public QObject
{
    Q_OBJECT

private slots:
    void everySequenceIsHere() { QCOMPARE(sequencesIn(examples), QStringList({"init.json"_s, workingDay})); }

    void workingDayTwice()
    {
        ScratchFolder const folder;
        QStringList outs;
        QList<QByteArray> traces;
        for (int i = 0; i < 2; ++i) {
            QString const trace = folder.filePath(QString::number(i));
            Outcome const outcome = run({"run"_s, "--json"_s, "--trace"_s, trace, workingDay});
            QCOMPARE(outcome.err, QString());
            QCOMPARE(outcome.exitCode, 0);
            outs += outcome.out;
            traces += contentOf(trace);
        }
        QVERIFY(linesOf(outs[0]).size() > 40);
        QCOMPARE(outs[1], outs[0]);
        QVERIFY(traces[0].count('\n') > outs[0].count(QLatin1Char('\n')));
        QVERIFY(traces[1] == traces[0]);
        auto const lines = linesOf(outs[0]) + linesOf(QString::fromUtf8(traces[0]));
        for (auto const& line : lines)
            QVERIFY2(!objectOf(line).value("event"_s).toString().isEmpty(), qPrintable(line));
    }

    // What the day is about, whatever the figures of its screws.
    void workingDayInShort()
    {
        Outcome const outcome = run({"run"_s, "--json"_s, workingDay});
        QStringList orders;
        QStringList statuses;
        QStringList progress;
        QStringList effects;
        auto const lines = linesOf(outcome.out);
        for (auto const& line : lines) {
            QJsonObject const object = objectOf(line);
            QString const event = object.value("event"_s).toString();
            QString const key = object.value("key"_s).toString();
            QJsonObject const value = object.value("value"_s).toObject();
            if (event == QLatin1String("order"))
                orders += object.value("command"_s).toString();
            if (event == QLatin1String("person"))
                effects += object.value("effect"_s).toString();
            if (key == QLatin1String("eventData"))
                statuses +=
                    value.value("status"_s).toString() + QString::number(value.value("error"_s).toInt());
            if (key == QLatin1String("statusData"))
                progress +=
                    value.value("state"_s).toString() + QString::number(value.value("progress"_s).toInt());
            if (event == QLatin1String("finished"))
                QVERIFY2(object.value("success"_s).toBool(), qPrintable(line));
        }
        QCOMPARE(orders.join(QLatin1Char(' ')),
                 "init startListening getPresetInfo getDirection startTightening stopTightening "
                 "listenTrigger restore getPresetInfo"_s);
        QCOMPARE(statuses.join(QLatin1Char(' ')), "OK0 OK0 NOK330 OK0 OK0 OK0"_s);
        QCOMPARE(progress.join(QLatin1Char(' ')), "running25 running50 running75 done100"_s);
        QCOMPARE(effects.join(QLatin1Char('|')), "||||but the tool is locked||"_s);
        QVERIFY2(
            lines.last().contains(R"("event":"end","done":16,"failed":0,"notRun":0,"droppedReplies":0)"_s),
            qPrintable(lines.last()));
    }

    void restoreWithoutATerminal()
    {
        QString const out = run({"run"_s, workingDay}).out;
        QVERIFY(!out.contains(QLatin1Char('\r')));
        QVERIFY(!out.contains(QLatin1Char('\x1b')));
        QCOMPARE(linesOf(out).filter("restoring ["_s).size(), 4);
        QCOMPARE(out.count("restoring ["_s), 4);
    }

    void restoreAtATerminal()
    {
        QString const out = Terminal().run({"run"_s, workingDay});
        QString const plain = run({"run"_s, workingDay}).out;
        QVERIFY(plain.contains("restoring ["_s));
        // The same, but that each bar is written over the one before.
        QStringList const bars = linesOf(out).filter("restoring ["_s);
        QCOMPARE(bars.size(), 1);
        QCOMPARE(bars[0].split(QLatin1Char('\r')), linesOf(plain).filter("restoring ["_s));
        QString copy = out;
        QCOMPARE(copy.replace(QLatin1Char('\r'), QLatin1Char('\n')), plain);
    }

    void everyFaultHasAnExample()
    {
        QSet<int> shown;
        auto const sequences = sequencesIn(faultExamples);
        for (auto const& sequence : sequences) {
            QString const setup =
                QJsonDocument::fromJson(contentOf(faultExamples + QLatin1Char('/') + sequence))
                    .object()
                    .value("controller"_s)
                    .toString();
            auto const faults = readZrtSetup(faultExamples + QLatin1Char('/') + setup).faults;
            QVERIFY2(!faults.isEmpty(), qPrintable(setup));
            for (auto const& fault : faults)
                shown += fault.kind;
        }
        // The kinds that there are have one name each in the schema.
        auto const schema = QJsonDocument::fromJson(zrtSchemas().value("controller"_s)).object();
        QJsonValue kinds = schema;
        for (char const* const key : {"properties", "faults", "items", "properties", "kind", "oneOf"})
            kinds = kinds[QLatin1String(key)];
        QVERIFY(!shown.isEmpty());
        QCOMPARE(shown.size(), kinds.toArray().size());
    }

    void traces_data()
    {
        QTest::addColumn<QString>("name");
        for (QString const& folder : {QString(), "faults/"_s}) {
            auto const sequences = sequencesIn(examples + QLatin1Char('/') + folder);
            for (auto const& sequence : sequences) {
                QString const name = folder + sequence.chopped(5); // without ".json"
                QTest::newRow(qPrintable(name)) << name;
            }
        }
    }

    void traces()
    {
        QFETCH(QString, name);
        ScratchFolder const folder;
        QString const recorded = "traces/%1.jsonl"_s.arg(name);
        QString const trace = folder.filePath("trace"_s);
        QCOMPARE(run({"run"_s, "--trace"_s, trace, name + ".json"_s}).exitCode, 0);
        QStringList const lines = linesOf(QString::fromUtf8(contentOf(trace)));
        QStringList const recordedLines =
            linesOf(QString::fromUtf8(contentOf(examples + QLatin1Char('/') + recorded)));
        for (int i = 0; i < qMin(lines.size(), recordedLines.size()); ++i)
            QCOMPARE(withoutPlaces(lines[i]), withoutPlaces(recordedLines[i]));
        QCOMPARE(lines.size(), recordedLines.size());

        Outcome const outcome = run({"replay"_s, recorded});
        QCOMPARE(outcome.err, QString());
        QVERIFY2(QRegularExpression("^[1-9][0-9]* steps, all as recorded\n$"_s).match(outcome.out).hasMatch(),
                 qPrintable(outcome.out));
        QCOMPARE(outcome.exitCode, 0);
    }

    void replayAtATerminal()
    {
        QStringList const arguments{"replay"_s, "traces/working_day.jsonl"_s};
        QString const shown = Terminal().run(arguments, Terminal::Channel::Error);
        QVERIFY2(shown.startsWith("\rreplaying 2 %\rreplaying 3 %"_s), qPrintable(shown));
        QVERIFY2(shown.endsWith("\rreplaying 100 %\r\x1b[K"_s), qPrintable(shown));
        QCOMPARE(shown.count("\x1b[K"_s), 1);
        // It makes room for a difference.
        ScratchFolder const folder;
        QByteArray trace = contentOf(examples + "/traces/init.jsonl"_s);
        trace.replace(R"("name":"getInfo")", R"("name":"getDate")");
        QString const file = folder.write("trace"_s, trace);
        QString const other = Terminal().run({"replay"_s, file}, Terminal::Channel::Error);
        QVERIFY2(other.count(" %\r\x1b[K\rreplaying "_s) > 0, qPrintable(other));
    }

    void explainAtATerminal()
    {
        QStringList const arguments{"explain"_s, "traces/working_day.jsonl"_s};
        QString const shown = Terminal().run(arguments, Terminal::Channel::Error);
        QVERIFY2(shown.startsWith("\rreading 1 %\rreading 2 %"_s), qPrintable(shown));
        QVERIFY2(shown.endsWith("\rreading 100 %\r\x1b[K"_s), qPrintable(shown));
        QCOMPARE(shown.count("\x1b[K"_s), 1);
    }

    void everyTraceHasItsSequence()
    {
        QStringList left;
        for (QDirIterator it(examples + "/traces"_s, QDir::Files, QDirIterator::Subdirectories);
             it.hasNext();) {
            QString const name =
                QDir(examples + "/traces"_s).relativeFilePath(it.next()).section(QLatin1Char('.'), 0, 0);
            if (!QFile::exists("%1/%2.json"_s.arg(examples, name)))
                left += name;
        }
        QCOMPARE(left, QStringList());
    }

    void setups_data()
    {
        QTest::addColumn<QString>("file");
        for (auto const& folder : {examples, faultExamples}) {
            auto const files = QDir(folder).entryInfoList({"*controller*.json"_s}, QDir::Files, QDir::Name);
            for (auto const& file : files)
                QTest::newRow(qPrintable(file.fileName())) << file.filePath();
        }
    }

    void setups()
    {
        QFETCH(QString, file);
        QCOMPARE(complaintOf([&] { readZrtSetup(file); }), "no complaint"_s);
    }

    void backup()
    {
        ZrtBackup const backup = readZrtBackup(examples + "/backup.json"_s);
        QCOMPARE(backup.presets.keys(), QList<int>({1, 2, 3, 4, 15}));
        QCOMPARE(backup.parameters.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestExamples)
#include "tst_examples.moc"
