#include <utilities/date_source.h>
#include <utilities/utilities.h>

#include <QDateTime>
#include <QStringList>

#include <algorithm>
#include <limits>
#include <utility>

namespace
{

constexpr int c_versionComponents = 4;
constexpr int c_componentBits = 16;
constexpr int c_maximalDepth = 32;

QString toText(QVariant const& value, int depth);

// A line break in a value must not break the line.
QString escaped(QString const& text)
{
    QString line;
    for (QChar const c : text)
        line += c.category() == QChar::Other_Control || c == QChar::LineSeparator
                        || c == QChar::ParagraphSeparator
                    ? QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'))
                    : QString(c);
    return line;
}

QString quoted(QString const& text)
{
    return QLatin1Char('"') + escaped(text) + QLatin1Char('"');
}

QString mapToText(QVariantMap const& map, int depth)
{
    QStringList entries;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        entries += quoted(it.key()) + QStringLiteral(": ") + toText(it.value(), depth + 1);
    return QLatin1Char('{') + entries.join(QStringLiteral(", ")) + QLatin1Char('}');
}

// A hash has no order of its own; as a map, the same content always gives the same text.
QVariantMap sorted(QVariantHash const& hash)
{
    QVariantMap map;
    for (auto it = hash.cbegin(); it != hash.cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

QString toText(QVariant const& value, int depth)
{
    if (depth > c_maximalDepth)
        return QStringLiteral("...");
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("<invalid>");
    case QMetaType::QVariantMap:
        return mapToText(value.toMap(), depth);
    case QMetaType::QVariantHash:
        return mapToText(sorted(value.toHash()), depth);
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QStringList items;
        auto const list = value.toList();
        for (auto const& item : list)
            items += toText(item, depth + 1);
        return QLatin1Char('[') + items.join(QStringLiteral(", ")) + QLatin1Char(']');
    }
    case QMetaType::QString:
        return quoted(value.toString());
    default:
        return value.canConvert<QString>() ? escaped(value.toString())
                                           : QStringLiteral("<%1>").arg(QLatin1String(value.typeName()));
    }
}

std::function<QDateTime()>& dateSource()
{
    static std::function<QDateTime()> source;
    return source;
}

} // namespace

quint64 versionFromString(QString const& text, bool* ok, QChar separator)
{
    auto const isDigit = [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); };
    auto const components = text.split(separator);
    bool good = components.size() <= c_versionComponents;
    quint64 version = 0;
    for (int i = 0; good && i < components.size(); ++i) {
        QString const& component = components[i];
        // QString::toUInt() alone would let signs and blanks pass.
        uint const number = component.toUInt(&good);
        good = good && number <= std::numeric_limits<quint16>::max()
               && std::all_of(component.cbegin(), component.cend(), isDigit);
        version |= quint64{number} << (c_componentBits * (c_versionComponents - 1 - i));
    }
    if (ok)
        *ok = good;
    return good ? version : 0;
}

QString versionToString(quint64 version)
{
    QStringList components;
    for (int i = c_versionComponents - 1; i >= 0; --i)
        components += QString::number(static_cast<quint16>(version >> (c_componentBits * i)));
    while (components.size() > 2 && components.last() == QLatin1String("0"))
        components.removeLast();
    return components.join(QLatin1Char('.'));
}

QString convVariantMapToString(QMap<QString, QVariant> const& map)
{
    return mapToText(map, 0);
}

QString getDate()
{
    auto const& source = dateSource();
    QDateTime const now = source ? source() : QDateTime::currentDateTime();
    return now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
}

void setDateSource(std::function<QDateTime()> source)
{
    dateSource() = std::move(source);
}
