#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"

#include "host/plugin_library.h"

#include <plugin_management/d_abstract_plugin.h>

#include <QtTest>

namespace
{

QString const pluginFile = QStringLiteral(ZRT_PLUGIN_FILE);
QString const c_otherInterface = QStringLiteral(ODD_INTERFACE_FILE);

bool isMapped(QString const& fileName)
{
    return contentOf("/proc/self/maps"_s).contains(QFileInfo(fileName).canonicalFilePath().toUtf8());
}

QString complaintAbout(QString const& path)
{
    return complaintOf([&path] { PluginLibrary const library(path); });
}

} // namespace

/// Plugin libraries on disk: finding them, looking at them, loading them.
class TestPluginLibrary : public QObject
{
    Q_OBJECT

private slots:
    // Comes first: nothing may have loaded the library before.
    void lookingRunsNothing()
    {
        PluginLibrary const library(pluginFile);
        QCOMPARE(library.fileName(), QFileInfo(pluginFile).absoluteFilePath());
        QCOMPARE(library.interfaceIdentifier(), QStringLiteral(ZRT_MAKER_DOMAIN ".rd.box.PToolVeskZrt"));
        QCOMPARE(library.className(), "PToolVeskZrt"_s);
        QCOMPARE(library.qtVersion(), "5.15"_s);
        QVERIFY(!isMapped(pluginFile));
    }

    void loading()
    {
        QPointer<QObject> root;
        {
            PluginLibrary library(pluginFile);
            root = &library.plugin();
            QVERIFY(isMapped(pluginFile));
            QCOMPARE(library.plugin().pluginName(), "Plugin Tool ZRT"_s);
            QCOMPARE(&library.plugin(), root.data());
        }
        QVERIFY(root.isNull());
        // What it has registered with QML, and texts of it, may still be about.
        QVERIFY(isMapped(pluginFile));
    }

    void relativePath()
    {
        QString const before = QDir::currentPath();
        QFileInfo const info(pluginFile);
        QVERIFY(QDir::setCurrent(info.absolutePath()));
        QString const fileName = PluginLibrary(info.fileName()).fileName();
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(fileName, info.absoluteFilePath());
    }

    // Neither its name nor what else is there matters.
    void folderWithOne()
    {
        ScratchFolder const folder;
        folder.write("a.so"_s, "no library");
        folder.write("b.txt"_s, m_library);
        QVERIFY(QFile::copy(c_otherInterface, folder.filePath("c.so"_s)));
        QCOMPARE(QProcess::execute("mkfifo"_s, {folder.filePath("pipe.so"_s)}), 0);
        QVERIFY(QFile::link(folder.filePath("nowhere"_s), folder.filePath("link.so"_s)));
        QString const expected = folder.write("d.so"_s, m_library);
        PluginLibrary library(folder.path());
        QCOMPARE(library.fileName(), expected);
        QCOMPARE(library.plugin().pluginName(), "Plugin Tool ZRT"_s);
        QCOMPARE(PluginLibrary(folder.path() + QLatin1Char('/')).fileName(), expected);
    }

    void folderWithNone()
    {
        ScratchFolder const folder;
        QVERIFY(QFile::copy(c_otherInterface, folder.filePath("other.so"_s)));
        QVERIFY(QDir(folder.path()).mkdir("deeper.so"_s));
        folder.write("deeper.so/library.so"_s, m_library);
        QCOMPARE(complaintAbout(folder.path()),
                 folder.path() + ": no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""_s);
    }

    void folderWithSeveral()
    {
        ScratchFolder const folder;
        QString const second = folder.write("second.so"_s, m_library);
        QString const first = folder.write("first.so"_s, m_library);
        QCOMPARE(complaintAbout(folder.path()),
                 "%1: several plugins in this folder, name one: %2, %3"_s.arg(folder.path(), first, second));
    }

    void notThere_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QString const& path, char const* message) {
            QTest::newRow(name) << path << QString::fromLatin1(message);
        };
        // Qt's own loader would try the name with what libraries have in front and behind.
        row("without suffix", pluginFile.chopped(3), "No such file or directory");
        row("below a file", pluginFile + "/x.so"_s, "Not a directory");
        row("device", "/dev/null"_s, "neither a file nor a folder");
        row("percent", "/missing/%1%2.so"_s, "No such file or directory");
    }

    void notThere()
    {
        QFETCH(QString, path);
        QFETCH(QString, message);
        QCOMPARE(complaintAbout(path), path + ": "_s + message);
    }

    void notAPlugin_data()
    {
        QTest::addColumn<QByteArray>("content");
        QByteArray otherMachine = m_library;
        otherMachine[4] = 1; // 32 bits
        QByteArray brokenMetaData = m_library;
        brokenMetaData.replace(m_mark + 16, 8, QByteArray(8, '\xff'));
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text with the mark of a plugin") << QByteArray("QTMETADATA !\0\5\17\0", 16);
        QTest::newRow("library that is no plugin") << contentOf(QStringLiteral(SDK_LIBRARY_FILE));
        QTest::newRow("program") << contentOf("/proc/self/exe"_s);
        QTest::newRow("first half") << m_library.left(m_library.size() / 2);
        QTest::newRow("part of the header") << m_library.left(20);
        QTest::newRow("without its end") << m_library.chopped(1000);
        QTest::newRow("for another machine") << otherMachine;
        QTest::newRow("header and zeros") << m_library.left(64) + QByteArray(m_library.size(), '\0');
        QTest::newRow("broken metadata") << brokenMetaData;
    }

    void notAPlugin()
    {
        QFETCH(QByteArray, content);
        ScratchFolder const folder;
        QString const path = folder.write("library.so"_s, content);
        QCOMPARE(complaintAbout(path), path + ": not a Qt plugin"_s);
    }

    void otherInterface_data()
    {
        QTest::addColumn<QByteArray>("identifier");
        QTest::newRow("another tool's") << QByteArray("odd.rd.box.PToolVeskOther");
        // What is wanted must stand at the end: a successor of the interface is another interface.
        QTest::newRow("a successor") << QByteArray("o.rd.box.PToolVeskZrt.two");
    }

    void otherInterface()
    {
        QFETCH(QByteArray, identifier);
        ScratchFolder const folder;
        QByteArray content = contentOf(c_otherInterface);
        QString const path =
            folder.write("library.so"_s, content.replace("odd.rd.box.PToolVeskOther", identifier));
        QCOMPARE(complaintAbout(path),
                 "%1: its interface is \"%2\", wanted is \"*.rd.box.PToolVeskZrt\""_s.arg(
                     path, QString::fromLatin1(identifier)));
        QVERIFY(!isMapped(path));
    }

    void otherQt_data()
    {
        QTest::addColumn<char>("major");
        QTest::addColumn<char>("minor");
        QTest::newRow("5.16") << '\5' << '\20';
        QTest::newRow("6.2") << '\6' << '\2';
        QTest::newRow("4.8") << '\4' << '\10';
    }

    // It is known from the file already; nothing has to be loaded for it.
    void otherQt()
    {
        QFETCH(char, major);
        QFETCH(char, minor);
        ScratchFolder const folder;
        QString const path = folder.write("library.so"_s, builtFor(major, minor));
        QCOMPARE(complaintAbout(path),
                 "%1: built for Qt %2, this is Qt %3"_s.arg(path, QLatin1String(QTest::currentDataTag()),
                                                            QLatin1String(qVersion())));
        QVERIFY(!isMapped(path));
    }

    void earlierQt()
    {
        ScratchFolder const folder;
        PluginLibrary library(folder.write("library.so"_s, builtFor('\5', '\14')));
        QCOMPARE(library.qtVersion(), "5.12"_s);
        QCOMPARE(library.plugin().pluginName(), "Plugin Tool ZRT"_s);
    }

    void missingDependency()
    {
        PluginLibrary library(QStringLiteral(ODD_DEPENDENCY_FILE));
        QCOMPARE(library.className(), "OddDependency"_s);
        QCOMPARE(complaintOf([&] { library.plugin(); }),
                 "%1: Cannot load library %1: (libodd_absent.so: cannot open shared object file: No such "
                 "file or directory)"_s.arg(library.fileName()));
    }

    void otherRootObject()
    {
        PluginLibrary library(QStringLiteral(ODD_ROOT_FILE));
        QCOMPARE(complaintOf([&] { library.plugin(); }),
                 library.fileName() + ": its root object, a OddRoot, is no plugin of this host"_s);
    }

private:
    /// The plugin, as if built for another Qt.
    QByteArray builtFor(char major, char minor) const
    {
        QByteArray content = m_library;
        content[m_mark + 13] = major;
        content[m_mark + 14] = minor;
        return content;
    }

    QByteArray const m_library = contentOf(pluginFile);
    int const m_mark = m_library.indexOf("QTMETADATA !"); ///< behind it, for which Qt it was built
};

QTEST_GUILESS_MAIN(TestPluginLibrary)
#include "tst_plugin_library.moc"
