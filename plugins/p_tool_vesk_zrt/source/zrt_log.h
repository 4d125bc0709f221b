#pragma once

#include <QDebug>
#include <QMap>
#include <QString>
#include <QVariant>

class DAbstractPlugin;
class QObject;

/// The plugin's log lines. Field support files problems under the file and the line that an error names, so a
/// line that has been given out stays with its error when the code moves.
namespace zrt
{

/// Begins an error line about @p origin: date, thread, object, source file and line. What is streamed into it
/// follows as the message; the line is written when the stream goes.
///
///     zrt::errorLine(*this, __FILE__, c_invalidReplyLine) << "ERROR: Invalid reply format";
QDebug errorLine(QObject const& origin, char const* file, int line);

/// Begins a line of information; what is streamed into it is the line.
QDebug infoLine();

/// Traces a reply as it reached @p handler. Release builds have no traces.
#ifdef QT_NO_DEBUG
inline void traceReply(QObject const&, char const*, QMap<QString, QVariant> const&) {}
#else
void traceReply(QObject const& origin, char const* handler, QMap<QString, QVariant> const& reply);
#endif

/// Traces the beginning or the end of a plugin object's life. Release builds have no traces.
#ifdef QT_NO_DEBUG
inline void traceLife(DAbstractPlugin const&, char const*) {}
#else
void traceLife(DAbstractPlugin const& plugin, char const* event);
#endif

} // namespace zrt
