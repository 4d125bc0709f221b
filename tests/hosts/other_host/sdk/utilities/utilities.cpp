#include <utilities/d_object.h>
#include <utilities/utilities.h>

#include <QStringList>

namespace
{

QString textOf(QVariant const& value)
{
    if (!value.isValid())
        return QStringLiteral("invalid");
    QString text = value.toString();
    if (value.type() == QVariant::Map)
        text = convVariantMapToString(value.toMap());
    else if (value.type() == QVariant::StringList)
        text = value.toStringList().join(QLatin1Char('|'));
    return QString::fromLatin1(value.typeName()) + QLatin1Char(' ') + text;
}

} // namespace

DObject::DObject(QString const& name, QObject* parent) : QObject(parent), m_name(name.toUtf8()) {}

DObject::~DObject() = default;

quint64 versionFromString(QString const& text, bool* ok, QChar separator)
{
    if (ok)
        *ok = text.count(separator) == 1;
    return text.section(separator, 0, 0).toULongLong() * 1000 + text.section(separator, 1, 1).toULongLong();
}

QString convVariantMapToString(QMap<QString, QVariant> const& map)
{
    QStringList entries;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        entries += it.key() + QStringLiteral(": ") + textOf(it.value());
    return QLatin1Char('{') + entries.join(QStringLiteral(", ")) + QLatin1Char('}');
}

QString getDate()
{
    return QStringLiteral("31 Dec 1999 23:59:59");
}
