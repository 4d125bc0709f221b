#include "verbs.h"

#include "maintenance_output.h"
#include "output.h"

#include "host/plugin_library.h"
#include "maintenance/gui_setup.h"
#include "maintenance/maintenance_panel.h"
#include "maintenance/maintenance_records.h"
#include "maintenance/panel_application.h"
#include "trace/event_json.h"

#include <files/atomic_file.h>
#include <files/input_error.h>

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPalette>
#include <QQuickItem>
#include <QQuickItemGrabResult>
#include <QQuickWindow>
#include <QSize>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace
{

struct Options
{
    QString plugin;
    QString tool;
    QString records;
    QString screenshot; ///< empty: a window
    QSize size{1280, 800};
    std::optional<MaintenancePanel::Theme> theme; ///< none: as the desktop has it
    bool json = false;
};

constexpr char const* c_platform = "QT_QPA_PLATFORM";
constexpr char const* c_hint = "; --screenshot FILE makes a picture without one";

// Qt ends the program when it finds no screen; at least it shall say so as everything else is said. Why there
// is none, the first warning about the platform tells; the last word is advice.
void onMessageWithoutScreen(QtMsgType type, QMessageLogContext const& context, QString const& text)
{
    static QString reason;
    bool const isWarning =
        type == QtWarningMsg && QLatin1String(context.category).startsWith(QLatin1String("qt.qpa"));
    if (reason.isEmpty() && (isWarning || type == QtFatalMsg))
        reason = text.section(QLatin1Char('\n'), 0, 0).simplified();
    if (type != QtFatalMsg)
        return;
    std::fprintf(stderr, "workplace: no screen to open a window on: %s%s\n", qUtf8Printable(reason), c_hint);
    std::_Exit(2);
}

std::unique_ptr<QGuiApplication> makeApplication(bool needsScreen, int& argc, char** argv)
{
    if (!needsScreen)
        qputenv(c_platform, "offscreen");
    else if (!qEnvironmentVariableIsSet(c_platform) && qEnvironmentVariableIsEmpty("DISPLAY")
             && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        throw InputError(
            QStringLiteral("no screen to open a window on: DISPLAY is not set%1").arg(QLatin1String(c_hint)));
    auto const former = qInstallMessageHandler(onMessageWithoutScreen);
    auto application = std::make_unique<QGuiApplication>(argc, argv);
    qInstallMessageHandler(former);
    return application;
}

MaintenancePanel::Theme desktopTheme()
{
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128
               ? MaintenancePanel::Theme::Dark
               : MaintenancePanel::Theme::Light;
}

// The default place is made; in any other a folder that is not there is a slip. A pipe would never be read to
// its end.
void checkPlace(QString const& records)
{
    QFileInfo const file(records);
    if (file.exists() && !file.isFile() && !file.isDir())
        throw InputError(QStringLiteral("%1: not a file").arg(records));
    if (records == defaultRecordsFile())
        QDir().mkpath(file.path());
    if (!file.dir().exists())
        throw InputError(QStringLiteral("%1: there is no folder %2").arg(records, file.path()));
}

void takeScreenshot(QQuickWindow& window, QString const& fileName)
{
    // Everything has its place with the first frame.
    auto const shown = QObject::connect(&window, &QQuickWindow::frameSwapped, qApp, &QGuiApplication::quit);
    window.show();
    QGuiApplication::exec();
    QObject::disconnect(shown);
    // The items can be grabbed on every platform, the window's surface cannot.
    auto const grabbed = window.contentItem()->grabToImage();
    QObject::connect(grabbed.data(), &QQuickItemGrabResult::ready, qApp, &QGuiApplication::quit);
    QGuiApplication::exec();
    QBuffer picture;
    picture.open(QIODevice::WriteOnly);
    QString const why = grabbed->image().save(&picture, "PNG") ? replaceFile(fileName, picture.data())
                                                               : QStringLiteral("the page was not drawn");
    if (!why.isEmpty())
        throw InputError(QStringLiteral("%1: the picture could not be written: %2").arg(fileName, why));
}

// "left bench: saved to records.json".
void tell(Options const& options, char const* kind, char const* where, QString const& file, Output& output)
{
    if (options.json)
        output.write(
            toLine({{"kind", kind}, {"tool", options.tool.toStdString()}, {"file", file.toStdString()}}));
    else
        output.write(onOneLine(QStringLiteral("%1: %2 %3 %4")
                                   .arg(options.tool, QLatin1String(kind), QLatin1String(where), file))
                         .toUtf8()
                     + '\n');
}

// Makes the application object, so there must be none.
int panel(Options const& options, int& argc, char** argv)
{
    bool const isPicture = !options.screenshot.isEmpty();
    auto const application = makeApplication(!isPicture, argc, argv);
    PluginLibrary library(options.plugin);
    auto const& plugin = library.plugin();
    checkPlace(options.records);
    if (isPicture && isSameFileAsAny(options.screenshot, {options.records, library.fileName()}))
        throw InputError(
            QStringLiteral("%1: the picture would overwrite what the page needs").arg(options.screenshot));
    MaintenanceRecords records(options.records);
    setUpGui();

    Output output;
    showComplaints(records);
    showMaintenance(records, options.tool, options.json, output);

    PanelApplication pages(records);
    QObject::connect(&pages, &PanelApplication::saved, &pages,
                     [&] { tell(options, "saved", "to", options.records, output); });
    {
        MaintenancePanel page(plugin, options.tool, records, pages, options.theme.value_or(desktopTheme()));
        QQuickWindow& window = page.window();
        window.resize(options.size);
        if (isPicture) {
            takeScreenshot(window, options.screenshot);
            tell(options, "picture", "in", options.screenshot, output);
        } else {
            window.show();
            window.requestActivate(); // where no window manager does
            page.focusFirstField();
            QGuiApplication::exec();
        }
    }
    if (!pages.problem().isEmpty())
        throw InputError(pages.problem());
    output.close();
    return 0;
}

QSize toSize(std::string const& text)
{
    // Smaller than the window's least nothing is readable; larger than this no screen is.
    constexpr QSize smallest(320, 240);
    constexpr QSize largest(8192, 8192);
    auto const sides = QString::fromStdString(text).split(QLatin1Char('x'));
    QSize const size(sides.value(0).toInt(), sides.value(1).toInt());
    bool const fits = size.expandedTo(smallest) == size && size.boundedTo(largest) == size;
    return sides.size() == 2 && fits ? size : QSize();
}

} // namespace

Verb panelVerb(CLI::App& program, std::optional<QCoreApplication>& application, int& argc, char** argv)
{
    auto const options = std::make_shared<Options>();
    options->records = defaultRecordsFile();
    CLI::App& verb = *program.add_subcommand("panel", "Open a tool's maintenance page");
    addText(verb, "--tool", options->tool, "the tool's name", "no name given")->type_name("NAME")->required();
    addText(verb, "--records", options->records,
            "the maintenance records, a JSON file; default " + options->records.toStdString())
        ->type_name("FILE");
    addText(verb, "--screenshot", options->screenshot, "make a picture, PNG, instead of opening a window")
        ->type_name("FILE");
    verb.add_option_function<std::string>(
            "--size", [options](std::string const& text) { options->size = toSize(text); },
            "of the window, 1280x800 if nothing is said")
        ->type_name("WIDTHxHEIGHT")
        ->check(
            [](std::string const& text) {
                return std::string(toSize(text).isValid() ? "" : "not a size from 320x240 to 8192x8192");
            },
            "");
    verb.add_option_function<std::string>(
            "--theme",
            [options](std::string const& name) {
                options->theme =
                    name == "dark" ? MaintenancePanel::Theme::Dark : MaintenancePanel::Theme::Light;
            },
            "light or dark; without it as the desktop has it")
        ->check(CLI::IsMember({"light", "dark"}));
    addPlugin(verb, options->plugin);
    addJson(verb, options->json);
    return {&verb, [options, &application, &argc, argv] {
                application.reset();
                return panel(*options, argc, argv);
            }};
}
