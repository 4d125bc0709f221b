#pragma once

#include "literals.h"

#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QtDebug>

/// What a workstation maker does to get the plugin without anything around it.
namespace plugin_alone
{

struct Outcome
{
    bool succeeded = false;
    QByteArray output;
};

/// Runs a program to its end. What the surroundings say about where packages are does not count.
inline Outcome run(char const* program, QStringList const& arguments)
{
    QProcess process;
    auto environment = QProcessEnvironment::systemEnvironment();
    for (auto const& name : {"CMAKE_PREFIX_PATH", "WorkstationSdk_DIR", "WorkstationSdk_ROOT", "DESTDIR"})
        environment.remove(QLatin1String(name));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QString::fromLocal8Bit(program), arguments, QIODevice::ReadOnly);
    bool const ended = process.waitForStarted() && process.waitForFinished(-1);
    bool const succeeded = ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return {succeeded, ended ? process.readAll() : process.errorString().toLocal8Bit()};
}

/// Configures the plugin alone; @p more says, among other things, where the host framework is.
inline Outcome configure(QString const& buildDirectory, QString const& buildType, QStringList const& more)
{
    return run(CMAKE_PROGRAM,
               QStringList{"-S"_s, QStringLiteral(SOURCE_DIR), "-B"_s, buildDirectory, "-G"_s,
                           QStringLiteral(GENERATOR), "-DCMAKE_BUILD_TYPE="_s + buildType,
                           QStringLiteral("-DCMAKE_CXX_COMPILER=" CXX_COMPILER),
                           QStringLiteral("-DCMAKE_INSTALL_LIBDIR=" LIB_DIR),
                           QStringLiteral("-DQt5_DIR=" QT_PACKAGE_DIR), "-DZRT_BUNDLED_SDK=OFF"_s}
                   + more);
}

/// Where install() puts the library.
inline QString library(QString const& prefix)
{
    return prefix + QStringLiteral("/" LIB_DIR "/libp_tool_vesk_zrt.so");
}

/// Configures, builds with warnings as errors, and installs. What the first step that fails has to say is
/// printed.
inline bool install(QString const& buildDirectory, QString const& prefix, QString const& buildType,
                    QStringList const& more)
{
    auto outcome = configure(buildDirectory, buildType, more + QStringList{"-DZRT_WARNINGS_AS_ERRORS=ON"_s});
    if (outcome.succeeded)
        outcome =
            run(CMAKE_PROGRAM, {"--build"_s, buildDirectory, "--config"_s, buildType, "--parallel"_s, "2"_s});
    if (outcome.succeeded)
        outcome = run(CMAKE_PROGRAM,
                      {"--install"_s, buildDirectory, "--config"_s, buildType, "--prefix"_s, prefix});
    if (!outcome.succeeded)
        qWarning("%s", outcome.output.constData());
    return outcome.succeeded && QFileInfo(library(prefix)).isFile();
}

} // namespace plugin_alone
