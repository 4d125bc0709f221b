// Makes files of the workplace out of any bytes and has them read: each is taken, or refused with one line
// that says where and what. The first byte chooses the format.

#include "check.h"
#include "literals.h"
#include "p_tool_vesk_zrt.h"

#include "maintenance/maintenance_records.h"
#include "sequence/sequence.h"
#include "trace/event_json.h"
#include "trace/trace_reader.h"

#include <files/input_error.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <nlohmann/json.hpp>

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUuid>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace
{

/// A complaint quotes a path and a text, each cut off and then perhaps escaped, and names what is known
/// instead.
constexpr int c_longestComplaint = 3000;

/// The file that is read and written, in a folder of its own.
class Scratch
{
public:
    QString const& name() const { return m_name; }

    void write(QByteArray const& content) const
    {
        QFile file(m_name);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
            qFatal("cannot write %s", qPrintable(m_name));
    }
    QByteArray content() const
    {
        QFile file(m_name);
        if (!file.open(QIODevice::ReadOnly))
            qFatal("cannot read %s", qPrintable(m_name));
        return file.readAll();
    }

private:
    QTemporaryDir m_folder;
    QString m_name = m_folder.filePath("file"_s);
};

/// The bytes as a file's text. The first bytes 1 stand for many times the one behind them: for texts and
/// nestings that are longer than a fuzzer's input.
QByteArray contentOf(std::uint8_t const* data, std::size_t size)
{
    constexpr std::uint8_t repeated = 1;
    constexpr int times = 5000;
    int repeatsLeft = 4;
    QByteArray content;
    for (std::size_t i = 0; i < size; ++i) {
        bool const isRepeated = data[i] == repeated && i + 1 < size && repeatsLeft-- > 0;
        i += isRepeated ? 1 : 0;
        content.append(isRepeated ? times : 1, static_cast<char>(data[i]));
    }
    return content;
}

bool breaksTheLine(QChar c)
{
    return c != QLatin1Char('\t')
           && (c.category() == QChar::Other_Control || c.category() == QChar::Separator_Line
               || c.category() == QChar::Separator_Paragraph);
}

void checkComplaint(QString const& complaint, QString const& fileName, QByteArray const& content)
{
    static QRegularExpression const layout("\\A:([0-9]+)(:[0-9]+)?: \\S"_s);
    check(complaint.startsWith(fileName), [&] { return "no file: "_s + complaint; });
    QString const behindName = complaint.mid(fileName.size());
    auto const match = layout.match(behindName);
    check(match.hasMatch(), [&] { return "no place: "_s + complaint; });
    int const line = match.captured(1).toInt();
    check(line >= 1 && line <= content.count('\n') + 1, [&] { return "no such line: "_s + complaint; });
    check(std::none_of(behindName.cbegin(), behindName.cend(), breaksTheLine),
          [&] { return "more than one line: "_s + complaint; });
    check(behindName.size() <= c_longestComplaint,
          [&] { return "%1 characters: "_s.arg(behindName.size()) + complaint; });
}

/// Reads a trace and writes it as it was read; what is written must then read the same.
void readTrace(Scratch const& scratch)
{
    auto const rewritten = [&scratch] {
        TraceReader reader(scratch.name());
        QByteArray lines;
        while (auto const entry = reader.next())
            lines += toLine(toJson(entry->time, entry->event));
        return lines;
    };
    QByteArray const once = rewritten();
    scratch.write(once);
    QByteArray const twice = rewritten();
    check(once == twice, [&] {
        return "another trace when read again:\n%1instead of\n%2"_s.arg(QString::fromUtf8(twice),
                                                                        QString::fromUtf8(once));
    });
}

/// Reads records, and has one edited and saved: the rest of the file must stay.
void readRecords(Scratch const& scratch, QByteArray const& content)
{
    using Json = nlohmann::json;
    MaintenanceRecords records(scratch.name());
    for (auto const& complaint : records.complaints())
        checkComplaint(complaint, scratch.name(), content);
    records.edit("left"_s, {{"serialNumber"_s, "7"_s}});
    try {
        records.save();
    } catch (InputError const& error) {
        // What somebody wrote in a record's place is not written over.
        check(error.message().contains(QLatin1String("is no record")), [&] { return error.message(); });
        check(scratch.content() == content, [] { return "changed though not saved"_s; });
        return;
    }
    Json expected = Json::parse(content.toStdString());
    expected["tools"]["left"]["serialNumber"] = "7";
    QByteArray const saved = scratch.content();
    check(Json::parse(saved.toStdString()) == expected,
          [&] { return "not the edit alone was saved:\n"_s + QString::fromUtf8(saved); });
}

void readSetup(QString const& fileName)
{
    QString problem;
    auto const setup = ZrtSimulatedController::readSetup(fileName, &problem);
    if (!setup)
        throw InputError(problem);
    check(ZrtSimulatedController::create(*setup, ZrtClock()) != nullptr,
          [] { return "a set-up that was read is not valid"_s; });
}

void readBackup(QString const& fileName)
{
    ZrtClock clock;
    auto const controller = ZrtSimulatedController::create({}, clock);
    QVariantMap status;
    controller->post(1, "restoreBackup"_s,
                     {{"filePath"_s, fileName}, {"startPreset"_s, 0}, {"endPreset"_s, 0}},
                     [&status](QVariantMap const& reply) { status = reply.value("statusData"_s).toMap(); });
    while (clock.step()) {
    }
    QString const error = status.value("error"_s).toString();
    if (error.startsWith(fileName))
        throw InputError(error);
    check(!status.isEmpty(), [] { return "a restore without a word"_s; });
}

void readAs(int format, Scratch const& scratch, QByteArray const& content)
{
    static PToolVeskZrt plugin{QUuid()};
    if (plugin.commandNames().isEmpty())
        plugin.initPluginCommands();
    switch (format) {
    case 0:
        static_cast<void>(readSequence(scratch.name(), plugin));
        break;
    case 1:
        readSetup(scratch.name());
        break;
    case 2:
        readBackup(scratch.name());
        break;
    case 3:
        readRecords(scratch, content);
        break;
    default:
        readTrace(scratch);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static Scratch const scratch;
    constexpr int formats = 5;
    if (size == 0)
        return 0;
    QByteArray const content = contentOf(data + 1, size - 1);
    scratch.write(content);
    try {
        readAs(data[0] % formats, scratch, content);
    } catch (InputError const& error) {
        checkComplaint(error.message(), scratch.name(), content);
    }
    return 0;
}
