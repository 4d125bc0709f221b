// Writes the table of docs/faults.md: what becomes of an order of each command when one of its instructions
// meets each trouble. Each course is compared with the model; no command is known here.

#include "course.h"
#include "shipped_plugin.h"
#include "talk.h"
#include "variants.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <algorithm>

namespace
{

/// What becomes of the order, in a few words.
QString outcome(Course const& course, Course const& usual)
{
    QStringList words{!course.ends.value(0) ? QStringLiteral("fails")
                      : usual.isListening   ? QStringLiteral("goes on")
                                            : QStringLiteral("ends")};
    auto left = usual.results; // those that the course lacks
    for (auto const& result : course.results) {
        auto const same = std::find_if(left.cbegin(), left.cend(), [&result](auto const& one) {
            return one.first == result.first && isSame(one.second, result.second);
        });
        if (same != left.cend())
            left.removeAt(static_cast<int>(same - left.cbegin()));
    }
    if (!course.ends.value(0)) {
        // It is not to be expected that a failed order has results.
    } else if (course.results.size() < usual.results.size()) {
        words += QStringLiteral("fewer");
    } else if (course.results.size() > usual.results.size()) {
        words += QStringLiteral("more");
    } else if (!left.isEmpty()) {
        words += QStringLiteral("other");
    }
    if (course.errors > 0)
        words += QStringLiteral("logged");
    return words.join(QStringLiteral(", "));
}

/// The instruction's name, with its arguments if the order sends several of that name.
QString shortForm(Course::Sent const& instruction, QList<Course::Sent> const& sent)
{
    bool const isOnly =
        std::count_if(sent.cbegin(), sent.cend(),
                      [&instruction](auto const& one) { return one.name == instruction.name; })
        == 1;
    QString text = instruction.name;
    if (!isOnly && !instruction.arguments.isEmpty())
        text += QLatin1Char(' ')
                + QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(instruction.arguments))
                                        .toJson(QJsonDocument::Compact));
    return QLatin1Char('`') + text + QLatin1Char('`');
}

/// The columns: of each trouble its name, and all forms in which it comes.
QVector<QPair<QString, QVector<Trouble>>> columnsFor(Course::Sent const& instruction)
{
    QVector<QPair<QString, QVector<Trouble>>> columns;
    auto const onTheWay = troublesOnTheWay();
    for (auto const& trouble : onTheWay)
        columns.append({trouble.name, {trouble}});
    QVector<Trouble> lacks;
    QVector<Trouble> wrong;
    auto const paths = pathsOf(instruction.replies);
    for (auto const& path : paths) {
        if (path.size() > 1)
            continue;
        lacks += {{},
                  Trouble::Changed,
                  [path](QVariantMap const& reply) { return without(reply, path); },
                  false,
                  0};
        wrong += {{},
                  Trouble::Changed,
                  [path](QVariantMap const& reply) { return with(reply, path, QStringLiteral("???")); },
                  false,
                  0};
    }
    columns.append({QStringLiteral("a key is missing"), lacks});
    columns.append({QStringLiteral("a value is a text"), wrong});
    return columns;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication const application(argc, argv);
    auto const tool = ShippedPlugin().makeInstance(QUuid());
    tool->initPluginCommands();
    QStringList complaints{ExpectedCommand::complaint(tool->commandNames())};
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (!complaints[0].isEmpty()) {
        err << complaints[0] << '\n';
        return 1;
    }
    complaints.clear();
    TalkHost host([&complaints](QString const& what) { complaints += what; });

    bool hasHeader = false;
    auto const commands = tool->commandNames();
    for (auto const& command : commands) {
        Course const usual = Course::run(host, *tool, command);
        for (int i = 0; i < usual.sent.size(); ++i) {
            auto const columns = columnsFor(usual.sent[i]);
            QStringList names{QStringLiteral("command"), QStringLiteral("instruction")};
            QStringList cells{command, shortForm(usual.sent[i], usual.sent)};
            for (auto const& column : columns) {
                names += column.first;
                QStringList outcomes;
                for (auto trouble : column.second) {
                    trouble.instruction = i;
                    outcomes += outcome(Course::run(host, *tool, command, trouble), usual);
                }
                outcomes.removeDuplicates();
                outcomes.sort();
                cells += outcomes.join(QStringLiteral(" / "));
            }
            if (!hasHeader)
                out << "| " << names.join(QStringLiteral(" | ")) << " |\n|"
                    << QStringLiteral("---|").repeated(names.size()) << '\n';
            hasHeader = true;
            out << "| " << cells.join(QStringLiteral(" | ")) << " |\n";
        }
    }
    for (auto const& complaint : qAsConst(complaints))
        err << complaint << '\n';
    return complaints.isEmpty() ? 0 : 1;
}
