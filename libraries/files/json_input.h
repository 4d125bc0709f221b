#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include <map>
#include <memory>
#include <vector>

/// A value of a JSON file together with where it stands. Files are read for people who write them by hand:
/// every complaint is an InputError that names the file, the line and the path of the key.
///
///     JsonInput const root = JsonInput::fromFile(path);
///     root.allowKeys({"identity", "lock"});
///     int const lock = root.has("lock") ? root.at("lock").toInteger(0, 2) : 0;
class JsonInput
{
public:
    /// Larger files and deeper nesting are refused; nothing that a person writes comes near.
    static constexpr qint64 c_maximalSize = 4LL * 1024 * 1024;
    static constexpr int c_maximalDepth = 32;

    /// Reads a whole file. Not JSON, a key that stands twice in one object, and a
    /// file beyond the limits are errors.
    static JsonInput fromFile(QString const& fileName);
    /// As fromFile(), for text that has been read already and begins on this line of its file.
    static JsonInput fromText(QString const& fileName, QByteArray const& text, int firstLine = 1);
    /// What stands in a file; one that cannot be read or is too large is an error. So is a pipe that nobody
    /// has opened to write into within three seconds; any other is read to its end.
    static QByteArray textOf(QString const& fileName);

    /// Invalid, Bool, Int, LongLong, ULongLong, Double, String, List or Map.
    QVariant::Type type() const;
    /// Refuses keys that are not in the list; the value must be an object. The object that is the whole file
    /// may have a "$schema" as well, which editors read.
    void allowKeys(QStringList const& keys) const;
    /// Whether the object has the key; the value must be an object.
    bool has(QString const& key) const;
    /// The value under a key, which must be there.
    JsonInput at(QString const& key) const;
    /// The keys of the object, sorted.
    QStringList keys() const;
    /// The values of a list, in order.
    std::vector<JsonInput> items() const;

    bool toBool() const;
    QString toText() const;
    /// A whole number from @p lowest to @p highest.
    qint64 toInteger(qint64 lowest, qint64 highest) const;
    /// The complaint about a value outside the range.
    static QString notWithin(qint64 lowest, qint64 highest);
    /// The value as it stands: null is invalid; a whole number is an int, where that is too small a qlonglong
    /// or qulonglong; any other number is a double; a list is a QVariantList, an object a QVariantMap.
    QVariant toVariant() const;
    QVariantMap toVariantMap() const;

    /// Complains about this value.
    [[noreturn]] void fail(QString const& what) const;

private:
    struct Node;
    class Builder;

    JsonInput(std::shared_ptr<Node const> root, Node const* node, QString fileName, QString path);

    Node const& ofKind(QVariant::Type kind, char const* expected) const;

    std::shared_ptr<Node const> m_root; // keeps the tree that m_node is part of
    Node const* m_node;
    QString m_fileName;
    QString m_path;
};
