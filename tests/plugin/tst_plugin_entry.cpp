#include "shipped_plugin.h"

#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/d_object.h>

#include <QAbstractListModel>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLibrary>
#include <QPointer>
#include <QProcess>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QRegularExpression>
#include <QResource>
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

#ifdef QT_NO_DEBUG
constexpr char c_architecture = 0;
#else
constexpr char c_architecture = 1; // tells a debug build
#endif

QStringList readelf(char const* option)
{
    QProcess process;
    process.start(QStringLiteral(READELF_PROGRAM), {QLatin1String(option), "--wide"_s, c_library});
    if (!process.waitForFinished() || process.exitCode() != 0)
        qFatal("%s", process.readAllStandardError().constData());
    return QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'));
}

/// What a section of the library holds.
QByteArray contentOfSection(QString const& name)
{
    QRegularExpression const layout(
        "\\] %1 +\\S+ +[0-9a-f]+ ([0-9a-f]+) ([0-9a-f]+) "_s.arg(QRegularExpression::escape(name)));
    auto const lines = readelf("--section-headers");
    for (auto const& line : lines) {
        auto const match = layout.match(line);
        if (match.hasMatch())
            return contentOf(c_library).mid(match.captured(1).toInt(nullptr, 16),
                                            match.captured(2).toInt(nullptr, 16));
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

/// The plugin's own files with a function that runs at load, in the order in which they are linked and run.
QStringList filesSetUpAtLoad()
{
    // In the table of symbols, the local ones stand behind the name of their file.
    QStringList files;
    QString file;
    auto const symbols = readelf("--symbols");
    for (auto const& line : symbols) {
        auto const columns = line.simplified().split(QLatin1Char(' '));
        if (columns.value(3) == "FILE"_s)
            file = columns.value(7);
        else if (columns.value(7).startsWith("_GLOBAL__sub_I_"_s))
            files += file;
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

/// What the library is to a program that knows nothing of it yet: its metadata, what stands ready once it is
/// loaded, and its way in.
class TestPluginEntry : public QObject
{
    Q_OBJECT

private slots:
    // The first two need a process into which nothing has loaded the library for good.
    void pageComesAndGoes()
    {
        QVERIFY(!ShippedPlugin::isMapped());
        auto const before = topFolders();
        QVERIFY(!QFile::exists(c_folder));

        QPluginLoader loader(c_library);
        loader.setLoadHints({}); // Qt keeps a library by default
        registeredFormats.clear();
        QVERIFY2(loader.load(), qPrintable(loader.errorString()));
        QCOMPARE(registeredFormats, QList<int>{3});
        QVERIFY(ShippedPlugin::isMapped());
        QCOMPARE(contentOf(c_folder + QLatin1Char('/') + c_page),
                 contentOf(QStringLiteral(MAINTENANCE_PAGE_FILE)));
        auto during = topFolders();
        during.removeOne(c_folder.mid(2));
        QCOMPARE(during, before);

        QVERIFY(loader.unload());
        QVERIFY(!ShippedPlugin::isMapped());
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
        // Every plugin object registers them, and the engine takes them.
        auto const first = ShippedPlugin().makeInstance(QUuid());
        auto const second = ShippedPlugin().makeInstance(QUuid());
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
        QCOMPARE(contentOf(c_library).count("QTMETADATA !"), 1);
        QByteArray const found = contentOfSection(".qtmetadata"_s);
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

    void setUpInOrder()
    {
        QCOMPARE(filesSetUpAtLoad(), (QStringList{"be_maintenance_plugin.cpp"_s, "d_zrt_tool_channel.cpp"_s,
                                                  "qrc_maintenance_panel.cpp"_s}));
    }

    // The host's own classes, and no copies of them.
    void linkedToBases()
    {
        QMap<QByteArray, QMetaObject const*> const bases{
            {"PToolVeskZrt", &DAbstractTighteningTool::staticMetaObject},
            {"BeMaintenanceToolZrt", &DAbstractPluginBackend::staticMetaObject},
            {"DZrtToolChannel", &DObject::staticMetaObject},
            {"OLM_DZrtToolChannel", &QAbstractListModel::staticMetaObject},
        };
        QLibrary library(c_library);
        for (auto const& name : bases.keys()) {
            QByteArray const symbol = "_ZN" + QByteArray::number(name.size()) + name + "16staticMetaObjectE";
            auto const* const meta = reinterpret_cast<QMetaObject const*>(library.resolve(symbol));
            QVERIFY2(meta, qPrintable(library.errorString()));
            QCOMPARE(QByteArray(meta->className()), name);
            QCOMPARE(meta->superClass(), bases[name]);
        }
    }

    void rootInstance()
    {
        QLibrary library(c_library);
        auto const make = reinterpret_cast<QObject* (*)()>(library.resolve("qt_plugin_instance"));
        QVERIFY2(make, qPrintable(library.errorString()));
        // Whoever destroys it gets another one.
        for (int i = 0; i < 2; ++i) {
            QPointer<DAbstractPlugin> const root = qobject_cast<DAbstractPlugin*>(make());
            QVERIFY(root);
            QCOMPARE(make(), root.data());
            QCOMPARE(ShippedPlugin().root(), root.data());
            QCOMPARE(root->metaObject()->className(), "PToolVeskZrt");
            QVERIFY(root->objectUuid().isNull());
            QVERIFY(!root->parent());
            delete root.data();
            QVERIFY(root.isNull());
        }
    }
};

QTEST_GUILESS_MAIN(TestPluginEntry)
#include "tst_plugin_entry.moc"
