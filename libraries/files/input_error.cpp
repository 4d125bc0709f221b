#include "input_error.h"

QString onOneLine(QString const& text)
{
    QString line;
    for (QChar const c : text) {
        if (c == QLatin1Char('\n'))
            line += QStringLiteral("\\n");
        else if (c == QLatin1Char('\r'))
            line += QStringLiteral("\\r");
        else if ((c.category() == QChar::Other_Control && c != QLatin1Char('\t')) || c == QChar::LineSeparator
                 || c == QChar::ParagraphSeparator)
            line += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            line += c;
    }
    return line;
}

QString shown(QString const& text)
{
    constexpr int longest = 200;
    if (text.size() <= longest)
        return onOneLine(text);
    return onOneLine(text.left(text[longest - 1].isHighSurrogate() ? longest - 1 : longest))
           + QStringLiteral("...");
}
