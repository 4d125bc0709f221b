#include "any_value.h"

#include "literals.h"

#include "byte_reader.h"

#include <QBitArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLine>
#include <QLocale>
#include <QObject>
#include <QRect>
#include <QRegularExpression>
#include <QStringList>
#include <QUrl>
#include <QUuid>

#include <iterator>
#include <limits>

namespace
{

/// A type that Qt knows nothing of but its name.
struct OfTheHost
{
    int value = 0;
};

constexpr int c_deepest = 4;
constexpr int c_mostItems = 4;
constexpr int c_longestText = 12;

QVariant anyNumber(ByteReader& bytes)
{
    switch (bytes.below(8)) {
    case 0:
        return static_cast<int>(bytes.byte());
    case 1:
        return bytes.number<int>();
    case 2:
        return bytes.number<uint>();
    case 3:
        return bytes.number<qlonglong>();
    case 4:
        return bytes.number<qulonglong>();
    case 5:
        return bytes.number<float>();
    case 6:
        return static_cast<double>(bytes.number<int>()) / 100;
    default:
        return bytes.number<double>();
    }
}

QVariant anyText(ByteReader& bytes)
{
    switch (bytes.below(5)) {
    case 0:
        return bytes.text(c_longestText);
    case 1:
        return QString::number(bytes.number<short>());
    case 2:
        return bytes.truth() ? "true"_s : "0"_s;
    case 3:
        return bytes.bytes(c_longestText);
    default:
        return QChar(bytes.number<ushort>());
    }
}

/// A value that is there and yet not.
QVariant anyNull(ByteReader& bytes)
{
    static constexpr QMetaType::Type types[] = {
        QMetaType::QString, QMetaType::Int,        QMetaType::Bool,      QMetaType::QVariantMap,
        QMetaType::Nullptr, QMetaType::QByteArray, QMetaType::QDateTime, QMetaType::QVariantList};
    switch (bytes.below(4)) {
    case 0:
        return {};
    case 1:
        return QString();
    case 2:
        return QVariant::fromValue<QObject*>(nullptr);
    default:
        return QVariant(static_cast<QVariant::Type>(types[bytes.below(std::size(types))]));
    }
}

QVariant anyJson(ByteReader& bytes, int depth)
{
    auto const value = QJsonValue::fromVariant(anyValue(bytes, depth + 1));
    switch (bytes.below(4)) {
    case 0:
        return value;
    case 1:
        return QJsonArray{value};
    case 2:
        return QJsonDocument(QJsonObject{{anyKey(bytes), value}});
    default:
        return QJsonObject{{anyKey(bytes), value}};
    }
}

/// Values of types that no device layer has a reason to use.
QVariant anyOddity(ByteReader& bytes)
{
    switch (bytes.below(15)) {
    case 0:
        return QVariant::fromValue(OfTheHost{bytes.byte()});
    case 1:
        return QDate::fromJulianDay(bytes.number<int>());
    case 2:
        return QTime::fromMSecsSinceStartOfDay(bytes.number<int>());
    case 3:
        return QDateTime::fromMSecsSinceEpoch(bytes.number<int>(), Qt::UTC);
    case 4:
        return QUrl(bytes.text(c_longestText));
    case 5:
        return QUuid(bytes.number<uint>(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
    case 6:
        return QPointF(bytes.byte(), 1);
    case 7:
        return QRect(1, 2, bytes.byte(), 4);
    case 8:
        return QLine(1, 2, 3, bytes.byte());
    case 9:
        return QLocale(QLocale::German);
    case 10:
        return QRegularExpression(bytes.text(c_longestText));
    case 11:
        return QBitArray(bytes.byte(), true);
    case 12:
        return QVariant::fromValue<void*>(nullptr);
    case 13: {
        QVariant const inner = bytes.byte();
        return {QMetaType::QVariant, &inner};
    }
    default:
        return QVariant::fromValue(static_cast<short>(bytes.byte()));
    }
}

/// One value, as many containers deep as a byte says.
QVariant nested(ByteReader& bytes)
{
    QVariant value = anyNumber(bytes);
    bool const areMaps = bytes.truth();
    for (int left = bytes.byte(); left > 0; --left)
        value = areMaps ? QVariant(QVariantMap{{"values"_s, value}}) : QVariant(QVariantList{value});
    return value;
}

QVariantMap eventValues(ByteReader& bytes)
{
    QVariantMap values;
    values.insert("eventCountNo"_s, bytes.truth() ? anyValue(bytes, 1) : QVariant(bytes.below(4)));
    if (bytes.truth())
        values.insert("error"_s, bytes.truth() ? anyValue(bytes, 1) : QVariant(296 + bytes.below(64)));
    return values;
}

QVariantMap preset(ByteReader& bytes)
{
    QVariantMap values;
    for (auto const& key : {"tcamActm"_s, "torque"_s, "targetAngle"_s}) {
        if (bytes.truth())
            values.insert(key, anyNumber(bytes));
    }
    return values;
}

/// What a controller could reply, or anything.
QMap<QString, QVariant> usualReply(ByteReader& bytes)
{
    switch (bytes.below(8)) {
    case 0:
        return {};
    case 1:
        return {{"doneOk"_s, bytes.truth()}};
    case 2:
        return {{"lockStatus"_s, bytes.below(3)},
                {"fasteningLocked"_s, true},
                {"looseningLocked"_s, bytes.truth()}};
    case 3:
        return {{"presetData"_s, preset(bytes)}};
    case 4:
        return {{"values"_s, eventValues(bytes)}};
    case 5:
        return {{"values"_s, QVariantList{anyValue(bytes, 1)}}};
    case 6:
        return {{"statusData"_s, anyMap(bytes, 1)}};
    default:
        return anyMap(bytes);
    }
}

} // namespace

Q_DECLARE_METATYPE(OfTheHost)

QString anyKey(ByteReader& bytes)
{
    static QStringList const keys{"values"_s,
                                  "doneOk"_s,
                                  "lockStatus"_s,
                                  "presetData"_s,
                                  "fasteningLocked"_s,
                                  "looseningLocked"_s,
                                  "statusData"_s,
                                  "eventCountNo"_s,
                                  "error"_s,
                                  "name"_s,
                                  "serialNumber"_s,
                                  "validityDate"_s,
                                  "toolName"_s,
                                  "toolInfo"_s,
                                  "program"_s,
                                  "locking"_s,
                                  "prog"_s,
                                  "filePath"_s,
                                  "startPreset"_s,
                                  "endPreset"_s,
                                  "loadControllerParams"_s,
                                  "tcamActm"_s,
                                  "torque"_s,
                                  "targetAngle"_s,
                                  "eventData"_s,
                                  "direction"_s,
                                  "orderId"_s,
                                  "lockingData"_s};
    int const choice = bytes.below(static_cast<int>(keys.size()) + 4);
    return choice < keys.size() ? keys[choice] : bytes.text(c_longestText);
}

QVariant anyValue(ByteReader& bytes, int depth)
{
    int const choice = bytes.below(depth < c_deepest ? 15 : 9);
    switch (choice) {
    case 0:
        return bytes.truth();
    case 1:
    case 2:
        return anyNumber(bytes);
    case 3:
    case 4:
        return anyText(bytes);
    case 5:
    case 6:
        return anyNull(bytes);
    case 7:
        return anyOddity(bytes);
    case 8:
        return QStringList{bytes.text(c_longestText), QString::number(bytes.below(2))};
    case 9:
    case 10:
        return anyMap(bytes, depth + 1);
    case 11: {
        QVariantList list;
        for (int left = bytes.below(c_mostItems); left > 0; --left)
            list += anyValue(bytes, depth + 1);
        return list;
    }
    case 12: {
        QVariantHash hash;
        hash.insert(anyKey(bytes), anyValue(bytes, depth + 1));
        return hash;
    }
    case 13:
        return anyJson(bytes, depth);
    default:
        return nested(bytes);
    }
}

QMap<QString, QVariant> anyMap(ByteReader& bytes, int depth)
{
    QMap<QString, QVariant> map;
    for (int left = bytes.below(c_mostItems); left > 0; --left) {
        QString const key = anyKey(bytes);
        map.insert(key, anyValue(bytes, depth));
    }
    return map;
}

QMap<QString, QVariant> anyReply(ByteReader& bytes)
{
    QMap<QString, QVariant> reply = usualReply(bytes);
    switch (bytes.below(6)) {
    case 0:
        if (!reply.isEmpty())
            reply.erase(std::next(reply.begin(), bytes.below(reply.size())));
        break;
    case 1: {
        auto const more = anyMap(bytes);
        for (auto it = more.cbegin(); it != more.cend(); ++it)
            reply.insert(it.key(), *it);
        break;
    }
    default:
        break;
    }
    return reply;
}
