// How long a host waits for the plugin: from the library file to the finished catalogue, in a process that
// has just begun, against a plugin of the same linkage that does nothing.

#include "measure.h"

#include <QCoreApplication>
#include <QProcess>
#include <QString>

namespace
{

// What one fresh process says it took, in seconds.
double load(QString const& library, QString const& name)
{
    QProcess probe;
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    probe.start(QStringLiteral(ZRT_LOAD_PROBE), {library, name});
    if (!probe.waitForFinished() || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0)
        qFatal("%s: %s", qPrintable(probe.program()), qPrintable(probe.errorString()));
    bool isNumber = false;
    double const nanoseconds = probe.readAllStandardOutput().simplified().toDouble(&isNumber);
    if (!isNumber)
        qFatal("%s: tells no time", qPrintable(probe.program()));
    return nanoseconds * 1e-9;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    measure::addClocked("load/1/plugin", [] {
        return load(QStringLiteral(ZRT_PLUGIN_FILE), QStringLiteral("load/1/plugin"));
    });
    measure::addClocked("load/1/baseline", [] {
        return load(QStringLiteral(ZRT_EMPTY_PLUGIN_FILE), QStringLiteral("load/1/baseline"));
    });
    return measure::run(argc, argv);
}
