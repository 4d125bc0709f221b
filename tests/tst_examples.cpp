#include "complaint.h"
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
QString const workingDay = QStringLiteral("working_day.json");

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
    auto const files = QDir(folder).entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    for (auto const& file : files) {
        if (QJsonDocument::fromJson(contentOf(folder + QLatin1Char('/') + file))
                .object()
                .contains(QStringLiteral("steps")))
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
class TstExamples : public QObject
{
    Q_OBJECT

private slots:
    void everySequenceIsHere();
    void workingDayTwice();
    void workingDayInShort();
    void restoreWithoutATerminal();
    void restoreAtATerminal();

    void everyFaultHasAnExample();

    void traces_data();
    void traces();
    void replayAtATerminal();
    void explainAtATerminal();
    void everyTraceHasItsSequence();

    void setups_data();
    void setups();
    void backup();
};

void TstExamples::everySequenceIsHere()
{
    QCOMPARE(sequencesIn(examples), QStringList({QStringLiteral("init.json"), workingDay}));
}

void TstExamples::workingDayTwice()
{
    ScratchFolder const folder;
    QStringList outs;
    QList<QByteArray> traces;
    for (int i = 0; i < 2; ++i) {
        QString const trace = folder.filePath(QString::number(i));
        Outcome const outcome = run(
            {QStringLiteral("run"), QStringLiteral("--json"), QStringLiteral("--trace"), trace, workingDay});
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
        QVERIFY2(!objectOf(line).value(QStringLiteral("event")).toString().isEmpty(), qPrintable(line));
}

// What the day is about, whatever the figures of its screws.
void TstExamples::workingDayInShort()
{
    Outcome const outcome = run({QStringLiteral("run"), QStringLiteral("--json"), workingDay});
    QStringList orders;
    QStringList statuses;
    QStringList progress;
    QStringList effects;
    auto const lines = linesOf(outcome.out);
    for (auto const& line : lines) {
        QJsonObject const object = objectOf(line);
        QString const event = object.value(QStringLiteral("event")).toString();
        QString const key = object.value(QStringLiteral("key")).toString();
        QJsonObject const value = object.value(QStringLiteral("value")).toObject();
        if (event == QLatin1String("order"))
            orders += object.value(QStringLiteral("command")).toString();
        if (event == QLatin1String("person"))
            effects += object.value(QStringLiteral("effect")).toString();
        if (key == QLatin1String("eventData"))
            statuses += value.value(QStringLiteral("status")).toString()
                        + QString::number(value.value(QStringLiteral("error")).toInt());
        if (key == QLatin1String("statusData"))
            progress += value.value(QStringLiteral("state")).toString()
                        + QString::number(value.value(QStringLiteral("progress")).toInt());
        if (event == QLatin1String("finished"))
            QVERIFY2(object.value(QStringLiteral("success")).toBool(), qPrintable(line));
    }
    QCOMPARE(orders.join(QLatin1Char(' ')),
             QStringLiteral("init startListening getPresetInfo getDirection startTightening stopTightening "
                            "listenTrigger restore getPresetInfo"));
    QCOMPARE(statuses.join(QLatin1Char(' ')), QStringLiteral("OK0 OK0 NOK330 OK0 OK0 OK0"));
    QCOMPARE(progress.join(QLatin1Char(' ')), QStringLiteral("running25 running50 running75 done100"));
    QCOMPARE(effects.join(QLatin1Char('|')), QStringLiteral("||||but the tool is locked||"));
    QVERIFY2(lines.last().contains(
                 QStringLiteral(R"("event":"end","done":16,"failed":0,"notRun":0,"droppedReplies":0)")),
             qPrintable(lines.last()));
}

void TstExamples::restoreWithoutATerminal()
{
    QString const out = run({QStringLiteral("run"), workingDay}).out;
    QVERIFY(!out.contains(QLatin1Char('\r')));
    QVERIFY(!out.contains(QLatin1Char('\x1b')));
    QCOMPARE(linesOf(out).filter(QStringLiteral("restoring [")).size(), 4);
    QCOMPARE(out.count(QStringLiteral("restoring [")), 4);
}

void TstExamples::restoreAtATerminal()
{
    QString const out = Terminal().run({QStringLiteral("run"), workingDay});
    QString const plain = run({QStringLiteral("run"), workingDay}).out;
    QVERIFY(plain.contains(QStringLiteral("restoring [")));
    // The same, but that each bar is written over the one before.
    QStringList const bars = linesOf(out).filter(QStringLiteral("restoring ["));
    QCOMPARE(bars.size(), 1);
    QCOMPARE(bars[0].split(QLatin1Char('\r')), linesOf(plain).filter(QStringLiteral("restoring [")));
    QString copy = out;
    QCOMPARE(copy.replace(QLatin1Char('\r'), QLatin1Char('\n')), plain);
}

void TstExamples::traces_data()
{
    QTest::addColumn<QString>("name");
    for (QString const& folder : {QString(), QStringLiteral("faults/")}) {
        auto const sequences = sequencesIn(examples + QLatin1Char('/') + folder);
        for (auto const& sequence : sequences) {
            QString const name = folder + sequence.chopped(5); // without ".json"
            QTest::newRow(qPrintable(name)) << name;
        }
    }
}

void TstExamples::traces()
{
    QFETCH(QString, name);
    ScratchFolder const folder;
    QString const recorded = QStringLiteral("traces/%1.jsonl").arg(name);
    QString const trace = folder.filePath(QStringLiteral("trace"));
    QCOMPARE(run({QStringLiteral("run"), QStringLiteral("--trace"), trace, name + QStringLiteral(".json")})
                 .exitCode,
             0);
    QStringList const lines = linesOf(QString::fromUtf8(contentOf(trace)));
    QStringList const recordedLines =
        linesOf(QString::fromUtf8(contentOf(examples + QLatin1Char('/') + recorded)));
    for (int i = 0; i < qMin(lines.size(), recordedLines.size()); ++i)
        QCOMPARE(withoutPlaces(lines[i]), withoutPlaces(recordedLines[i]));
    QCOMPARE(lines.size(), recordedLines.size());

    Outcome const outcome = run({QStringLiteral("replay"), recorded});
    QCOMPARE(outcome.err, QString());
    QVERIFY2(QRegularExpression(QStringLiteral("^[1-9][0-9]* steps, all as recorded\n$"))
                 .match(outcome.out)
                 .hasMatch(),
             qPrintable(outcome.out));
    QCOMPARE(outcome.exitCode, 0);
}

void TstExamples::replayAtATerminal()
{
    QStringList const arguments{QStringLiteral("replay"), QStringLiteral("traces/working_day.jsonl")};
    QString const shown = Terminal().run(arguments, Terminal::Channel::Error);
    QVERIFY2(shown.startsWith(QStringLiteral("\rreplaying 2 %\rreplaying 3 %")), qPrintable(shown));
    QVERIFY2(shown.endsWith(QStringLiteral("\rreplaying 100 %\r\x1b[K")), qPrintable(shown));
    QCOMPARE(shown.count(QStringLiteral("\x1b[K")), 1);
    // It makes room for a difference.
    ScratchFolder const folder;
    QByteArray trace = contentOf(examples + QStringLiteral("/traces/init.jsonl"));
    trace.replace(R"("name":"getInfo")", R"("name":"getDate")");
    QString const file = folder.write(QStringLiteral("trace"), trace);
    QString const other = Terminal().run({QStringLiteral("replay"), file}, Terminal::Channel::Error);
    QVERIFY2(other.count(QStringLiteral(" %\r\x1b[K\rreplaying ")) > 0, qPrintable(other));
}

void TstExamples::explainAtATerminal()
{
    QStringList const arguments{QStringLiteral("explain"), QStringLiteral("traces/working_day.jsonl")};
    QString const shown = Terminal().run(arguments, Terminal::Channel::Error);
    QVERIFY2(shown.startsWith(QStringLiteral("\rreading 1 %\rreading 2 %")), qPrintable(shown));
    QVERIFY2(shown.endsWith(QStringLiteral("\rreading 100 %\r\x1b[K")), qPrintable(shown));
    QCOMPARE(shown.count(QStringLiteral("\x1b[K")), 1);
}

void TstExamples::everyTraceHasItsSequence()
{
    QStringList left;
    for (QDirIterator it(examples + QStringLiteral("/traces"), QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        QString const name = QDir(examples + QStringLiteral("/traces"))
                                 .relativeFilePath(it.next())
                                 .section(QLatin1Char('.'), 0, 0);
        if (!QFile::exists(QStringLiteral("%1/%2.json").arg(examples, name)))
            left += name;
    }
    QCOMPARE(left, QStringList());
}

void TstExamples::everyFaultHasAnExample()
{
    QSet<int> shown;
    auto const sequences = sequencesIn(faultExamples);
    for (auto const& sequence : sequences) {
        QString const setup = QJsonDocument::fromJson(contentOf(faultExamples + QLatin1Char('/') + sequence))
                                  .object()
                                  .value(QStringLiteral("controller"))
                                  .toString();
        auto const faults = readZrtSetup(faultExamples + QLatin1Char('/') + setup).faults;
        QVERIFY2(!faults.isEmpty(), qPrintable(setup));
        for (auto const& fault : faults)
            shown += fault.kind;
    }
    // The kinds that there are have one name each in the schema.
    auto const schema = QJsonDocument::fromJson(zrtSchemas().value(QStringLiteral("controller"))).object();
    QJsonValue kinds = schema;
    for (char const* const key : {"properties", "faults", "items", "properties", "kind", "oneOf"})
        kinds = kinds[QLatin1String(key)];
    QVERIFY(!shown.isEmpty());
    QCOMPARE(shown.size(), kinds.toArray().size());
}

void TstExamples::setups_data()
{
    QTest::addColumn<QString>("file");
    for (auto const& folder : {examples, faultExamples}) {
        auto const files =
            QDir(folder).entryInfoList({QStringLiteral("*controller*.json")}, QDir::Files, QDir::Name);
        for (auto const& file : files)
            QTest::newRow(qPrintable(file.fileName())) << file.filePath();
    }
}

void TstExamples::setups()
{
    QFETCH(QString, file);
    QCOMPARE(complaintOf([&] { readZrtSetup(file); }), QStringLiteral("no complaint"));
}

void TstExamples::backup()
{
    ZrtBackup const backup = readZrtBackup(examples + QStringLiteral("/backup.json"));
    QCOMPARE(backup.presets.keys(), QList<int>({1, 2, 3, 4, 15}));
    QCOMPARE(backup.parameters.size(), 2);
}

QTEST_GUILESS_MAIN(TstExamples)
#include "tst_examples.moc"
