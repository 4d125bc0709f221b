#include "zrt_command.h"

#include "zrt_log.h"

#include <cmath>
#include <limits>

namespace zrt
{

int toWhole(QVariant const& value)
{
    if (value.userType() != QMetaType::Double && value.userType() != QMetaType::Float)
        return value.toInt();
    double const whole = std::trunc(value.toDouble());
    // NaN fails both comparisons.
    bool const fits = whole >= std::numeric_limits<int>::min() && whole <= std::numeric_limits<int>::max();
    return fits ? static_cast<int>(whole) : 0;
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
