#include "zrt_command.h"

#include "zrt_log.h"

#include <QJsonValue>

#include <cmath>
#include <limits>

namespace zrt
{

int toWhole(QVariant const& value)
{
    constexpr int lowest = std::numeric_limits<int>::min();
    constexpr int highest = std::numeric_limits<int>::max();
    // QVariant::toInt() would round a fraction, and cut the upper bits off a number that is too large.
    switch (value.userType()) {
    case QMetaType::Int:
        return value.toInt();
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::QJsonValue: {
        double const number =
            std::trunc(value.userType() == QMetaType::QJsonValue ? value.toJsonValue().toVariant().toDouble()
                                                                 : value.toDouble());
        return number >= lowest && number <= highest ? static_cast<int>(number) : 0;
    }
    case QMetaType::ULong:
    case QMetaType::ULongLong: {
        qulonglong const number = value.toULongLong();
        return number <= static_cast<qulonglong>(highest) ? static_cast<int>(number) : 0;
    }
    default: {
        qlonglong const number = value.toLongLong();
        return number >= lowest && number <= highest ? static_cast<int>(number) : 0;
    }
    }
}

EventValues readEvent(QObject const& command, char const* file, EventLines lines,
                      QMap<QString, QVariant> const& reply)
{
    auto const values = reply.constFind(QStringLiteral("values"));
    if (values == reply.constEnd()) {
        errorLine(command, file, lines.invalidReply) << c_invalidReply;
        return {std::nullopt, false};
    }
    if (values->type() != QVariant::Map) {
        errorLine(command, file, lines.unmanagedFormat)
            << "ERROR: Reply data format not managed, received type :" << values->typeName()
            << ", values =" << *values;
        return {std::nullopt, true};
    }
    return {values->toMap(), true};
}

} // namespace zrt
