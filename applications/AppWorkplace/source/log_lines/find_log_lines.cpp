#include "find_log_lines.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <utility>

namespace
{

/// What an error line has before its message: the source file and the line number. In JSON a tab is "\t".
QRegularExpression const& place()
{
    static QRegularExpression const pattern(QStringLiteral(
        R"(p_tool_vesk_zrt/source/([\w.]+)(?:\s|\\t)*;(?:\s|\\t)*(\d{1,9})(?:\s|\\t)*;(?:\s|\\t)*)"));
    return pattern;
}

/// A message of the table as a pattern; what differs is @p value. Blanks may be more or fewer.
QString toPattern(char const* message, QString const& value)
{
    QString pattern = QRegularExpression::escape(QString::fromUtf8(message));
    pattern.replace(QRegularExpression::escape(QStringLiteral("…")), value);
    return pattern.replace(QRegularExpression(QStringLiteral(R"((\\ )+)")), QStringLiteral("\\s+"));
}

struct ErrorPattern
{
    LogSource const* source;
    ErrorLine const* error;
    QRegularExpression message;
};

std::vector<ErrorPattern> const& errorPatterns()
{
    static std::vector<ErrorPattern> const all = [] {
        std::vector<ErrorPattern> patterns;
        for (auto const& source : logSources()) {
            for (auto const& error : source.errors) {
                // One message is the beginning of another. Behind it may be what the host has added.
                QString const message = toPattern(error.message, QStringLiteral("(.*)"));
                patterns.push_back(
                    {&source, &error, QRegularExpression(QStringLiteral("^%1(?![\\w,])").arg(message))});
            }
        }
        return patterns;
    }();
    return all;
}

struct InfoPattern
{
    LogSource const* source;
    InfoLine const* info;
    QRegularExpression line;
};

std::vector<InfoPattern> const& infoPatterns()
{
    static std::vector<InfoPattern> const all = [] {
        // A number, or a text in quotes, which JSON escapes.
        QString const value = QStringLiteral(R"((-?\d+|\\?".{0,1000}?"))");
        std::vector<InfoPattern> patterns;
        for (auto const& source : logSources()) {
            for (auto const& info : source.infos)
                patterns.push_back({&source, &info, QRegularExpression(toPattern(info.message, value))});
        }
        return patterns;
    }();
    return all;
}

/// Whether the quote behind the date is escaped, as in JSON. Other escaped quotes may belong to a name.
bool hasEscapedDate(QStringRef const& text)
{
    static QRegularExpression const date(QStringLiteral(R"(\\"(?:\s|\\t)*;(?:\s|\\t)*Thread = )"));
    return date.match(text).hasMatch();
}

QString decoded(QStringRef const& bytes)
{
    return QString::fromUtf8(bytes.toLatin1());
}

/// A text that stands in JSON, from here to the quote at its end.
QString fromJson(QString const& text)
{
    static QRegularExpression const untilQuote(QStringLiteral(R"(^(?:[^"\\]|\\.)*)"));
    return untilQuote.match(text)
        .captured()
        .replace(QLatin1String("\\t"), QLatin1String("\t"))
        .replace(QLatin1String("\\\""), QLatin1String("\""))
        .replace(QLatin1String("\\\\"), QLatin1String("\\"));
}

bool isLaidDown(QString const& file, int line)
{
    auto const& sources = logSources();
    return std::any_of(sources.cbegin(), sources.cend(), [&](LogSource const& source) {
        return file == QLatin1String(source.file)
               && std::any_of(source.errors.cbegin(), source.errors.cend(),
                              [line](ErrorLine const& error) { return error.line == line; });
    });
}

} // namespace

void LogSearch::search(QByteArray const& text, qint64 line)
{
    bool const goesOn = !text.isEmpty() && !text.endsWith('\n');
    m_text += text;
    // What begins behind this place may go on in the next piece.
    int const end = goesOn ? qMax(m_searched, m_text.size() - c_longest) : m_text.size();
    searchUntil(end, line);
    // What stands before a source file belongs to the line too.
    int const done = goesOn ? qMax(0, end - c_longest) : m_text.size();
    m_text.remove(0, done);
    m_searched = end - done;
}

void LogSearch::searchUntil(int end, qint64 line)
{
    if (end == m_searched)
        return;
    QString const log = QString::fromLatin1(m_text); // a character for each byte
    auto const isNew = [&](QRegularExpressionMatch const& match) {
        return match.capturedStart() >= m_searched && match.capturedStart() < end;
    };
    auto it = place().globalMatch(log);
    for (int before = 0; it.hasNext();) {
        auto const match = it.next();
        if (isNew(match)) {
            int const messageEnd = it.hasNext() ? it.peekNext().capturedStart() : log.size();
            QString const message =
                decoded(log.midRef(match.capturedEnd(), messageEnd - match.capturedEnd()));
            bool const isInJson = match.capturedRef().contains(QLatin1String("\\t"))
                                  || hasEscapedDate(log.midRef(before, match.capturedStart() - before));
            addError(match.captured(1), match.captured(2).toInt(),
                     (isInJson ? fromJson(message) : message).trimmed(), line);
        }
        before = match.capturedEnd();
    }
    for (auto const& pattern : infoPatterns()) {
        for (auto codes = pattern.line.globalMatch(log); codes.hasNext();) {
            auto const match = codes.next();
            if (isNew(match))
                addCode(match.captured(2), decoded(match.capturedRef(3)), *pattern.source, *pattern.info,
                        line);
        }
    }
}

void LogSearch::addError(QString const& file, int number, QString const& message, qint64 on)
{
    FoundLogLine line{file, number, message, on, 0, {}};
    QString key = QStringLiteral("%1;%2").arg(file).arg(number);
    for (auto const& [source, error, pattern] : errorPatterns()) {
        if (file != QLatin1String(source->file) || (error->line != 0 && error->line != number))
            continue;
        auto const match = pattern.match(message);
        if (!match.hasMatch())
            continue;
        line.message = match.captured();
        key += QLatin1Char(';') + QString::fromUtf8(error->message);
        line.meanings.push_back({QString::fromUtf8(source->command), QString::fromUtf8(error->handler),
                                 QString::fromUtf8(error->cause), QString::fromUtf8(error->remedy)});
    }
    add(key, std::move(line));
}

void LogSearch::addCode(QString const& code, QString const& text, LogSource const& source,
                        InfoLine const& info, qint64 on)
{
    QString words = text;
    words.remove(QLatin1Char('\\')).remove(QLatin1Char('"'));
    FoundLogLine line{QString(), code.toInt(), words, on, 0, {}};
    for (auto const& error : controllerErrors()) {
        if (error.code == line.number && words == QLatin1String(error.text))
            line.meanings.push_back({QString::fromUtf8(source.command), QString::fromUtf8(info.handler),
                                     QString::fromUtf8(info.cause), QString::fromUtf8(error.lookAt)});
    }
    add(QStringLiteral("%1:%2").arg(code, words), std::move(line));
}

void LogSearch::add(QString const& key, FoundLogLine line)
{
    ++m_count;
    auto place = m_places.find(key);
    if (place == m_places.end()) {
        if (m_found.size() == c_mostDifferent) {
            ++m_notKept;
            return;
        }
        place = m_places.insert(key, m_found.size());
        m_found.push_back(std::move(line));
    }
    ++m_found[*place].times;
}

QString withoutPlaces(QString const& text)
{
    QString result;
    int copied = 0;
    for (auto it = place().globalMatch(text); it.hasNext();) {
        auto const match = it.next();
        if (isLaidDown(match.captured(1), match.captured(2).toInt()))
            continue;
        result += text.midRef(copied, match.capturedStart(2) - copied) + QLatin1String("..");
        copied = match.capturedEnd(2);
    }
    return result + text.midRef(copied);
}
