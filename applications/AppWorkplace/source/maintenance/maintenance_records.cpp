#include "maintenance_records.h"

#include <files/atomic_file.h>
#include <files/input_error.h>
#include <files/json_input.h>
#include <files/object_format.h>
#include <files/variant_json.h>
#include <plugin_management/d_element.h>

#include <QFile>
#include <QFileInfo>
#include <QLockFile>

#include <filesystem>
#include <limits>
#include <system_error>

namespace
{

using namespace format;

constexpr char const* c_tools = "tools";

/// The day until which the maintenance is valid. Null is a text of its own: the validity that is not set.
struct Validity : Text
{
    static void read(JsonInput const& input, QString& value)
    {
        if (input.toVariant().isValid())
            value = input.toText();
    }
    static Json write(QString const& value) { return value.isNull() ? Json() : Text().write(value); }
    static Json schema()
    {
        return {{"type", {"string", "null"}},
                {"pattern", "^([0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01]))?$"}};
    }
};

struct RecordFormat : ObjectFormat<RecordFormat, DElement>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.optional("serialNumber", Property{&DElement::serialNumber, &DElement::setSerialNumber});
        fields.optional("validityDate", Property{&DElement::validityDate, &DElement::setValidityDate},
                        "a day, the empty text for permanent, null for none", Validity());
        fields.optional("alertBeforeExpiration",
                        Property{&DElement::stbExpiredDelay, &DElement::setStbExpiredDelay},
                        "how long before the validity ends an alert is raised",
                        Whole{0, std::numeric_limits<int>::max(), "days"});
    }
};

/// Reads a record, and leaves out what is not right.
struct ReadWhatIsRight : Fields<ReadWhatIsRight, DElement>
{
    JsonInput const& input;
    DElement& record;
    QStringList& complaints;

    template <class Field, class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        attempt([&] { ReadVisitor<DElement>{{}, input, record}.visit(field, place, format); });
    }
    template <class Action> bool attempt(Action const& action)
    {
        try {
            action();
            return true;
        } catch (InputError const& error) {
            complaints += error.message();
            return false;
        }
    }
};

char const* kindOf(QString const& /*value*/)
{
    return "a text";
}
char const* kindOf(int /*value*/)
{
    return "a number of days";
}

/// Takes over one field that a page has edited.
struct Edit : Fields<Edit, DElement>
{
    QString const& tool;
    QString const& key;
    QVariant const& edited;
    DElement* record = nullptr; ///< null: looks only whether the edit can be taken
    bool isKnown = false;

    template <class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        if (key != QLatin1String(field.key))
            return;
        isKnown = true;
        using Value = decltype(valueOf(DElement(), place));
        if (edited.userType() != qMetaTypeId<Value>() || format.problemIn(edited.value<Value>()))
            throw InputError(QStringLiteral("maintenance of \"%1\": \"%2\" must be %3, not %4 (%5)")
                                 .arg(shown(tool), key, QLatin1String(kindOf(Value())), shown(toText(edited)),
                                      QLatin1String(edited.typeName())));
        // A script does not know a null text; what the page has put into the record does.
        if (record && valueOf(*record, place) != edited.value<Value>())
            setValue(*record, place, edited.value<Value>());
    }
};

/// Writes the edited fields into a record of a file.
struct WriteEdited : Fields<WriteEdited, DElement>
{
    DElement const& record;
    QSet<QString> const& edited;
    Json& json;

    template <class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        if (edited.contains(QString::fromLatin1(field.key)))
            json[field.key] = format.write(valueOf(record, place));
    }
};

// The file as it is now, with whatever else somebody wrote into it.
Json contentOf(QString const& fileName)
{
    if (!MaintenanceRecords::areThere(fileName))
        return {{c_tools, Json::object()}};
    QByteArray const text = JsonInput::textOf(fileName);
    // Has the better complaints.
    JsonInput::fromText(fileName, text).at(QLatin1String(c_tools)).keys();
    return Json::parse(text.toStdString());
}

// A program that dies between making the lock and writing into it whose it is leaves one that Qt respects for
// as long as it does that of a program on another computer. The second time it is taken for what it is.
bool take(QLockFile& lock)
{
    constexpr int patience = 1000; // milliseconds
    if (lock.tryLock(patience))
        return true;
    qint64 process = 0;
    QString computer;
    QString program;
    if (!lock.getLockInfo(&process, &computer, &program))
        lock.setStaleLockTime(patience);
    return lock.tryLock(2 * patience);
}

} // namespace

bool MaintenanceRecords::areThere(QString const& fileName)
{
    // A file that cannot be looked at is not one that is missing: it would be written anew, without its
    // content.
    std::error_code problem;
    bool const found = std::filesystem::exists(QFile::encodeName(fileName).constData(), problem);
    if (problem)
        throw InputError(
            QStringLiteral("%1: %2").arg(fileName, QString::fromLocal8Bit(problem.message().c_str())));
    return found;
}

MaintenanceRecords::MaintenanceRecords(QString const& fileName) : m_fileName(fileName)
{
    if (!areThere(fileName))
        return;
    auto const root = JsonInput::fromFile(fileName);
    root.allowKeys({QLatin1String(c_tools)});
    auto const tools = root.at(QLatin1String(c_tools));
    auto const names = tools.keys();
    for (auto const& name : names)
        read(name, tools.at(name));
}

void MaintenanceRecords::read(QString const& tool, JsonInput const& input)
{
    auto const record = QSharedPointer<DElement>::create();
    m_records.insert(tool, record);
    ReadWhatIsRight visitor{{}, input, *record, m_complaints};
    // What is no record has no fields to complain about one by one.
    if (!visitor.attempt([&input] { input.keys(); }))
        return;
    visitor.attempt([&input] { input.allowKeys(RecordFormat::keys()); });
    RecordFormat::fields(visitor);
}

QSharedPointer<DElement> MaintenanceRecords::record(QString const& tool)
{
    auto& record = m_records[tool];
    if (!record)
        record = QSharedPointer<DElement>::create();
    return record;
}

void MaintenanceRecords::edit(QString const& tool, QVariantMap const& parameters)
{
    auto const take = [&](DElement* record) {
        for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
            Edit visitor{{}, tool, it.key(), it.value(), record};
            RecordFormat::fields(visitor);
            if (!visitor.isKnown)
                throw InputError(QStringLiteral("maintenance of \"%1\": unknown parameter \"%2\"")
                                     .arg(shown(tool), shown(it.key())));
        }
    };
    take(nullptr);
    take(record(tool).data());
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
        m_edited[tool].insert(it.key());
}

bool MaintenanceRecords::save()
{
    if (m_edited.isEmpty())
        return false;
    auto const fail = [this](QString const& why) {
        throw InputError(QStringLiteral("%1: the records could not be saved: %2").arg(m_fileName, why));
    };
    // Two programs that save at the same time must not undo each other's edits, by whichever link they know
    // the file.
    QString const target = QFileInfo(m_fileName).canonicalFilePath();
    QString const lockName = (target.isEmpty() ? m_fileName : target) + QStringLiteral(".lock");
    QLockFile lock(lockName);
    if (!take(lock))
        fail(lock.error() == QLockFile::LockFailedError
                 ? QStringLiteral("another program is writing them")
                 : QStringLiteral("%1 cannot be written").arg(lockName));

    Json root;
    try {
        root = contentOf(m_fileName);
    } catch (InputError const& error) {
        throw InputError(QStringLiteral("%1; the records could not be saved").arg(error.message()));
    }
    for (auto it = m_edited.cbegin(); it != m_edited.cend(); ++it) {
        Json& tool = root[c_tools][it.key().toStdString()];
        if (!tool.is_null() && !tool.is_object())
            fail(QStringLiteral("there, \"%1\" is no record").arg(shown(it.key())));
        WriteEdited visitor{{}, *m_records.value(it.key()), it.value(), tool};
        RecordFormat::fields(visitor);
    }

    QByteArray const text = QByteArray::fromStdString(root.dump(4)) + '\n';
    if (text.size() > JsonInput::c_maximalSize)
        fail(QStringLiteral("they would be larger than can be read again"));
    QString const why = replaceFile(m_fileName, text);
    if (!why.isEmpty())
        fail(why);
    m_edited.clear();
    return true;
}

QByteArray maintenanceSchema()
{
    Json const tools{{"type", "object"},
                     {"description", "the records, by the names of the tools"},
                     {"additionalProperties", RecordFormat().schema()}};
    return fileSchemaText(
        {{"type", "object"},
         {"properties", {{c_tools, tools}}},
         {"required", {c_tools}},
         {"additionalProperties", false}},
        "Maintenance records",
        QStringLiteral("docs/maintenance.md describes it. The day must be one that there is. The "
                       "workplace tells what is not right in a record and leaves it as it stands."));
}
