#pragma once

#include <QList>
#include <QString>
#include <QVariant>

/// A parameter or a result as a command declares it.
struct DDeclaration
{
    QString key;
    /// "ui16" (unsigned 16-bit integer), "int" (signed integer), "bool", "strg" (string), "varM" (map of
    /// string to variant) or "vart" (any variant).
    QString typeTag;
    QString label;
    QVariant defaultValue;
};

/// What a command takes and what it gives, each in the order of declaration.
struct DCommandArguments
{
    QList<DDeclaration> parameters;
    QList<DDeclaration> results;
};
