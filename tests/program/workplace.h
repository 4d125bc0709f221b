#pragma once

#include "literals.h"
#include "scratch_folder.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QtTest>

#include <functional>

/// What a run of the program left. A channel that was sent elsewhere is empty.
struct Outcome
{
    int exitCode = -1;
    QString out;
    QString err;
};

inline bool operator==(Outcome const& a, Outcome const& b)
{
    return a.exitCode == b.exitCode && a.out == b.out && a.err == b.err;
}

/// How QCOMPARE shows it.
inline char* toString(Outcome const& outcome)
{
    return QTest::toString(
        "exit code %1\n%2%3"_s.arg(QString::number(outcome.exitCode), outcome.err, outcome.out));
}

/// The outcome of a run that does as asked.
inline Outcome prints(QString const& out)
{
    return {0, out, {}};
}

/// The outcome of a run that is given something wrong, and does nothing.
inline Outcome complains(QString const& complaint)
{
    return {2, {}, "workplace: %1\n"_s.arg(complaint)};
}

/// The outcome of a command line that is wrong.
inline Outcome pointsToHelp(QString const& complaint)
{
    return complains(complaint + "; workplace --help shows what there is"_s);
}

inline QStringList linesOf(QString const& text)
{
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

inline QJsonObject objectOf(QString const& line)
{
    return QJsonDocument::fromJson(line.toUtf8()).object();
}

/// The program in a folder of its own, as a user runs it who has neither a screen nor maintenance records.
class Workplace : public ScratchFolder
{
public:
    using SetUp = std::function<void(QProcess&)>;

    /// @p setUp  sends channels elsewhere, sets variables, changes the folder, …
    Outcome run(QStringList const& arguments, SetUp const& setUp = {}) const
    {
        QProcess program;
        prepare(program);
        if (setUp)
            setUp(program);
        program.start(QStringLiteral(WORKPLACE_PROGRAM), arguments);
        return outcomeOf(program);
    }
    /// A command line, in which double quotes hold a word together.
    Outcome run(QString const& commandLine, SetUp const& setUp = {}) const
    {
        return run(QProcess::splitCommand(commandLine), setUp);
    }
    /// After something that only a shell does, "ulimit -v 1000".
    Outcome runAfter(QString const& preparation, QStringList const& arguments) const
    {
        QProcess shell;
        startAfter(preparation, shell, arguments);
        return outcomeOf(shell);
    }
    void startAfter(QString const& preparation, QProcess& shell, QStringList const& arguments) const
    {
        prepare(shell);
        shell.start("sh"_s, QStringList{"-c"_s, preparation + "; exec \"$0\" \"$@\""_s,
                                        QStringLiteral(WORKPLACE_PROGRAM)}
                                + arguments);
    }

    /// The files in the folder.
    QMap<QString, QByteArray> contents() const
    {
        QMap<QString, QByteArray> all;
        auto const files = names();
        for (auto const& file : files)
            all[file] = contentOf(filePath(file));
        return all;
    }

    /// What a program leaves that has been started; waits for its end.
    static Outcome outcomeOf(QProcess& program)
    {
        if (!program.waitForFinished(60'000))
            return {-2, {}, "it does not come back"_s};
        return {program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -3,
                QString::fromUtf8(program.readAllStandardOutput()),
                QString::fromUtf8(program.readAllStandardError())};
    }

    static void setVariable(QProcess& program, QString const& name, QString const& value)
    {
        auto environment = program.processEnvironment();
        environment.insert(name, value);
        program.setProcessEnvironment(environment);
    }

private:
    void prepare(QProcess& program) const
    {
        program.setWorkingDirectory(path());
        auto environment = QProcessEnvironment::systemEnvironment();
        for (char const* const name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QLatin1String(name));
        environment.insert("XDG_DATA_HOME"_s, filePath("data"_s));
        program.setProcessEnvironment(environment);
    }
};

Q_DECLARE_METATYPE(Outcome)
