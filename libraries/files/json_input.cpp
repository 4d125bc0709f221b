#include "json_input.h"

#include "input_error.h"
#include "pipe.h"

#include <QFile>
#include <QRegularExpression>

#include <nlohmann/json.hpp>

#include <climits>
#include <iterator>
#include <limits>
#include <utility>

struct JsonInput::Node
{
    int line = 1;
    /// A scalar's value; for lists and objects only the type counts.
    QVariant value;
    std::vector<Node> items;
    std::map<QString, Node> members;
};

namespace
{

// Counts lines while the parser reads on.
struct LineCounter
{
    LineCounter(QByteArray const& whole, int firstLine)
        : text(whole)
        , first(firstLine)
        , line(firstLine)
        , previous(firstLine)
    {}

    /// The parser takes a NUL byte for the end of the file; nothing else does.
    bool isAtNul() const { return read > 0 && text[read - 1] == '\0'; }
    QString nulPlace() const
    {
        return QStringLiteral("%1:%2").arg(QString::number(line),
                                           QString::number(read - 1 - text.lastIndexOf('\n', read - 1)));
    }

    QByteArray const& text;
    int const first;
    int read = 0; ///< characters
    int line;
    /// Before the last character that was read: a number ends only with the character behind it.
    int previous;
};

class CountingIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = char const*;
    using reference = char const&;

    CountingIterator(char const* position, LineCounter* counter) : m_position(position), m_counter(counter) {}

    reference operator*() const { return *m_position; }
    CountingIterator& operator++()
    {
        ++m_counter->read;
        m_counter->previous = m_counter->line;
        m_counter->line += *m_position == '\n' ? 1 : 0;
        ++m_position;
        return *this;
    }
    CountingIterator operator++(int)
    {
        CountingIterator const before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(CountingIterator const& a, CountingIterator const& b)
    {
        return a.m_position == b.m_position;
    }
    friend bool operator!=(CountingIterator const& a, CountingIterator const& b) { return !(a == b); }

private:
    char const* m_position;
    LineCounter* m_counter;
};

QString located(QString const& fileName, int line, QString const& path, QString const& what)
{
    QString const place = QStringLiteral("%1:%2: ").arg(fileName, QString::number(line));
    return place + (path.isEmpty() ? what : shown(path) + QStringLiteral(": ") + what);
}

QString memberPath(QString const& parent, QString const& key)
{
    return parent.isEmpty() ? key : parent + QLatin1Char('.') + key;
}

QString itemPath(QString const& parent, std::size_t index)
{
    return QStringLiteral("%1[%2]").arg(parent, QString::number(index));
}

char const* kindOf(QVariant const& value)
{
    switch (value.type()) {
    case QVariant::Invalid:
        return "null";
    case QVariant::Bool:
        return "a truth value";
    case QVariant::String:
        return "a text";
    case QVariant::List:
        return "a list";
    case QVariant::Map:
        return "an object";
    default:
        return "a number";
    }
}

} // namespace

// Takes what the parser finds and builds the tree; the functions' names are the parser's.
class JsonInput::Builder : public nlohmann::json_sax<nlohmann::json>
{
public:
    Builder(QString fileName, LineCounter const& counter)
        : m_fileName(std::move(fileName))
        , m_counter(counter)
    {}

    Node root;

    [[noreturn]] void refuseNul() const
    {
        throw InputError(QStringLiteral("%1:%2: not JSON: NUL byte").arg(m_fileName, m_counter.nulPlace()));
    }

    bool null() override { return add({}, m_counter.line); }
    bool boolean(bool value) override { return add(value, m_counter.line); }
    bool number_integer(number_integer_t value) override
    {
        if (value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max())
            return add(static_cast<int>(value), m_counter.previous);
        return add(static_cast<qlonglong>(value), m_counter.previous);
    }
    bool number_unsigned(number_unsigned_t value) override
    {
        if (value <= static_cast<number_unsigned_t>(std::numeric_limits<qlonglong>::max()))
            return number_integer(static_cast<number_integer_t>(value));
        return add(static_cast<qulonglong>(value), m_counter.previous);
    }
    bool number_float(number_float_t value, string_t const& /*text*/) override
    {
        return add(value, m_counter.previous);
    }
    bool string(string_t& value) override { return add(QString::fromStdString(value), m_counter.line); }
    bool binary(binary_t& /*value*/) override { return false; } // JSON text has none
    bool start_object(std::size_t /*size*/) override { return open(QVariantMap()); }
    bool end_object() override { return close(); }
    bool start_array(std::size_t /*size*/) override { return open(QVariantList()); }
    bool end_array() override { return close(); }

    bool key(string_t& value) override
    {
        m_key = QString::fromStdString(value);
        if (m_open.back().node->members.count(m_key) != 0)
            throw InputError(
                located(m_fileName, m_counter.line, m_open.back().path,
                        QStringLiteral("the key \"%1\" stands twice in one object").arg(shown(m_key))));
        return true;
    }

    bool parse_error(std::size_t /*position*/, std::string const& /*token*/,
                     nlohmann::json::exception const& error) override
    {
        static QRegularExpression const placed(QStringLiteral(R"(line (\d+), column (\d+): (.*)$)"));
        QString const text = QString::fromUtf8(error.what());
        if (m_counter.isAtNul() && text.contains(QLatin1String("unexpected end of input")))
            refuseNul();
        auto const match = placed.match(text);
        if (!match.hasMatch()) // a number too large for a double has no place
            throw InputError(
                located(m_fileName, m_counter.previous, {},
                        QStringLiteral("not usable JSON: ") + shown(text.section(QLatin1String("] "), 1))));
        if (match.captured(2)
            == QLatin1String("0")) // a line break where none may be: at the end of the line before
            throw InputError(located(m_fileName, m_counter.previous, {},
                                     QStringLiteral("not JSON: ") + shown(match.captured(3))));
        throw InputError(QStringLiteral("%1:%2:%3: not JSON: %4")
                             .arg(m_fileName,
                                  QString::number(m_counter.first + match.captured(1).toInt() - 1),
                                  match.captured(2), shown(match.captured(3))));
    }

private:
    Node* place(QVariant const& value, int line)
    {
        Node node;
        node.line = line;
        node.value = value;
        if (m_open.empty()) {
            root = std::move(node);
            return &root;
        }
        Node& parent = *m_open.back().node;
        if (parent.value.type() == QVariant::Map)
            return &(parent.members[m_key] = std::move(node));
        parent.items.push_back(std::move(node));
        return &parent.items.back();
    }
    bool add(QVariant const& value, int line)
    {
        place(value, line);
        return true;
    }
    bool open(QVariant const& empty)
    {
        if (static_cast<int>(m_open.size()) == c_maximalDepth)
            throw InputError(located(m_fileName, m_counter.line, m_open.front().path,
                                     QStringLiteral("nested deeper than %1 levels").arg(c_maximalDepth)));
        QString path;
        if (!m_open.empty()) {
            Open const& parent = m_open.back();
            path = parent.node->value.type() == QVariant::Map
                       ? memberPath(parent.path, m_key)
                       : itemPath(parent.path, parent.node->items.size());
        }
        m_open.push_back({place(empty, m_counter.line), path});
        return true;
    }
    bool close()
    {
        m_open.pop_back();
        return true;
    }

    QString m_fileName;
    LineCounter const& m_counter;
    struct Open
    {
        Node* node;
        QString path;
    };
    std::vector<Open> m_open; // the chain of lists and objects being read; a parent does not grow meanwhile
    QString m_key;
};

JsonInput::JsonInput(std::shared_ptr<Node const> root, Node const* node, QString fileName, QString path)
    : m_root(std::move(root))
    , m_node(node)
    , m_fileName(std::move(fileName))
    , m_path(std::move(path))
{}

JsonInput JsonInput::fromFile(QString const& fileName)
{
    return fromText(fileName, textOf(fileName));
}

QByteArray JsonInput::textOf(QString const& fileName)
{
    if (fileName.isEmpty())
        throw InputError(QStringLiteral("the name of the file is empty"));
    QFile file(fileName);
    bool const isAPipe = isPipe(fileName);
    QString problem;
    if (isAPipe)
        problem = openPipe(file, QIODevice::ReadOnly);
    else if (!file.open(QIODevice::ReadOnly))
        problem = file.errorString();
    if (!problem.isEmpty()) // a name that is too long for a file may be megabytes
        throw InputError(
            QStringLiteral("%1: %2").arg(fileName.size() > PATH_MAX ? shown(fileName) : fileName, problem));
    QByteArray text = file.read(c_maximalSize + 1);
    if (file.error() != QFileDevice::NoError)
        throw InputError(QStringLiteral("%1: %2").arg(fileName, file.errorString()));
    if (text.size() > c_maximalSize)
        throw InputError(
            QStringLiteral("%1: larger than %2 MiB").arg(fileName, QString::number(c_maximalSize >> 20)));
    if (isAPipe && text.isEmpty())
        throw InputError(QStringLiteral("%1: nobody writes into this pipe").arg(fileName));
    return text;
}

JsonInput JsonInput::fromText(QString const& fileName, QByteArray const& text, int firstLine)
{
    LineCounter counter(text, firstLine);
    Builder builder(fileName, counter);
    nlohmann::json::sax_parse(CountingIterator(text.cbegin(), &counter),
                              CountingIterator(text.cend(), &counter), &builder);
    if (counter.isAtNul())
        builder.refuseNul();
    auto const root = std::make_shared<Node const>(std::move(builder.root));
    return {root, root.get(), fileName, QString()};
}

QVariant::Type JsonInput::type() const
{
    return m_node->value.type();
}

void JsonInput::allowKeys(QStringList const& keys) const
{
    for (auto const& [key, node] : ofKind(QVariant::Map, "an object").members) {
        if (m_path.isEmpty() && key == QLatin1String("$schema"))
            at(key).toText();
        else if (!keys.contains(key))
            JsonInput(m_root, &node, m_fileName, m_path)
                .fail(QStringLiteral("unknown key \"%1\", known are %2")
                          .arg(shown(key), keys.join(QStringLiteral(", "))));
    }
}

bool JsonInput::has(QString const& key) const
{
    return ofKind(QVariant::Map, "an object").members.count(key) != 0;
}

JsonInput JsonInput::at(QString const& key) const
{
    auto const& members = ofKind(QVariant::Map, "an object").members;
    auto const it = members.find(key);
    if (it == members.end())
        fail(QStringLiteral("the key \"%1\" is missing").arg(key));
    return {m_root, &it->second, m_fileName, memberPath(m_path, key)};
}

QStringList JsonInput::keys() const
{
    QStringList names;
    for (auto const& member : ofKind(QVariant::Map, "an object").members)
        names += member.first;
    return names;
}

std::vector<JsonInput> JsonInput::items() const
{
    std::vector<JsonInput> list;
    for (auto const& item : ofKind(QVariant::List, "a list").items)
        list.push_back(JsonInput(m_root, &item, m_fileName, itemPath(m_path, list.size())));
    return list;
}

bool JsonInput::toBool() const
{
    return ofKind(QVariant::Bool, "true or false").value.toBool();
}

QString JsonInput::toText() const
{
    return ofKind(QVariant::String, "a text").value.toString();
}

qint64 JsonInput::toInteger(qint64 lowest, qint64 highest) const
{
    qint64 const number = m_node->value.toLongLong();
    if ((type() != QVariant::Int && type() != QVariant::LongLong) || number < lowest || number > highest)
        fail(notWithin(lowest, highest));
    return number;
}

QString JsonInput::notWithin(qint64 lowest, qint64 highest)
{
    return QStringLiteral("must be a whole number from %1 to %2").arg(lowest).arg(highest);
}

QVariant JsonInput::toVariant() const
{
    if (type() == QVariant::Map)
        return toVariantMap();
    if (type() != QVariant::List)
        return m_node->value;
    QVariantList list;
    for (auto const& item : items())
        list += item.toVariant();
    return list;
}

QVariantMap JsonInput::toVariantMap() const
{
    QVariantMap map;
    auto const names = keys();
    for (auto const& key : names)
        map.insert(key, at(key).toVariant());
    return map;
}

void JsonInput::fail(QString const& what) const
{
    throw InputError(located(m_fileName, m_node->line, m_path, what));
}

JsonInput::Node const& JsonInput::ofKind(QVariant::Type kind, char const* expected) const
{
    if (type() != kind)
        fail(QStringLiteral("must be %1, not %2")
                 .arg(QLatin1String(expected), QLatin1String(kindOf(m_node->value))));
    return *m_node;
}
