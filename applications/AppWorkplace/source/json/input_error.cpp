#include "input_error.h"

QString shown(QString const& text)
{
    constexpr int longest = 200;
    QString line = text;
    if (text.size() > longest)
        line = text.left(text[longest - 1].isHighSurrogate() ? longest - 1 : longest) + QStringLiteral("...");
    QString safe;
    for (QChar const c : line) {
        if (c == QLatin1Char('\n'))
            safe += QStringLiteral("\\n");
        else if (c == QLatin1Char('\r'))
            safe += QStringLiteral("\\r");
        else if (c.category() == QChar::Other_Control)
            safe += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            safe += c;
    }
    return safe;
}
