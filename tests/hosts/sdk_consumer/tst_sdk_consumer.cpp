#include "literals.h"
#include "plugin_alone.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QLibrary>
#include <QPluginLoader>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

using plugin_alone::run;

namespace
{

/// A maker's domain that is not the one this build was made with.
QString makerDomain()
{
    QString const domain = "com.acme"_s;
    return domain == QLatin1String(DEFAULT_MAKER_DOMAIN) ? "org.acme"_s : domain;
}

/// The headers that make up the contract between a host and its plugins.
QStringList contractHeaders()
{
    return {
        "fast_delegate/fast_delegate.h"_s,
        "utilities/utilities.h"_s,
        "utilities/d_object.h"_s,
        "plugin_management/i_plugin.h"_s,
        "plugin_management/i_command.h"_s,
        "plugin_management/d_abstract_plugin.h"_s,
        "plugin_management/d_abstract_tightening_tool.h"_s,
        "plugin_management/d_abstract_command.h"_s,
        "plugin_management/d_abstract_plugin_backend.h"_s,
        "plugin_management/d_element.h"_s,
    };
}

/// The names of the symbols that a library needs from others, or defines for others.
QStringList symbols(QString const& library, char const* which)
{
    auto const outcome = run(NM_PROGRAM, {"--dynamic"_s, QLatin1String(which), library});
    QStringList names;
    auto const lines = QString::fromLocal8Bit(outcome.output).split(QLatin1Char('\n'));
    for (auto const& line : lines) {
        QString const name = line.section(QLatin1Char(' '), -1);
        if (outcome.succeeded && name.startsWith(QLatin1String("_Z")))
            names += name;
    }
    return names;
}

} // namespace

/// What a workstation maker does: installs the framework and builds the plugin alone against it.
class TestSdkConsumer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // Only what is built stays from one time to the next, as with any developer, so that it is not built
        // again.
        for (char const* const folder : {"prefix", "build_without"})
            QVERIFY(QDir(path(folder)).removeRecursively());
        m_library = plugin_alone::library(path("prefix"));

        auto const installed =
            run(CMAKE_PROGRAM, {"--install"_s, QStringLiteral(BUILD_DIR), "--config"_s,
                                QStringLiteral(BUILD_CONFIG), "--prefix"_s, path("prefix")});
        QVERIFY2(installed.succeeded, installed.output.constData());
        // The one that came with the framework must not pass for the one that is built here.
        QVERIFY(QFile::remove(m_library));

        QVERIFY(plugin_alone::install(
            path("build"), path("prefix"), "Release"_s,
            {"-DCMAKE_PREFIX_PATH="_s + path("prefix"), "-DZRT_MAKER_DOMAIN="_s + makerDomain()}));
    }

    void installsContractHeaders_data()
    {
        QTest::addColumn<QString>("header");

        auto const headers = contractHeaders();
        for (auto const& header : headers)
            QTest::newRow(qPrintable(header)) << header;
    }

    void installsContractHeaders()
    {
        QFETCH(QString, header);
        QVERIFY(QFileInfo(path("prefix/" INCLUDE_DIR "/workstation_sdk/") + header).isFile());
    }

    void buildsPluginAlone()
    {
        QStringList built;
        for (QDirIterator it(path("build"), {"*.so"_s, "*.a"_s, "workplace"_s}, QDir::Files,
                             QDirIterator::Subdirectories);
             it.hasNext();) {
            it.next();
            built += it.fileName();
        }
        QCOMPARE(built, QStringList{"libp_tool_vesk_zrt.so"_s});
    }

    void metadataNamesMaker()
    {
        QJsonObject const metadata = QPluginLoader(m_library).metaData();
        QCOMPARE(metadata.value("IID"_s).toString(), makerDomain() + ".rd.box.PToolVeskZrt"_s);
        QCOMPARE(metadata.value("className"_s).toString(), "PToolVeskZrt"_s);
    }

    void installsWhatIsBuilt()
    {
        // Else what is known of the one, its run path above all, would not hold for the other.
        QFile built(path("build/" LIB_DIR "/libp_tool_vesk_zrt.so"));
        QFile installed(m_library);
        QVERIFY2(built.open(QIODevice::ReadOnly), qPrintable(built.errorString()));
        QVERIFY2(installed.open(QIODevice::ReadOnly), qPrintable(installed.errorString()));
        QVERIFY(built.readAll() == installed.readAll());
    }

    void installedPluginLoads()
    {
        // A host has the framework already; the plugin looks for it nowhere. This program does not link
        // against it.
        for (auto const* const name : {"/libutilities", "/libplugin_management"}) {
            QLibrary framework(path("prefix/" LIB_DIR) + QLatin1String(name));
            QVERIFY2(framework.load(), qPrintable(framework.errorString()));
        }
        QPluginLoader loader(m_library);
        QVERIFY2(loader.load(), qPrintable(loader.errorString()));
        QVERIFY(loader.instance());
        QCOMPARE(loader.instance()->metaObject()->className(), "PToolVeskZrt");
        QVERIFY2(loader.unload(), qPrintable(loader.errorString()));
    }

    void pluginNeedsContractOnly()
    {
        QStringList const offered =
            symbols(path("prefix/" LIB_DIR "/libplugin_management.so"), "--defined-only")
            + symbols(path("prefix/" LIB_DIR "/libutilities.so"), "--defined-only");
        QStringList needed = symbols(m_library, "--undefined-only");
        QVERIFY(!offered.isEmpty());
        needed.erase(std::remove_if(needed.begin(), needed.end(),
                                    [&offered](QString const& symbol) { return !offered.contains(symbol); }),
                     needed.end());
        QVERIFY(!needed.isEmpty());

        // Mangled, a member function is its class and its name, each behind its length.
        QMap<QString, QStringList> const contract{
            {"IPlugin"_s, {}},
            {"ICommand"_s, {}},
            {"DAbstractTighteningTool"_s, {}},
            {"DObject"_s, {}},
            {"DAbstractPlugin"_s,
             "objectUuid getName pluginUuid pluginName pluginVersion pluginType compatiblePlugins "
             "compatibilityString getProperty getFunctions getFunctionDescription "
             "getCommandParameters setMainConfig getInMainConfig getInPluginConfig "
             "getDebugIdentification getMainConfig setInPluginConfig setInMainConfig setProperty "
             "declareInstructionCommand commandNames sigCommandsInitDone"_s.split(QLatin1Char(' '))},
            {"DAbstractCommand"_s,
             "linkWithItsOrder commandName stopCommandName getOrderId getParameterOrderId isRecurrent "
             "isValid description fullDescription commandArguments commandExecute setReply "
             "finishTheCommand sigCommandFinished addInstruction setDescription declareAParameter "
             "declareAResult getParameterValue getParametersSection commandUpdateResult "
             "commandFinish stopTheInstruction"_s.split(QLatin1Char(' '))},
            {"DAbstractPluginBackend"_s,
             "queueTreatment treatmentReleased applyTreatmentReply abstractBackendInitialized "
             "hasPendingTreatments"_s.split(QLatin1Char(' '))},
            {"DElement"_s, "serialNumber validityDate stbExpiredDelay setSerialNumber setValidityDate "
                           "setStbExpiredDelay"_s.split(QLatin1Char(' '))},
        };
        QStringList patterns{"_Z17versionFromString.*"_s, "_Z22convVariantMapToString.*"_s, "_Z7getDatev"_s};
        auto const counted = [](QString const& name) { return QString::number(name.size()) + name; };
        for (auto it = contract.cbegin(); it != contract.cend(); ++it) {
            // Virtual table, type information, constructors and destructors, and what moc adds to a class.
            QStringList members{"[CD][0-9]"_s, "16staticMetaObject"_s, "10metaObject"_s, "11qt_metacast"_s,
                                "11qt_metacall"_s};
            for (auto const& operation : it.value())
                members += counted(operation);
            patterns += "_ZT[VIS]%1"_s.arg(counted(it.key()));
            patterns +=
                "_Z(Thn[0-9]+_)?NK?%1(%2)E.*"_s.arg(counted(it.key()), members.join(QLatin1Char('|')));
        }
        QRegularExpression const allowed(QRegularExpression::anchoredPattern(
            QLatin1Char('(') + patterns.join(")|("_s) + QLatin1Char(')')));
        QVERIFY2(allowed.isValid(), qPrintable(allowed.errorString()));
        QStringList beyond;
        for (auto const& symbol : qAsConst(needed)) {
            if (!allowed.match(symbol).hasMatch())
                beyond += symbol;
        }
        QVERIFY2(beyond.isEmpty(),
                 qPrintable("The plugin uses what only the stand-in has: "_s + beyond.join(", "_s)));
    }

    void sourcesIncludeContractOnly()
    {
        QRegularExpression const include(
            "^\\s*#\\s*include\\s*[<\"]([^>\"]*\\b(?:fast_delegate|utilities|plugin_management)/[^>\"]+)[>\"]"_s,
            QRegularExpression::MultilineOption);
        QStringList const allowed = contractHeaders();
        int includes = 0;
        QStringList beyond;
        for (QDirIterator it(QStringLiteral(SOURCE_DIR "/plugins/p_tool_vesk_zrt"), {"*.h"_s, "*.cpp"_s},
                             QDir::Files, QDirIterator::Subdirectories);
             it.hasNext();) {
            QFile file(it.next());
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));
            auto matches = include.globalMatch(QString::fromUtf8(file.readAll()));
            while (matches.hasNext()) {
                QString const header = matches.next().captured(1);
                ++includes;
                if (!allowed.contains(header))
                    beyond += "%1 includes %2"_s.arg(it.fileName(), header);
            }
        }
        QVERIFY(includes > 0);
        QVERIFY2(beyond.isEmpty(), qPrintable(beyond.join("; "_s)));
    }

    void missingPackageIsTold()
    {
        auto const configured = plugin_alone::configure(path("build_without"), "Release"_s, {});
        QVERIFY(!configured.succeeded);
        QString const output = QString::fromLocal8Bit(configured.output).simplified();
        QVERIFY2(output.contains("WorkstationSdkConfig.cmake"_s), qPrintable(output));
        QVERIFY2(output.contains("Could not find a package configuration file"_s), qPrintable(output));
    }

    void simulatedControllerComesAlong()
    {
        QVERIFY(QDir(path("controller")).removeRecursively());
        QString const build = path("build_controller");
        // Not optimised, for it is not run.
        auto const configured =
            plugin_alone::configure(build, "Debug"_s,
                                    {"-DCMAKE_PREFIX_PATH="_s + path("prefix"),
                                     "-DZRT_SIMULATED_CONTROLLER=ON"_s, "-DZRT_WARNINGS_AS_ERRORS=ON"_s});
        QVERIFY2(configured.succeeded, configured.output.constData());
        auto const built =
            run(CMAKE_PROGRAM, {"--build"_s, build, "--target"_s, "zrt_controller"_s, "--parallel"_s, "2"_s});
        QVERIFY2(built.succeeded, built.output.constData());
        auto const installed = run(CMAKE_PROGRAM, {"--install"_s, build, "--component"_s, "controller"_s,
                                                   "--prefix"_s, path("controller")});
        QVERIFY2(installed.succeeded, installed.output.constData());
        QVERIFY(QFileInfo(path("controller/" LIB_DIR "/libzrt_controller.so")).isFile());
    }

private:
    static QString path(char const* relative) { return QStringLiteral(FOLDER "/") + QLatin1String(relative); }

    QString m_library;
};

QTEST_GUILESS_MAIN(TestSdkConsumer)
#include "tst_sdk_consumer.moc"
