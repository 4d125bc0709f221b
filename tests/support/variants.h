#pragma once

#include "literals.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <QVariant>
#include <QVector>

#include <algorithm>
#include <cmath>

/// Whether two values are the same, in type as well, and in maps and lists too; QVariant's own comparison
/// takes 1 and true for equal. NaN is the same as itself.
inline bool isSame(QVariant const& a, QVariant const& b)
{
    if (a.userType() != b.userType())
        return false;
    switch (a.userType()) {
    case QMetaType::Double:
    case QMetaType::Float:
        return a.toDouble() == b.toDouble() || (std::isnan(a.toDouble()) && std::isnan(b.toDouble()));
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        auto const left = a.toMap();
        auto const right = b.toMap();
        auto const areSame = [](auto const& x, auto const& y) {
            return x.first == y.first && isSame(x.second, y.second);
        };
        // What is shared is mostly large.
        return left.isSharedWith(right)
               || (left.size() == right.size()
                   && std::equal(left.constKeyValueBegin(), left.constKeyValueEnd(),
                                 right.constKeyValueBegin(), areSame));
    }
    case QMetaType::QVariantList: {
        auto const left = a.toList();
        auto const right = b.toList();
        return left.size() == right.size() && std::equal(left.cbegin(), left.cend(), right.cbegin(), isSame);
    }
    default:
        return a == b;
    }
}

/// A value of each kind that a reply may hold by mistake, maps and lists of unusual size included.
inline QVector<QPair<QByteArray, QVariant>> everyKindOfValue()
{
    QVariant nested = 1;
    for (int i = 0; i < 1000; ++i)
        nested = i % 2 == 0 ? QVariant(QVariantList{nested}) : QVariant(QVariantMap{{"x"_s, nested}});
    QVariantMap large;
    for (int i = 0; i < 10'000; ++i)
        large.insert(QString::number(i), i);
    return {
        {"invalid", QVariant()},
        {"null text", QVariant(QString())},
        {"null int", QVariant(QVariant::Int)},
        {"null pointer", QVariant::fromValue(nullptr)},
        {"bool", true},
        {"int", -7},
        {"uint", 7U},
        {"qlonglong", Q_INT64_C(-5'000'000'000)},
        {"qulonglong", Q_UINT64_C(18'446'744'073'709'551'615)},
        {"double", 2.5},
        {"NaN", qQNaN()},
        {"infinity", qInf()},
        {"float", 2.5F},
        {"char", QVariant(QLatin1Char('x'))},
        {"text", "text"_s},
        {"text with zero", QString(QChar(QChar::Null))},
        {"half a character", QString(QChar(0xD800))},
        {"bytes", QByteArray("\xff\x00\x01", 3)},
        {"empty list", QVariantList()},
        {"list", QVariantList{1, "a"_s}},
        {"text list", QStringList{"a"_s, "b"_s}},
        {"empty map", QVariantMap()},
        {"map", QVariantMap{{"a"_s, 1}}},
        {"hash", QVariantHash{{"a"_s, 1}}},
        {"JSON object", QVariant(QJsonObject{{"a"_s, 1}})},
        {"JSON array", QVariant(QJsonArray{1, 2})},
        {"JSON value", QVariant(QJsonValue(true))},
        {"date", QDate(2026, 3, 9)},
        {"date and time", QDateTime(QDate(2026, 3, 9), QTime(14, 5), Qt::UTC)},
        {"url", QUrl("https://example.org/"_s)},
        {"uuid", QUuid("{11111111-2222-4333-8444-555555555555}"_s)},
        {"object pointer", QVariant::fromValue<QObject*>(nullptr)},
        {"void pointer", QVariant::fromValue<void*>(nullptr)},
        {"nested 1000 deep", nested},
        {"map of 10000 entries", large},
    };
}
