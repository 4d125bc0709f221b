#pragma once

#include "literals.h"
#include "message_capture.h"

#include <QString>
#include <QStringList>

#include <optional>

/// An error line of the plugin, taken apart again.
struct LoggedError
{
    QString file; ///< without its folder
    int line = 0;
    QString message;
    QString className; ///< of the object that wrote it

    /// Nothing if a piece of the line's beginning is missing.
    static std::optional<LoggedError> fromText(QString const& text)
    {
        static QString const separator = " ;\t "_s;
        static QString const folder = "/plugins/p_tool_vesk_zrt/source/"_s;
        static QString const object = "This = "_s;
        QStringList const pieces = text.split(separator);
        bool const isOne = pieces.size() >= 6 && pieces[0].startsWith(QLatin1String("\n \""))
                           && pieces[1].startsWith(QLatin1String("Thread = QThread(0x"))
                           && pieces[2].startsWith(object) && pieces[2].contains(QLatin1String("(0x"))
                           && pieces[3].contains(folder);
        if (!isOne)
            return std::nullopt;
        return LoggedError{pieces[3].section(folder, 1), pieces[4].toInt(),
                           pieces.mid(5).join(separator).trimmed(),
                           pieces[2].mid(object.size()).section(QLatin1Char('('), 0, 0)};
    }
    /// The last line that was caught, provided it is the only one of its level; else an empty one.
    static LoggedError only(MessageCapture const& messages)
    {
        auto const errors = messages.of(QtCriticalMsg);
        if (errors.size() != 1 || errors[0].category != "default")
            return {};
        return fromText(errors[0].text).value_or(LoggedError());
    }
};
