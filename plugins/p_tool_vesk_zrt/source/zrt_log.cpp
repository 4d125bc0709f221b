#include "zrt_log.h"

#include <plugin_management/d_abstract_plugin.h>
#include <utilities/utilities.h>

#include <QMessageLogger>
#include <QObject>
#include <QThread>

namespace zrt
{

QDebug errorLine(QObject const& origin, char const* file, int line)
{
    constexpr char const* separator = ";\t";
    QObject const* const thread = QThread::currentThread();
    // The line says itself where it comes from; the logger's own context names no place.
    QDebug stream = QMessageLogger(nullptr, 0, nullptr).critical();
    stream << "\n" << getDate() << separator;
    stream << "Thread =" << thread << separator;
    stream << "This =" << &origin << separator;
    stream << file << separator << line << separator;
    return stream;
}

QDebug infoLine()
{
    return QMessageLogger(nullptr, 0, nullptr).info();
}

#ifndef QT_NO_DEBUG

namespace
{

QString address(void const* object)
{
    return QStringLiteral("0x%1").arg(reinterpret_cast<quintptr>(object), 8, 16, QLatin1Char('0'));
}

} // namespace

void traceReply(QObject const& origin, char const* handler, QMap<QString, QVariant> const& reply)
{
    qDebug().noquote() << origin.metaObject()->className() << address(&origin) << handler
                       << convVariantMapToString(reply);
}

void traceLife(DAbstractPlugin const& plugin, char const* event)
{
    qDebug().noquote() << event << plugin.objectName() << address(&plugin) << plugin.objectUuid().toString()
                       << plugin.pluginName();
}

#endif

} // namespace zrt
