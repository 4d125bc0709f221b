#pragma once

#include "literals.h"

#include <QMetaEnum>
#include <QMetaMethod>
#include <QMetaObject>
#include <QMetaProperty>
#include <QString>
#include <QStringList>

/// What a meta-object has to say of a property besides its name, type and notifier, all of it.
inline QStringList traitsOf(QMetaProperty const& property)
{
    struct Trait
    {
        bool isSet;
        char const* word;
    };
    Trait const traits[] = {
        {property.isReadable(), "read"},
        {property.isWritable(), "write"},
        {property.isResettable(), "reset"},
        {property.isConstant(), "constant"},
        {property.isFinal(), "final"},
        {property.isRequired(), "required"},
        {property.isUser(), "user"},
        {property.isEnumType(), "enumeration"},
        {property.revision() != 0, "revision"},
        {!property.isDesignable(), "not designable"},
        {!property.isScriptable(), "not scriptable"},
        {!property.isStored(), "not stored"},
    };
    QStringList words;
    for (auto const& trait : traits) {
        if (trait.isSet)
            words += QString::fromLatin1(trait.word);
    }
    return words;
}

/// A method as a line: "public signal void renamed(QString name)". What is unusual about it stands behind.
inline QString lineOf(QMetaMethod const& method)
{
    static char const* const access[] = {"private", "protected", "public"};
    static char const* const kinds[] = {"method", "signal", "slot", "constructor"};
    auto const types = method.parameterTypes();
    auto const names = method.parameterNames();
    QStringList parameters;
    for (int i = 0; i < types.size(); ++i)
        parameters += QString::fromLatin1(types[i] + ' ' + names[i]);
    QString line = "%1 %2 %3 %4(%5)"_s.arg(
        QLatin1String(access[method.access()]), QLatin1String(kinds[method.methodType()]),
        QLatin1String(method.typeName()), QString::fromLatin1(method.name()), parameters.join(", "_s));
    if (method.attributes() != 0)
        line += " attributes %1"_s.arg(method.attributes());
    if (method.revision() != 0)
        line += " revision %1"_s.arg(method.revision());
    if (qstrlen(method.tag()) > 0)
        line += " tag "_s + QString::fromLatin1(method.tag());
    return line;
}

/// Everything that a class itself adds to its meta-object, a line for each entry in the order in which they
/// stand there: properties, methods, enumerations, and what hardly any class has.
inline QStringList ownEntries(QMetaObject const& meta)
{
    QStringList lines;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        QMetaProperty const property = meta.property(i);
        lines += "%1 %2 [%3] notify %4"_s.arg(QLatin1String(property.typeName()),
                                              QLatin1String(property.name()), traitsOf(property).join(", "_s),
                                              QString::fromLatin1(property.notifySignal().methodSignature()));
    }
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        lines += lineOf(meta.method(i));
    for (int i = meta.enumeratorOffset(); i < meta.enumeratorCount(); ++i) {
        QMetaEnum const enumeration = meta.enumerator(i);
        QStringList keys;
        for (int k = 0; k < enumeration.keyCount(); ++k)
            keys += "%1=%2"_s.arg(QLatin1String(enumeration.key(k))).arg(enumeration.value(k));
        lines += "%1 %2 { %3 }"_s.arg(enumeration.isFlag() ? "flags"_s : "enum"_s,
                                      QLatin1String(enumeration.name()), keys.join(", "_s));
    }
    for (int i = meta.classInfoOffset(); i < meta.classInfoCount(); ++i)
        lines += "class info "_s + QLatin1String(meta.classInfo(i).name());
    for (int i = 0; i < meta.constructorCount(); ++i)
        lines += lineOf(meta.constructor(i));
    return lines;
}
