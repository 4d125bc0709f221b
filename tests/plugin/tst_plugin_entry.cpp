#include "literals.h"
#include "scratch_folder.h"
#include "shipped_plugin.h"

#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/d_object.h>

#include <QAbstractListModel>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibrary>
#include <QPointer>
#include <QProcess>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QRegularExpression>
#include <QResource>
#include <QtEndian>
#include <QtTest>

#include <dlfcn.h>

#include <memory>

/// The formats of the resources that libraries register from now on. This stands in front of Qt's own
/// function, which it calls.
static QList<int> registeredFormats;

Q_DECL_EXPORT bool qRegisterResourceData(int format, unsigned char const* tree, unsigned char const* names,
                                         unsigned char const* data);

bool qRegisterResourceData(int format, unsigned char const* tree, unsigned char const* names,
                           unsigned char const* data)
{
    registeredFormats += format;
    auto const qts = reinterpret_cast<decltype(&qRegisterResourceData)>(
        dlsym(RTLD_NEXT, "_Z21qRegisterResourceDataiPKhS0_S0_"));
    return qts(format, tree, names, data);
}

namespace
{

QString const c_library = QStringLiteral(ZRT_PLUGIN_FILE);
QByteArray const c_identifier = QByteArrayLiteral(ZRT_MAKER_DOMAIN ".rd.box.PToolVeskZrt");
QString const c_folder = ":/{fe68f24c-ac43-4833-abc7-7d9f33744448}"_s;
QString const c_page = "maintenance_panel.qml"_s;
QUuid const c_object("{11111111-2222-4333-8444-555555555555}"_s);

#ifdef QT_NO_DEBUG
constexpr char c_architecture = 0;
#else
constexpr char c_architecture = 1; // tells a debug build
#endif

bool isMapped()
{
    return contentOf("/proc/self/maps"_s).contains("libp_tool_vesk_zrt.so");
}

QByteArray outputOf(QString const& program, QStringList const& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        qFatal("%s: %s", qPrintable(program), process.readAllStandardError().constData());
    return process.readAllStandardOutput();
}

QStringList readelf(char const* option)
{
    return QString::fromUtf8(
               outputOf(QStringLiteral(READELF_PROGRAM), {QLatin1String(option), "--wide"_s, c_library}))
        .split(QLatin1Char('\n'));
}

/// Where a section of the library is.
struct Section
{
    quint64 address = 0;
    qint64 offset = 0;
    qint64 size = 0;
};

Section sectionOf(QString const& name)
{
    QRegularExpression const layout(
        "\\] %1 +\\S+ +([0-9a-f]+) ([0-9a-f]+) ([0-9a-f]+) "_s.arg(QRegularExpression::escape(name)));
    auto const lines = readelf("--section-headers");
    for (auto const& line : lines) {
        auto const match = layout.match(line);
        if (match.hasMatch())
            return {match.captured(1).toULongLong(nullptr, 16), match.captured(2).toLongLong(nullptr, 16),
                    match.captured(3).toLongLong(nullptr, 16)};
    }
    return {};
}

// A text in CBOR, up to the length that one byte tells.
QByteArray cborText(QByteArray const& text)
{
    QByteArray const length(1, char(text.size()));
    return (text.size() < 24 ? QByteArray(1, char(0x60 + text.size())) : QByteArray("\x78") + length) + text;
}

QByteArray metaDataBlock()
{
    QByteArray const versions("\x00\x05\x0f", 3); // of the format, and of Qt
    return "QTMETADATA !" + versions + c_architecture + "\xbf" + "\x02" + cborText(c_identifier) + "\x03"
           + cborText("PToolVeskZrt") + "\xff";
}

// Which of the plugin's own files each function that runs at load belongs to, in the order in which they run.
QStringList filesSetUpAtLoad()
{
    // In the table of symbols, the local ones stand behind the name of their file.
    QHash<quint64, QString> fileAt;
    QString file;
    auto const symbols = readelf("--symbols");
    for (auto const& line : symbols) {
        auto const columns = line.simplified().split(QLatin1Char(' '));
        if (columns.value(3) == "FILE"_s)
            file = columns.value(7);
        else if (columns.value(3) == "FUNC"_s && columns.value(7).startsWith("_GLOBAL__sub_I_"_s))
            fileAt.insert(columns.value(1).toULongLong(nullptr, 16), file);
    }

    // The table of these functions is filled in by the dynamic linker, or stands ready in the file.
    QHash<quint64, quint64> filledIn;
    auto const relocations = readelf("--relocs");
    for (auto const& line : relocations) {
        auto const columns = line.simplified().split(QLatin1Char(' '));
        filledIn.insert(columns.first().toULongLong(nullptr, 16), columns.last().toULongLong(nullptr, 16));
    }
    auto const table = sectionOf(".init_array"_s);
    QByteArray const content = contentOf(c_library).mid(int(table.offset), int(table.size));
    QStringList files;
    for (int i = 0; i < content.size(); i += int{sizeof(quint64)}) {
        auto const ready = qFromLittleEndian<quint64>(content.constData() + i);
        auto const function = filledIn.value(table.address + quint64(i), ready);
        if (fileAt.contains(function))
            files += fileAt.value(function);
    }
    return files;
}

QString complaintAbout(QString const& qmlType)
{
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import PlgLibToolZrt 1.0\n" + qmlType.toLatin1() + " {}", QUrl());
    if (component.isError())
        return component.errors().constFirst().description();
    std::unique_ptr<QObject> const object(component.create());
    return QString::fromLatin1(object->metaObject()->className()) == qmlType ? QString() : "other class"_s;
}

QStringList topFolders()
{
    return QDir(":/"_s).entryList(QDir::AllEntries | QDir::Hidden);
}

} // namespace

Q_DECLARE_METATYPE(QMetaObject const*)

/// What the library is to a program that knows nothing of it yet: its metadata, what stands ready once it is
/// loaded, and its way in.
class TestPluginEntry : public QObject
{
    Q_OBJECT

private slots:
    // The first two need a process into which nothing has loaded the library for good.
    void pageComesAndGoes()
    {
        QVERIFY(!isMapped());
        auto const before = topFolders();
        QVERIFY(!QFile::exists(c_folder));

        QPluginLoader loader(c_library);
        loader.setLoadHints({}); // Qt keeps a library by default
        registeredFormats.clear();
        QVERIFY2(loader.load(), qPrintable(loader.errorString()));
        QCOMPARE(registeredFormats, QList<int>{3});
        QVERIFY(isMapped());
        QCOMPARE(contentOf(c_folder + QLatin1Char('/') + c_page),
                 contentOf(QStringLiteral(MAINTENANCE_PAGE_FILE)));
        auto during = topFolders();
        during.removeOne(c_folder.mid(2));
        QCOMPARE(during, before);

        QVERIFY(loader.unload());
        QVERIFY(!isMapped());
        QVERIFY(!QFile::exists(c_folder));
        QCOMPARE(topFolders(), before);
    }

    void qmlTypesComeWithRoot()
    {
        QString const backend = "BeMaintenanceToolZrt"_s;
        QString const channel = "DZrtToolChannel"_s;
        QString const missing = "module \"PlgLibToolZrt\" is not installed"_s;
        QCOMPARE(complaintAbout(backend), missing);
        QPluginLoader loader(c_library);
        QVERIFY(loader.load());
        QCOMPARE(complaintAbout(backend), missing);
        QCOMPARE(complaintAbout(channel), missing);
        QVERIFY(loader.instance());
        QCOMPARE(complaintAbout(backend), QString());
        QCOMPARE(complaintAbout(channel), QString());
        QCOMPARE(complaintAbout("OLM_DZrtToolChannel"_s), "OLM_DZrtToolChannel is not a type"_s);
        QCOMPARE(complaintAbout("PToolVeskZrt"_s), "PToolVeskZrt is not a type"_s);
    }

    void page()
    {
        QLibrary library(c_library);
        QVERIFY(library.load());
        QCOMPARE(QDir(c_folder).entryList(QDir::AllEntries | QDir::Hidden), QStringList{c_page});
        QResource const resource(c_folder + QLatin1Char('/') + c_page);
        QVERIFY(resource.isValid());
        QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
        QCOMPARE(resource.size(), qint64(3036));
        QByteArray const content(reinterpret_cast<char const*>(resource.data()), int(resource.size()));
        QCOMPARE(content, contentOf(QStringLiteral(MAINTENANCE_PAGE_FILE)));
        // As it is, it stands in the library.
        QCOMPARE(contentOf(c_library).count(content), 1);
        // Its date is made of the page, not of when somebody wrote it.
        auto const digits = QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().left(7);
        QCOMPARE(resource.lastModified().toMSecsSinceEpoch(), 1000 * (1 + digits.toLongLong(nullptr, 16)));
    }

    void metaDataBytes()
    {
        QByteArray const content = contentOf(c_library);
        QCOMPARE(content.count("QTMETADATA !"), 1);
        auto const section = sectionOf(".qtmetadata"_s);
        QByteArray const found = content.mid(int(section.offset), int(section.size));
        // The section holds this and nothing else; Clang's sanitizer puts zeros behind each object.
        QByteArray const expected = metaDataBlock();
        QByteArray const zeros(PADS_OBJECTS ? qMax(0, found.size() - expected.size()) : 0, '\0');
        QCOMPARE(found.toHex(' '), (expected + zeros).toHex(' '));
    }

    void metaDataByQuery()
    {
        QLibrary library(c_library);
        auto const query = reinterpret_cast<char const* (*)()>(library.resolve("qt_plugin_query_metadata"));
        QVERIFY2(query, qPrintable(library.errorString()));
        QCOMPARE(QByteArray(query(), metaDataBlock().size()), metaDataBlock());
        QCOMPARE(query(), query());
    }

    void metaDataByLoader()
    {
        auto const metaData = QPluginLoader(c_library).metaData();
        QCOMPARE(metaData.value("IID"_s).toString(), QString::fromLatin1(c_identifier));
        QCOMPARE(metaData.value("className"_s).toString(), "PToolVeskZrt"_s);
        QCOMPARE(metaData.value("debug"_s).toBool(), c_architecture == 1);
        QVERIFY(!metaData.contains("MetaData"_s));
    }

    void metaDataByProgram()
    {
        auto const output = outputOf(QStringLiteral(QTPLUGININFO_PROGRAM), {"--full-json"_s, c_library});
        QCOMPARE(QJsonDocument::fromJson(output).object(),
                 (QJsonObject{{"IID"_s, QString::fromLatin1(c_identifier)},
                              {"className"_s, "PToolVeskZrt"_s},
                              {"archreq"_s, int(c_architecture)},
                              {"debug"_s, c_architecture == 1},
                              {"version"_s, 0x050f00}}));
    }

    void setUpInOrder()
    {
        QCOMPARE(filesSetUpAtLoad(), (QStringList{"be_maintenance_plugin.cpp"_s, "d_zrt_tool_channel.cpp"_s,
                                                  "qrc_maintenance_panel.cpp"_s}));
    }

    void linkedToBases_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QMetaObject const*>("base");

        QTest::newRow("plugin") << QByteArray("PToolVeskZrt") << &DAbstractTighteningTool::staticMetaObject;
        QTest::newRow("backend") << QByteArray("BeMaintenanceToolZrt")
                                 << &DAbstractPluginBackend::staticMetaObject;
        QTest::newRow("channel") << QByteArray("DZrtToolChannel") << &DObject::staticMetaObject;
        QTest::newRow("list model") << QByteArray("OLM_DZrtToolChannel")
                                    << &QAbstractListModel::staticMetaObject;
    }

    void linkedToBases()
    {
        QFETCH(QByteArray, name);
        QFETCH(QMetaObject const*, base);
        QLibrary library(c_library);
        QByteArray const symbol = "_ZN" + QByteArray::number(name.size()) + name + "16staticMetaObjectE";
        auto const* const meta = reinterpret_cast<QMetaObject const*>(library.resolve(symbol));
        QVERIFY2(meta, qPrintable(library.errorString()));
        QCOMPARE(QByteArray(meta->className()), name);
        QCOMPARE(meta->superClass(), base);
    }

    void rootInstance()
    {
        QLibrary library(c_library);
        auto const make = reinterpret_cast<QObject* (*)()>(library.resolve("qt_plugin_instance"));
        QVERIFY2(make, qPrintable(library.errorString()));
        auto* const root = qobject_cast<DAbstractPlugin*>(make());
        QVERIFY(root);
        QCOMPARE(make(), root);
        QCOMPARE(ShippedPlugin().root(), root);
        QCOMPARE(root->metaObject()->className(), "PToolVeskZrt");
        QVERIFY(root->objectUuid().isNull());
        QVERIFY(!root->parent());
    }

    void rootInstanceIsMadeAgain()
    {
        QLibrary library(c_library);
        auto const make = reinterpret_cast<QObject* (*)()>(library.resolve("qt_plugin_instance"));
        QPointer<QObject> const first = make();
        delete first.data();
        QVERIFY(first.isNull());
        auto* const second = qobject_cast<DAbstractPlugin*>(make());
        QVERIFY(second);
        QVERIFY(second->objectUuid().isNull());
        QVERIFY(!second->parent());
        QCOMPARE(make(), second);
        QCOMPARE(ShippedPlugin().root(), second);
    }

    void typesAreRegisteredAgain_data()
    {
        QTest::addColumn<QString>("name");

        QTest::newRow("backend") << "BeMaintenanceToolZrt"_s;
        QTest::newRow("channel") << "DZrtToolChannel"_s;
    }

    void typesAreRegisteredAgain()
    {
        QFETCH(QString, name);
        // Every plugin object registers the types, and the engine takes them.
        auto const first = ShippedPlugin().makeInstance(c_object);
        auto const second = ShippedPlugin().makeInstance(QUuid());
        QCOMPARE(complaintAbout(name), QString());
    }
};

QTEST_GUILESS_MAIN(TestPluginEntry)
#include "tst_plugin_entry.moc"
