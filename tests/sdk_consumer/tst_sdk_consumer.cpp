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
    QString const domain = QStringLiteral("com.acme");
    return domain == QLatin1String(DEFAULT_MAKER_DOMAIN) ? QStringLiteral("org.acme") : domain;
}

/// The headers that make up the contract between a host and its plugins.
QStringList contractHeaders()
{
    return {
        QStringLiteral("fast_delegate/fast_delegate.h"),
        QStringLiteral("utilities/utilities.h"),
        QStringLiteral("utilities/d_object.h"),
        QStringLiteral("plugin_management/i_plugin.h"),
        QStringLiteral("plugin_management/i_command.h"),
        QStringLiteral("plugin_management/d_abstract_plugin.h"),
        QStringLiteral("plugin_management/d_abstract_tightening_tool.h"),
        QStringLiteral("plugin_management/d_abstract_command.h"),
        QStringLiteral("plugin_management/d_abstract_plugin_backend.h"),
        QStringLiteral("plugin_management/d_element.h"),
    };
}

/// The names of the symbols that a library needs from others, or defines for others.
QStringList symbols(QString const& library, char const* which)
{
    auto const outcome = run(NM_PROGRAM, {QStringLiteral("--dynamic"), QLatin1String(which), library});
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
    void initTestCase();

    void installsContractHeaders_data();
    void installsContractHeaders();
    void buildsPluginAlone();
    void metadataNamesMaker();
    void installsWhatIsBuilt();
    void installedPluginLoads();
    void pluginNeedsContractOnly();
    void sourcesIncludeContractOnly();
    void missingPackageIsTold();
    void simulatedControllerComesAlong();

private:
    static QString path(char const* relative) { return QStringLiteral(FOLDER "/") + QLatin1String(relative); }

    QString m_library;
};

void TestSdkConsumer::initTestCase()
{
    // Only what is built stays from one time to the next, as with any developer, so that it is not built
    // again.
    for (char const* const folder : {"prefix", "build_without"})
        QVERIFY(QDir(path(folder)).removeRecursively());
    m_library = plugin_alone::library(path("prefix"));

    auto const installed = run(CMAKE_PROGRAM, {QStringLiteral("--install"), QStringLiteral(BUILD_DIR),
                                               QStringLiteral("--config"), QStringLiteral(BUILD_CONFIG),
                                               QStringLiteral("--prefix"), path("prefix")});
    QVERIFY2(installed.succeeded, installed.output.constData());
    // The one that came with the framework must not pass for the one that is built here.
    QVERIFY(QFile::remove(m_library));

    QVERIFY(plugin_alone::install(path("build"), path("prefix"), QStringLiteral("Release"),
                                  {QStringLiteral("-DCMAKE_PREFIX_PATH=") + path("prefix"),
                                   QStringLiteral("-DZRT_MAKER_DOMAIN=") + makerDomain()}));
}

void TestSdkConsumer::installsContractHeaders_data()
{
    QTest::addColumn<QString>("header");

    auto const headers = contractHeaders();
    for (auto const& header : headers)
        QTest::newRow(qPrintable(header)) << header;
}

void TestSdkConsumer::installsContractHeaders()
{
    QFETCH(QString, header);
    QVERIFY(QFileInfo(path("prefix/" INCLUDE_DIR "/workstation_sdk/") + header).isFile());
}

void TestSdkConsumer::buildsPluginAlone()
{
    QStringList built;
    for (QDirIterator it(path("build"),
                         {QStringLiteral("*.so"), QStringLiteral("*.a"), QStringLiteral("workplace")},
                         QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        it.next();
        built += it.fileName();
    }
    QCOMPARE(built, QStringList{QStringLiteral("libp_tool_vesk_zrt.so")});
}

void TestSdkConsumer::metadataNamesMaker()
{
    QJsonObject const metadata = QPluginLoader(m_library).metaData();
    QCOMPARE(metadata.value(QStringLiteral("IID")).toString(),
             makerDomain() + QStringLiteral(".rd.box.PToolVeskZrt"));
    QCOMPARE(metadata.value(QStringLiteral("className")).toString(), QStringLiteral("PToolVeskZrt"));
}

void TestSdkConsumer::installsWhatIsBuilt()
{
    // Else what is known of the one, its run path above all, would not hold for the other.
    QFile built(path("build/" LIB_DIR "/libp_tool_vesk_zrt.so"));
    QFile installed(m_library);
    QVERIFY2(built.open(QIODevice::ReadOnly), qPrintable(built.errorString()));
    QVERIFY2(installed.open(QIODevice::ReadOnly), qPrintable(installed.errorString()));
    QVERIFY(built.readAll() == installed.readAll());
}

void TestSdkConsumer::installedPluginLoads()
{
    // A host has the framework already; the plugin looks for it nowhere. This program does not link against
    // it.
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

void TestSdkConsumer::pluginNeedsContractOnly()
{
    QStringList const offered = symbols(path("prefix/" LIB_DIR "/libplugin_management.so"), "--defined-only")
                                + symbols(path("prefix/" LIB_DIR "/libutilities.so"), "--defined-only");
    QStringList needed = symbols(m_library, "--undefined-only");
    QVERIFY(!offered.isEmpty());
    needed.erase(std::remove_if(needed.begin(), needed.end(),
                                [&offered](QString const& symbol) { return !offered.contains(symbol); }),
                 needed.end());
    QVERIFY(!needed.isEmpty());

    // Mangled, a member function is its class and its name, each behind its length.
    QMap<QString, QStringList> const contract{
        {QStringLiteral("IPlugin"), {}},
        {QStringLiteral("ICommand"), {}},
        {QStringLiteral("DAbstractTighteningTool"), {}},
        {QStringLiteral("DObject"), {}},
        {QStringLiteral("DAbstractPlugin"),
         QStringLiteral("objectUuid getName pluginUuid pluginName pluginVersion pluginType compatiblePlugins "
                        "compatibilityString getProperty getFunctions getFunctionDescription "
                        "getCommandParameters setMainConfig getInMainConfig getInPluginConfig "
                        "getDebugIdentification getMainConfig setInPluginConfig setInMainConfig setProperty "
                        "declareInstructionCommand commandNames sigCommandsInitDone")
             .split(QLatin1Char(' '))},
        {QStringLiteral("DAbstractCommand"),
         QStringLiteral(
             "linkWithItsOrder commandName stopCommandName getOrderId getParameterOrderId isRecurrent "
             "isValid description fullDescription commandArguments commandExecute setReply "
             "finishTheCommand sigCommandFinished addInstruction setDescription declareAParameter "
             "declareAResult getParameterValue getParametersSection commandUpdateResult "
             "commandFinish stopTheInstruction")
             .split(QLatin1Char(' '))},
        {QStringLiteral("DAbstractPluginBackend"),
         QStringLiteral("queueTreatment treatmentReleased applyTreatmentReply abstractBackendInitialized "
                        "hasPendingTreatments")
             .split(QLatin1Char(' '))},
        {QStringLiteral("DElement"),
         QStringLiteral("serialNumber validityDate stbExpiredDelay setSerialNumber setValidityDate "
                        "setStbExpiredDelay")
             .split(QLatin1Char(' '))},
    };
    QStringList patterns{QStringLiteral("_Z17versionFromString.*"),
                         QStringLiteral("_Z22convVariantMapToString.*"), QStringLiteral("_Z7getDatev")};
    auto const counted = [](QString const& name) { return QString::number(name.size()) + name; };
    for (auto it = contract.cbegin(); it != contract.cend(); ++it) {
        // Virtual table, type information, constructors and destructors, and what moc adds to a class.
        QStringList members{QStringLiteral("[CD][0-9]"), QStringLiteral("16staticMetaObject"),
                            QStringLiteral("10metaObject"), QStringLiteral("11qt_metacast"),
                            QStringLiteral("11qt_metacall")};
        for (auto const& operation : it.value())
            members += counted(operation);
        patterns += QStringLiteral("_ZT[VIS]%1").arg(counted(it.key()));
        patterns += QStringLiteral("_Z(Thn[0-9]+_)?NK?%1(%2)E.*")
                        .arg(counted(it.key()), members.join(QLatin1Char('|')));
    }
    QRegularExpression const allowed(QRegularExpression::anchoredPattern(
        QLatin1Char('(') + patterns.join(QStringLiteral(")|(")) + QLatin1Char(')')));
    QVERIFY2(allowed.isValid(), qPrintable(allowed.errorString()));
    QStringList beyond;
    for (auto const& symbol : qAsConst(needed)) {
        if (!allowed.match(symbol).hasMatch())
            beyond += symbol;
    }
    QVERIFY2(beyond.isEmpty(), qPrintable(QStringLiteral("The plugin uses what only the stand-in has: ")
                                          + beyond.join(QStringLiteral(", "))));
}

void TestSdkConsumer::sourcesIncludeContractOnly()
{
    QRegularExpression const include(
        QStringLiteral(
            R"re(^\s*#\s*include\s*[<"]([^>"]*\b(?:fast_delegate|utilities|plugin_management)/[^>"]+)[>"])re"),
        QRegularExpression::MultilineOption);
    QStringList const allowed = contractHeaders();
    int includes = 0;
    QStringList beyond;
    for (QDirIterator it(QStringLiteral(SOURCE_DIR "/plugins/p_tool_vesk_zrt"),
                         {QStringLiteral("*.h"), QStringLiteral("*.cpp")}, QDir::Files,
                         QDirIterator::Subdirectories);
         it.hasNext();) {
        QFile file(it.next());
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));
        auto matches = include.globalMatch(QString::fromUtf8(file.readAll()));
        while (matches.hasNext()) {
            QString const header = matches.next().captured(1);
            ++includes;
            if (!allowed.contains(header))
                beyond += QStringLiteral("%1 includes %2").arg(it.fileName(), header);
        }
    }
    QVERIFY(includes > 0);
    QVERIFY2(beyond.isEmpty(), qPrintable(beyond.join(QStringLiteral("; "))));
}

void TestSdkConsumer::missingPackageIsTold()
{
    auto const configured = plugin_alone::configure(path("build_without"), QStringLiteral("Release"), {});
    QVERIFY(!configured.succeeded);
    QString const output = QString::fromLocal8Bit(configured.output).simplified();
    QVERIFY2(output.contains(QStringLiteral("WorkstationSdkConfig.cmake")), qPrintable(output));
    QVERIFY2(output.contains(QStringLiteral("Could not find a package configuration file")),
             qPrintable(output));
}

void TestSdkConsumer::simulatedControllerComesAlong()
{
    QVERIFY(QDir(path("controller")).removeRecursively());
    QString const build = path("build_controller");
    // Not optimised, for it is not run.
    auto const configured = plugin_alone::configure(build, QStringLiteral("Debug"),
                                                    {QStringLiteral("-DCMAKE_PREFIX_PATH=") + path("prefix"),
                                                     QStringLiteral("-DZRT_SIMULATED_CONTROLLER=ON"),
                                                     QStringLiteral("-DZRT_WARNINGS_AS_ERRORS=ON")});
    QVERIFY2(configured.succeeded, configured.output.constData());
    auto const built = run(CMAKE_PROGRAM, {QStringLiteral("--build"), build, QStringLiteral("--target"),
                                           QStringLiteral("zrt_controller"), QStringLiteral("--parallel"),
                                           QStringLiteral("2")});
    QVERIFY2(built.succeeded, built.output.constData());
    auto const installed =
        run(CMAKE_PROGRAM, {QStringLiteral("--install"), build, QStringLiteral("--component"),
                            QStringLiteral("controller"), QStringLiteral("--prefix"), path("controller")});
    QVERIFY2(installed.succeeded, installed.output.constData());
    QVERIFY(QFileInfo(path("controller/" LIB_DIR "/libzrt_controller.so")).isFile());
}

QTEST_GUILESS_MAIN(TestSdkConsumer)
#include "tst_sdk_consumer.moc"
