#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

class ByteReader;

/// A key that some command asks for, or any other.
QString anyKey(ByteReader& bytes);

/// A value of any type that a QVariant may hold without a display, containers nested in each other included.
QVariant anyValue(ByteReader& bytes, int depth = 0);

/// Some keys, each with any value.
QMap<QString, QVariant> anyMap(ByteReader& bytes, int depth = 0);

/// The reply that a controller sends to some instruction, with whatever is wrong with it.
QMap<QString, QVariant> anyReply(ByteReader& bytes);
