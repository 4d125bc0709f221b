#pragma once

#include "log_lines.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <vector>

/// What a line of the plugin may mean.
struct LogMeaning
{
    /// Empty if it comes from no command, but from the maintenance page.
    QString command;
    QString handler;
    QString cause;
    /// What to do, or where it is a code of the controller, what to look at first.
    QString remedy;
};

/// A line of the plugin that stands in a log, as often as it does. Lines that differ in their date, thread,
/// object or values are the same line.
struct FoundLogLine
{
    /// The source file, without its folder; empty if it is a code of the controller.
    QString file;
    /// The line number, or the code.
    int number;
    /// As it was found first.
    QString message;
    /// On which line of the log it stands first.
    qint64 firstOn;
    qint64 times;
    /// None if it is no line of this version of the plugin. Several if the file has several handlers that may
    /// have written it.
    std::vector<LogMeaning> meanings;
};

/// Finds the plugin's lines in a log. The host may have written something before them, replaced tabs by
/// blanks, or written the whole as JSON. Traces of a debug build are passed over.
class LogSearch
{
public:
    /// So many different lines are kept; those of one version of the plugin are far fewer.
    static constexpr int c_mostDifferent = 1000;
    /// A line of the plugin with more bytes may be cut if the log's line comes in pieces.
    static constexpr int c_longest = 1 << 16;

    /// Searches the next line of the log, or the next piece of it. An empty piece is the end of the log.
    void search(QByteArray const& text, qint64 line);

    /// In the order in which they stand in the log.
    std::vector<FoundLogLine> const& found() const { return m_found; }
    /// How many lines of the plugin there are.
    qint64 count() const { return m_count; }
    /// How many of them are not among those that are kept.
    qint64 notKept() const { return m_notKept; }

private:
    void searchUntil(int end, qint64 line);
    void add(QString const& key, FoundLogLine line);
    void addError(QString const& file, int number, QString const& message, qint64 on);
    void addCode(QString const& code, QString const& text, LogSource const& source, InfoLine const& info,
                 qint64 on);

    QByteArray m_text;  // what is kept of a log's line, and its next piece
    int m_searched = 0; // in m_text: what begins before this place has been found
    std::vector<FoundLogLine> m_found;
    QHash<QString, std::size_t> m_places; // in m_found
    qint64 m_count = 0;
    qint64 m_notKept = 0;
};

/// A text with lines of the plugin, for comparing it with a recorded one: a line number that has not been
/// laid down is "..". The text may be JSON.
QString withoutPlaces(QString const& text);
