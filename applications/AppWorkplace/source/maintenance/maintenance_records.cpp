#include "maintenance_records.h"

#include <files/atomic_file.h>
#include <files/input_error.h>
#include <files/json_input.h>
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

using Json = nlohmann::ordered_json;

constexpr char const* c_tools = "tools";

bool isText(QVariant const& value)
{
    return value.userType() == QMetaType::QString;
}

bool isCount(QVariant const& value)
{
    return value.userType() == QMetaType::Int && value.toInt() >= 0;
}

/// One field of a record: its key, what a page may set it to, how a file's value goes into the record, and
/// how the record's comes out.
struct Field
{
    QString key;
    char const* kind;
    bool (*fits)(QVariant const& value);
    void (*fromFile)(DElement& record, JsonInput const& value);
    void (*set)(DElement& record, QVariant const& value);
    QVariant (*get)(DElement const& record);
};

QList<Field> const& fields()
{
    static QList<Field> const list{
        {QStringLiteral("serialNumber"), "a text", isText,
         [](DElement& record, JsonInput const& value) { record.setSerialNumber(value.toText()); },
         [](DElement& record, QVariant const& value) { record.setSerialNumber(value.toString()); },
         [](DElement const& record) { return QVariant(record.serialNumber()); }},
        {QStringLiteral("validityDate"), "a text", isText,
         [](DElement& record, JsonInput const& value) {
             if (value.toVariant().isValid())
                 record.setValidityDate(value.toText());
         },
         [](DElement& record, QVariant const& value) {
             // A script does not know a null text; what the page has put into the record does.
             if (record.validityDate() != value.toString())
                 record.setValidityDate(value.toString());
         },
         // Null is a text of its own: the validity that is not set.
         [](DElement const& record) {
             return record.validityDate().isNull() ? QVariant() : QVariant(record.validityDate());
         }},
        {QStringLiteral("alertBeforeExpiration"), "a number of days", isCount,
         [](DElement& record, JsonInput const& value) {
             record.setStbExpiredDelay(static_cast<int>(value.toInteger(0, std::numeric_limits<int>::max())));
         },
         [](DElement& record, QVariant const& value) { record.setStbExpiredDelay(value.toInt()); },
         [](DElement const& record) { return QVariant(record.stbExpiredDelay()); }},
    };
    return list;
}

QStringList fieldKeys()
{
    QStringList keys;
    for (auto const& field : fields())
        keys += field.key;
    return keys;
}

Field const* findField(QString const& key)
{
    for (auto const& field : fields()) {
        if (field.key == key)
            return &field;
    }
    return nullptr;
}

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
    auto const attempt = [this](auto const& action) {
        try {
            action();
            return true;
        } catch (InputError const& error) {
            m_complaints += error.message();
            return false;
        }
    };
    // What is no record has no fields to complain about one by one.
    if (!attempt([&input] { input.keys(); }))
        return;
    attempt([&input] { input.allowKeys(fieldKeys()); });
    for (auto const& field : fields()) {
        attempt([&] {
            if (input.has(field.key))
                field.fromFile(*record, input.at(field.key));
        });
    }
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
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        Field const* const field = findField(it.key());
        if (!field)
            throw InputError(QStringLiteral("maintenance of \"%1\": unknown parameter \"%2\"")
                                 .arg(shown(tool), shown(it.key())));
        if (!field->fits(it.value()))
            throw InputError(QStringLiteral("maintenance of \"%1\": \"%2\" must be %3, not %4 (%5)")
                                 .arg(shown(tool), it.key(), QLatin1String(field->kind),
                                      shown(toText(it.value())), QLatin1String(it.value().typeName())));
    }
    auto const element = record(tool);
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        findField(it.key())->set(*element, it.value());
        m_edited[tool].insert(it.key());
    }
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
        for (auto const& field : fields()) {
            if (it.value().contains(field.key))
                tool[field.key.toStdString()] = toJson(field.get(*m_records.value(it.key())));
        }
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
