// Writes the table of docs/faults.md: what becomes of an order of each command when one of its instructions
// meets each trouble, and the times at which things happen. Each course is compared with the model; no
// command is known here.

#include "course.h"
#include "literals.h"
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

QString const c_text = "???"_s;

/// How the results differ from the usual ones; the order in which they came is no difference.
QString difference(Course const& course, Course const& usual)
{
    if (course.results.size() != usual.results.size())
        return course.results.size() < usual.results.size() ? "fewer"_s : "more"_s;
    auto left = usual.results;
    for (auto const& result : course.results) {
        auto const same = std::find_if(left.cbegin(), left.cend(), [&result](auto const& one) {
            return one.first == result.first && isSame(one.second, result.second);
        });
        if (same == left.cend())
            return "other"_s;
        left.removeAt(static_cast<int>(same - left.cbegin()));
    }
    return {};
}

/// What becomes of the order, in a few words.
QString outcome(Course const& course, Course const& usual)
{
    QStringList words{"fails"_s};
    if (course.ends.value(0))
        words = QStringList{usual.isListening ? "goes on"_s : "ends"_s, difference(course, usual)};
    if (course.errors > 0)
        words += "logged"_s;
    words.removeAll(QString());
    return words.join(", "_s);
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
        lacks += {{}, Trouble::Changed, [path](QVariantMap const& reply) { return without(reply, path); }};
        wrong +=
            {{}, Trouble::Changed, [path](QVariantMap const& reply) { return with(reply, path, c_text); }};
    }
    columns.append({"a key is missing"_s, lacks});
    columns.append({"a value is a text"_s, wrong});
    return columns;
}

void writeTimes(QTextStream& out)
{
    QStringList pulls;
    for (int const pull : Course::c_pulls)
        pulls += QString::number(pull);
    out << "The trigger is pulled after " << pulls.join(" and "_s)
        << " ms. A listening command is stopped after " << Course::c_stop << " ms.\n"
        << "\"Late\" is " << Course::c_late << " ms later, \"out of order\" " << Course::c_held
        << " ms, \"gone, and back\" from " << Course::c_underway << " ms after the instruction for "
        << Course::c_away << " ms.\n"
        << "\"A text\" is \"" << c_text << "\".\n\n";
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication const application(argc, argv);
    auto const tool = ShippedPlugin().makeInstance(QUuid());
    tool->initPluginCommands();
    QTextStream err(stderr);
    auto const commands = tool->commandNames();
    QString const lacking = ExpectedCommand::complaint(commands);
    if (!lacking.isEmpty()) {
        err << lacking << '\n';
        return 1;
    }
    QStringList complaints;
    TalkHost host([&complaints](QString const& what) { complaints += what; });
    QTextStream out(stdout);
    auto const writeRow = [&out](QStringList const& cells) { out << "| " << cells.join(" | "_s) << " |\n"; };

    writeTimes(out);
    QStringList header{"command"_s, "instruction"_s};
    for (auto const& column : columnsFor({}))
        header += column.first;
    writeRow(header);
    out << '|' << "---|"_s.repeated(header.size()) << '\n';
    for (auto const& command : commands) {
        Course const usual = Course::run(host, *tool, command);
        for (int i = 0; i < usual.sent.size(); ++i) {
            QStringList cells{command, shortForm(usual.sent[i], usual.sent)};
            for (auto const& column : columnsFor(usual.sent[i])) {
                QStringList outcomes;
                for (auto trouble : column.second) {
                    trouble.instruction = i;
                    outcomes += outcome(Course::run(host, *tool, command, trouble), usual);
                }
                outcomes.removeDuplicates();
                outcomes.sort();
                cells += outcomes.join(" / "_s);
            }
            writeRow(cells);
        }
    }
    for (auto const& complaint : qAsConst(complaints))
        err << complaint << '\n';
    return complaints.isEmpty() ? 0 : 1;
}
