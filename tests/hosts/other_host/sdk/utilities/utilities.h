#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

/// Packs "MAJOR.MINOR" as MAJOR * 1000 + MINOR.
Q_DECL_EXPORT quint64 versionFromString(QString const& text, bool* ok, QChar separator);

/// `{lock: uint 2, preset: QString 7}`, with the type of each value.
Q_DECL_EXPORT QString convVariantMapToString(QMap<QString, QVariant> const& map);

/// Always the same second.
Q_DECL_EXPORT QString getDate();
