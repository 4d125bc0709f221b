#pragma once

#include "literals.h"
#include "message_capture.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>

/// An error line of the plugin, taken apart again.
struct ErrorLine
{
    /// From the source folder of the plugin on.
    QString file;
    int line = 0;
    QString message;

    /// The last line that was caught, provided it is the only one of its level; else an empty one.
    static ErrorLine only(MessageCapture const& messages)
    {
        static QRegularExpression const layout(
            "^\n \"[^\"]+\" ;\t Thread = QThread\\(0x[0-9a-f]+\\) ;\t This = \\w+\\(0x[0-9a-f]+\\) ;\t "
            ".*plugins/p_tool_vesk_zrt/source/(\\S+) ;\t (\\d+) ;\t (.*)$"_s,
            QRegularExpression::DotMatchesEverythingOption);
        auto const errors = messages.of(QtCriticalMsg);
        if (errors.size() != 1 || errors[0].category != "default")
            return {};
        auto const match = layout.match(errors[0].text);
        return {match.captured(1), match.captured(2).toInt(), match.captured(3)};
    }
};

inline QString const c_invalidReply = "ERROR: Invalid reply format"_s;
inline QString const c_unmanagedFormat = "ERROR: Reply data format not managed"_s;
