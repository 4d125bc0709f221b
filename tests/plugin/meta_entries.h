#pragma once

#include "literals.h"

#include <QMetaEnum>
#include <QMetaMethod>
#include <QMetaObject>
#include <QMetaProperty>
#include <QString>
#include <QStringList>

/// A property as a line: "int length [read, final] notify lengthChanged()".
inline QString lineOf(QMetaProperty const& property)
{
    QStringList traits;
    auto const add = [&traits](bool isSet, char const* word) {
        if (isSet)
            traits += QString::fromLatin1(word);
    };
    add(property.isReadable(), "read");
    add(property.isWritable(), "write");
    add(property.isResettable(), "reset");
    add(property.isConstant(), "constant");
    add(property.isFinal(), "final");
    add(property.isRequired(), "required");
    add(property.isUser(), "user");
    add(property.isEnumType(), "enumeration");
    add(property.revision() != 0, "revision");
    add(!property.isDesignable(), "not designable");
    add(!property.isScriptable(), "not scriptable");
    add(!property.isStored(), "not stored");
    return "%1 %2 [%3] notify %4"_s.arg(QLatin1String(property.typeName()), QLatin1String(property.name()),
                                        traits.join(", "_s),
                                        QString::fromLatin1(property.notifySignal().methodSignature()));
}

/// A method as a line: "public signal void renamed(QString name)".
inline QString lineOf(QMetaMethod const& method)
{
    static char const* const access[] = {"private", "protected", "public"};
    static char const* const kinds[] = {"method", "signal", "slot", "constructor"};
    auto const types = method.parameterTypes();
    auto const names = method.parameterNames();
    QStringList parameters;
    for (int i = 0; i < types.size(); ++i)
        parameters += QString::fromLatin1(types[i] + ' ' + names[i]);
    QString const line = "%1 %2 %3 %4(%5)"_s.arg(
        QLatin1String(access[method.access()]), QLatin1String(kinds[method.methodType()]),
        QLatin1String(method.typeName()), QString::fromLatin1(method.name()), parameters.join(", "_s));
    return method.revision() == 0 ? line : line + " revision"_s;
}

/// Everything that a class itself adds to its meta-object, a line for each entry in the order in which they
/// stand there.
inline QStringList ownEntries(QMetaObject const& meta)
{
    QStringList lines;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
        lines += lineOf(meta.property(i));
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        lines += lineOf(meta.method(i));
    for (int i = meta.enumeratorOffset(); i < meta.enumeratorCount(); ++i) {
        QMetaEnum const enumeration = meta.enumerator(i);
        QStringList keys;
        for (int k = 0; k < enumeration.keyCount(); ++k)
            keys += "%1=%2"_s.arg(QLatin1String(enumeration.key(k))).arg(enumeration.value(k));
        lines += "enum %1 { %2 }"_s.arg(QLatin1String(enumeration.name()), keys.join(", "_s));
    }
    for (int i = meta.classInfoOffset(); i < meta.classInfoCount(); ++i)
        lines += "class info "_s + QLatin1String(meta.classInfo(i).name());
    for (int i = 0; i < meta.constructorCount(); ++i)
        lines += lineOf(meta.constructor(i));
    return lines;
}

/// The class with its base, and its own entries.
inline QStringList describe(QMetaObject const& meta)
{
    QString const head =
        "class %1 : %2"_s.arg(QLatin1String(meta.className()), QLatin1String(meta.superClass()->className()));
    return QStringList{head} + ownEntries(meta);
}
