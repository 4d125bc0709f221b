#pragma once

#include <utilities/export.h>

#include <QChar>
#include <QMap>
#include <QString>
#include <QVariant>

/// Packs a version text into one number that orders as versions do.
///
/// One to four decimal components of 0 to 65535 stand in 16 bits each, the first highest: "1.0" is
/// 0x0001000000000000, as are "1" and "1.0.0". Any other text (empty, signs, blanks, letters, a component too
/// many or too large) gives 0. @p ok, where given, tells whether the text was good.
UTILITIES_EXPORT quint64 versionFromString(QString const& text, bool* ok = nullptr,
                                           QChar separator = QLatin1Char('.'));

/// The text of a number that versionFromString() made: two components, or as many
/// as are needed to lose nothing.
UTILITIES_EXPORT QString versionToString(quint64 version);

/// Renders a map for a trace on one line, keys in order, containers nested to a bounded depth:
/// `{"doneOk": true, "values": {"count": 5}}`. Line breaks and other control characters are shown as \u000a,
/// a value that has no text as `<type name>`.
UTILITIES_EXPORT QString convVariantMapToString(QMap<QString, QVariant> const& map);

/// The current date and time, "2026-03-09 14:05:59.120" in local time or as setDateSource() gives it; the
/// first field of every log line.
UTILITIES_EXPORT QString getDate();
