#include "literals.h"
#include "scratch_folder.h"

#include "log_lines/find_log_lines.h"
#include "log_lines/log_lines.h"

#include <QtTest>

#include <map>

namespace
{

// The calls that write into the log, with what is read of them.
constexpr char const* c_errorCall = R"(errorLine\([^;()]*, *([^;(),]*)\)\s*<<\s*([^;]*);)";
constexpr char const* c_infoCall = R"(infoLine\(\)\s*<<\s*([^;]*);)";
constexpr char const* c_traceCall = "trace(?:Reply|Life)\\(\\*this, \"(\\w+)\"";

QRegularExpression pattern(char const* text)
{
    return QRegularExpression(QString::fromUtf8(text), QRegularExpression::MultilineOption);
}

/// The plugin's sources by their names, but for the helpers that write into the log.
std::map<QString, QString> sources()
{
    QDir const folder(QStringLiteral(SOURCE_FOLDER "/plugins/p_tool_vesk_zrt/source"));
    std::map<QString, QString> all;
    auto const names = folder.entryList({"*.cpp"_s, "*.h"_s}, QDir::Files);
    for (auto const& name : names) {
        if (!name.startsWith(QLatin1String("zrt_log.")))
            all[name] = QString::fromUtf8(contentOf(folder.filePath(name)));
    }
    return all;
}

QList<QRegularExpressionMatch> matches(char const* text, QString const& code)
{
    QList<QRegularExpressionMatch> all;
    for (auto it = pattern(text).globalMatch(code); it.hasNext();)
        all += it.next();
    return all;
}

/// The function that this place of a source stands in.
QString functionAt(QString const& code, int place)
{
    auto const begins =
        matches(R"(^\w[^;#=]*?(\w+)\([^;]*\)(?: const)?\n(?:    : [^;]*\n)?\{)", code.left(place));
    return begins.isEmpty() ? "no function"_s : begins.last().captured(1);
}

/// What is streamed, as it reads in the log; "…" is what differs.
QString message(QString const& stream)
{
    static std::map<QString, QString> const texts = [] {
        std::map<QString, QString> named;
        for (auto const& [name, code] : sources()) {
            for (auto const& match : matches("char const\\* (c_\\w+) = \"(.*)\";", code))
                named[match.captured(1)] = match.captured(2);
        }
        return named;
    }();
    QStringList pieces = stream.split("<<"_s);
    for (auto& piece : pieces) {
        piece = piece.trimmed().remove(QRegularExpression("^zrt::"_s));
        auto const named = texts.find(piece);
        if (piece.startsWith(QLatin1Char('"')))
            piece = piece.mid(1, piece.size() - 2);
        else
            piece = named == texts.end() ? "…"_s : named->second;
    }
    return pieces.join(QLatin1Char(' '));
}

QString row(QString const& file, QString const& line, QString const& handler, QString const& text)
{
    return QStringList{file, line, handler, text}.join(" | "_s);
}

/// The error lines of the sources, as rows.
QStringList errorsInSources()
{
    struct Call
    {
        QString file;
        QString line;
        QString handler;
        QString text;
    };
    QList<Call> calls;
    std::map<QString, QList<Call>> handedOn; // by the function that gets the line from its callers
    for (auto const& [file, code] : sources()) {
        for (auto const& match : matches(c_errorCall, code)) {
            Call const call{file, match.captured(1), functionAt(code, match.capturedStart()),
                            message(match.captured(2))};
            bool const isHandedOn =
                call.line != QLatin1String("__LINE__") && !call.line.startsWith(QLatin1String("c_"));
            (isHandedOn ? handedOn[call.handler] : calls) += call;
        }
    }
    for (auto const& [file, code] : sources()) {
        for (auto const& [function, texts] : handedOn) {
            QByteArray const call =
                "(?<!bool |EventValues )\\b" + function.toLatin1() + R"(\([^;]*\b(c_\w+Lines?)\b)";
            for (auto const& match : matches(call.constData(), code)) {
                for (auto const& text : texts) {
                    QString const member = text.line.section(QLatin1Char('.'), 1);
                    calls += {file, match.captured(1) + QLatin1Char('.') + member,
                              functionAt(code, match.capturedStart()), text.text};
                }
            }
        }
    }
    QStringList rows;
    auto const all = sources();
    for (auto const& call : qAsConst(calls)) {
        QString const& code = all.at(call.file);
        QString const constant = call.line.section(QLatin1Char('.'), 0, 0);
        QString line = "0"_s;
        for (auto const& match : matches(R"(constexpr int (c_\w+) = (\d+);)", code)) {
            if (match.captured(1) == constant)
                line = match.captured(2);
        }
        for (auto const& match : matches(R"(constexpr zrt::EventLines (c_\w+)\{(\d+), (\d+)\};)", code)) {
            if (match.captured(1) == constant)
                line = match.captured(call.line.endsWith(QLatin1String("invalidReply")) ? 2 : 3);
        }
        rows += row(call.file, line, call.handler, call.text);
    }
    return rows;
}

/// The lines of information of the sources, as rows.
QStringList informationInSources()
{
    QStringList rows;
    for (auto const& [file, code] : sources()) {
        for (auto const& match : matches(c_infoCall, code))
            rows += row(file, {}, functionAt(code, match.capturedStart()), message(match.captured(1)));
    }
    return rows;
}

QStringList found(char const* text)
{
    QStringList rows;
    for (auto const& [file, code] : sources()) {
        for (auto const& match : matches(text, code))
            rows += file + " | "_s + match.capturedTexts().mid(1).join(" | "_s);
    }
    return rows;
}

/// What a log says that comes in pieces of this size.
QStringList foundIn(QByteArray const& log, int size)
{
    LogSearch search;
    for (int begin = 0; begin < log.size(); begin += size)
        search.search(log.mid(begin, size), 1);
    search.search({}, 1);
    QStringList rows;
    for (auto const& line : search.found())
        rows += "%1 of %2 %3 %4, %5 meanings"_s.arg(line.times)
                    .arg(line.file)
                    .arg(line.number)
                    .arg(line.message)
                    .arg(line.meanings.size());
    rows.sort();
    return rows;
}

/// Compares row by row, for the sake of who reads what is missing.
void compare(QStringList const& table, QStringList const& code)
{
    QVERIFY(!code.isEmpty());
    for (auto const& one : code)
        QVERIFY2(table.contains(one), qPrintable("log_lines/log_lines.cpp lacks: "_s + one));
    for (auto const& one : table)
        QVERIFY2(code.contains(one),
                 qPrintable("the plugin lacks what log_lines/log_lines.cpp has: "_s + one));
    QCOMPARE(table.size(), code.size());
}

} // namespace

/// The table of the plugin's log lines, held against the plugin's sources: each has every line of the other.
class TestLogLines : public QObject
{
    Q_OBJECT

private slots:
    void errorsInformationAndTraces()
    {
        QStringList table;
        for (auto const& source : logSources()) {
            QString const file = QString::fromUtf8(source.file);
            for (auto const& error : source.errors)
                table += row(file, QString::number(error.line), QString::fromUtf8(error.handler),
                             QString::fromUtf8(error.message));
            for (auto const& info : source.infos)
                table += row(file, {}, QString::fromUtf8(info.handler), QString::fromUtf8(info.message));
            for (auto const* trace : source.traces)
                table += file + " | "_s + QString::fromUtf8(trace);
        }
        compare(table, errorsInSources() + informationInSources() + found(c_traceCall));
    }

    void errorCodes()
    {
        QStringList codes;
        for (auto const& error : controllerErrors())
            codes += "d_cmd_eventListen.cpp | %1 | %2"_s.arg(error.code).arg(QString::fromUtf8(error.text));
        compare(codes, found("\\{(\\d+), QStringLiteral\\(\"(.*)\"\\)\\}"));
    }

    // The name that a command has is what its constructor begins with.
    void commands()
    {
        auto const all = sources();
        for (auto const& source : logSources()) {
            auto const names = matches("DAbstractCommand\\(QStringLiteral\\(\"(\\w+)\"\\)",
                                       all.at(QString::fromUtf8(source.file)));
            QCOMPARE(QString::fromUtf8(source.command),
                     names.isEmpty() ? QString() : names.first().captured(1));
        }
    }

    void everyCallIsUnderstood()
    {
        QCOMPARE(found(c_errorCall).size(), found(R"(\berrorLine\()").size());
        QCOMPARE(found(c_infoCall).size(), found(R"(\binfoLine\()").size());
        QCOMPARE(found(c_traceCall).size(), found(R"(\btrace(?:Reply|Life)\()").size());
    }

    void nobodyElseWritesIntoTheLog()
    {
        QCOMPARE(found(R"(\b(q(?:Debug|Info|Warning|Critical|Fatal|CDebug)\(|QMessageLogger\b))"),
                 QStringList());
    }

    // Wherever a line is cut, nothing in it is lost, cut or taken twice.
    void aLineInPieces()
    {
        QByteArray const begin = "{\"text\":\"\\n \\\"2026-11-21 14:03:07.215\\\" ;\\t Thread = QThread(0x1) "
                                 ";\\t This = D(0x2) ;\\t "
                                 "/b/plugins/p_tool_vesk_zrt/source/";
        QByteArray const end = "\"},";
        QByteArray const log = begin + R"(d_cmd_init_zrt.cpp ;\t 81 ;\t ERROR: Invalid reply format)" + end
                               + begin + "d_cmd_new.cpp ; 12 ; ERROR: New, Schl\\\"ü\\\"ssel" + end
                               + "{\"text\":\"ZRT screwdriver  \\\"left bench\\\"  error code  330 :  "
                                 "\\\"Min Angle error\\\"\"},";
        // From a small piece, over what is longer than a line of the plugin and half of the log, to the
        // whole.
        for (int const size : {997, LogSearch::c_longest + 1, 250'000, 10'000'000})
            QCOMPARE(foundIn(log.repeated(1000), size),
                     QStringList({"1000 of  330 Min Angle error, 1 meanings"_s,
                                  "1000 of d_cmd_init_zrt.cpp 81 ERROR: Invalid reply format, 1 meanings"_s,
                                  "1000 of d_cmd_new.cpp 12 ERROR: New, Schl\"ü\"ssel, 0 meanings"_s}));
    }

    void withoutPlaces_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("without");
        auto const line = [](char const* file, char const* number) {
            return "\n \"2000-01-01 00:00:00.015\" ;\t Thread = QThread(0x..) ;\t This = D(0x..) ;\t "
                   "./plugins/p_tool_vesk_zrt/source/%1 ;\t %2 ;\t ERROR: Invalid reply format"_s.arg(
                       QLatin1String(file), QLatin1String(number));
        };
        auto const json = [](QString text) {
            return text.replace(QLatin1Char('"'), QLatin1String("\\\""))
                .replace(QLatin1Char('\n'), QLatin1String("\\n"))
                .replace(QLatin1Char('\t'), QLatin1String("\\t"));
        };
        auto const ofPlace = line("d_cmd_getDirection.cpp", "45");
        auto const ofPlaceWithout = line("d_cmd_getDirection.cpp", "..");
        auto const laidDown = line("d_cmd_init_zrt.cpp", "81");
        auto const row = [](char const* name, QString const& text, QString const& without) {
            QTest::newRow(name) << text << without;
        };
        row("none", "a.cpp ;\t 45 ;\t"_s, "a.cpp ;\t 45 ;\t"_s);
        row("laid down", laidDown, laidDown);
        row("not the one laid down", line("d_cmd_init_zrt.cpp", "82"), line("d_cmd_init_zrt.cpp", ".."));
        row("laid down in another file", line("d_cmd_getDirection.cpp", "81"), ofPlaceWithout);
        row("unknown file", line("d_cmd_new.cpp", "3"), line("d_cmd_new.cpp", ".."));
        row("several", ofPlace + laidDown + ofPlace, ofPlaceWithout + laidDown + ofPlaceWithout);
        row("JSON", json(ofPlace), json(ofPlaceWithout));
    }

    void withoutPlaces()
    {
        QFETCH(QString, text);
        QFETCH(QString, without);
        QCOMPARE(::withoutPlaces(text), without);
    }
};

QTEST_GUILESS_MAIN(TestLogLines)
#include "tst_log_lines.moc"
