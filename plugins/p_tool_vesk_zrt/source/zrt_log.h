#pragma once

#include <QDebug>
#include <QMap>
#include <QString>
#include <QVariant>

class DAbstractPlugin;
class QObject;

/// The plugin's log lines. Field support files problems under the file and the line that an error names.
/// Where such a line has been laid down it is a constant that stays with its error when the code moves.
namespace zrt
{

/// Begins an error line about @p origin: date, thread, object, source file and line. What is streamed into it
/// follows as the message; the line is written when the stream goes.
///
///     zrt::errorLine(*this, __FILE__, c_invalidReplyLine) << "ERROR: Invalid reply format";
QDebug errorLine(QObject const& origin, char const* file, int line);

/// Begins a line of information; what is streamed into it is the line.
QDebug infoLine();

// Traces are for debug builds; in a release build they are nothing, and what
// they would render is not rendered.
#ifdef QT_NO_DEBUG
inline void traceReply(QObject const&, char const*, QMap<QString, QVariant> const&) {}
inline void traceLife(DAbstractPlugin const&, char const*) {}
#else
/// Traces a reply as it reached @p handler.
void traceReply(QObject const& origin, char const* handler, QMap<QString, QVariant> const& reply);
/// Traces the beginning or the end of a plugin object's life.
void traceLife(DAbstractPlugin const& plugin, char const* event);
#endif

} // namespace zrt
