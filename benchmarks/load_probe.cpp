// Loads a plugin library up to the finished catalogue, once, since a process loads a library only once, and
// prints how many nanoseconds that took. Run by callgrind it writes down the instructions under "1 NAME".
//
//   load_probe LIBRARY NAME

#include <plugin_management/d_abstract_plugin.h>

#include <QCoreApplication>
#include <QPluginLoader>
#include <QString>
#include <QUuid>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <valgrind/callgrind.h>

namespace
{

using Tool = std::unique_ptr<DAbstractPlugin>;

// Null for a library without a catalogue. Whatever else keeps the library from being loaded ends the program.
Tool load(QString const& library)
{
    QPluginLoader loader(library);
    QObject* const root = loader.instance();
    if (!root)
        qFatal("%s", qPrintable(loader.errorString()));
    auto const* const plugin = qobject_cast<DAbstractPlugin*>(root);
    if (!plugin)
        return nullptr;
    Tool tool(dynamic_cast<DAbstractPlugin*>(plugin->createInstance(QUuid::createUuid())));
    tool->initPluginCommands();
    return tool;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: load_probe LIBRARY NAME\n", stderr);
        return 2;
    }
    QCoreApplication const application(argc, argv);
    QString const library = QString::fromLocal8Bit(argv[1]);
    std::string const label = std::string("1 ") + argv[2];

    CALLGRIND_ZERO_STATS;
    auto const begin = std::chrono::steady_clock::now();
    Tool const tool = load(library);
    std::chrono::nanoseconds const taken = std::chrono::steady_clock::now() - begin;
    CALLGRIND_DUMP_STATS_AT(label.c_str());

    std::printf("%lld\n", static_cast<long long>(taken.count()));
    return 0;
}
