#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"

#include "host/plugin_library.h"

#include <plugin_management/d_abstract_plugin.h>

#include <QtTest>

namespace
{

QString const pluginFile = QStringLiteral(ZRT_PLUGIN_FILE);
QString const identifier = QStringLiteral(ZRT_MAKER_DOMAIN ".rd.box.PToolVeskZrt");

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
        QVERIFY(!isMapped(pluginFile));
        {
            PluginLibrary const library(pluginFile);
            QCOMPARE(library.fileName(), QFileInfo(pluginFile).absoluteFilePath());
            QCOMPARE(library.interfaceIdentifier(), identifier);
            QCOMPARE(library.className(), "PToolVeskZrt"_s);
            QCOMPARE(library.qtVersion(), "5.15"_s);
            QVERIFY(!isMapped(pluginFile));
        }
        QVERIFY(!isMapped(pluginFile));
    }

    void loading()
    {
        QPointer<QObject> root;
        {
            PluginLibrary library(pluginFile);
            DAbstractPlugin& plugin = library.plugin();
            QVERIFY(isMapped(pluginFile));
            QCOMPARE(plugin.pluginName(), "Plugin Tool ZRT"_s);
            QCOMPARE(plugin.objectUuid(), QUuid());
            QCOMPARE(&library.plugin(), &plugin);
            root = &plugin;
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
        QString fileName;
        QString const complaint = complaintOf([&] { fileName = PluginLibrary(info.fileName()).fileName(); });
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(complaint, "no complaint"_s);
        QCOMPARE(fileName, info.absoluteFilePath());
    }

    void folderWithOne()
    {
        ScratchFolder const folder;
        // Neither its name nor what else is there matters.
        folder.write("a.so"_s, "no library");
        folder.write("b.txt"_s, m_library);
        QVERIFY(QFile::copy(QStringLiteral(ODD_INTERFACE_FILE), folder.filePath("c.so"_s)));
        QString const expected = folder.write("d.so"_s, m_library);
        PluginLibrary library(folder.path());
        QCOMPARE(library.fileName(), expected);
        QCOMPARE(library.plugin().pluginName(), "Plugin Tool ZRT"_s);
        QCOMPARE(PluginLibrary(folder.path() + QLatin1Char('/')).fileName(), expected);
    }

    void folderWithNone()
    {
        ScratchFolder const folder;
        QString const expected =
            folder.path() + ": no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""_s;
        QCOMPARE(complaintAbout(folder.path()), expected);
        QVERIFY(QFile::copy(QStringLiteral(ODD_INTERFACE_FILE), folder.filePath("other.so"_s)));
        QCOMPARE(complaintAbout(folder.path()), expected);
    }

    void folderWithSeveral()
    {
        ScratchFolder const folder;
        QString const second = folder.write("second.so"_s, m_library);
        QString const first = folder.write("first.so"_s, m_library);
        QCOMPARE(complaintAbout(folder.path()),
                 "%1: several plugins in this folder, name one: %2, %3"_s.arg(folder.path(), first, second));
    }

    void folderIsNotSearchedDeeper()
    {
        ScratchFolder const folder;
        QVERIFY(QDir(folder.path()).mkdir("deeper.so"_s));
        folder.write("deeper.so/library.so"_s, m_library);
        QCOMPARE(complaintAbout(folder.path()),
                 folder.path() + ": no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""_s);
    }

    void folderWithOddFiles()
    {
        ScratchFolder const folder;
        QCOMPARE(QProcess::execute("mkfifo"_s, {folder.filePath("pipe.so"_s)}), 0);
        QVERIFY(QFile::link(folder.filePath("nowhere"_s), folder.filePath("link.so"_s)));
        QString const expected = folder.write("library.so"_s, m_library);
        QCOMPARE(PluginLibrary(folder.path()).fileName(), expected);
    }

    void notThere_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing") << "/missing/library.so"_s
                                 << "No such file or directory"_s;
        // Qt's own loader would try the name with what libraries have in front and behind.
        QString without = pluginFile;
        without.chop(3);
        QTest::newRow("without suffix") << without << "No such file or directory"_s;
        QTest::newRow("below a file") << pluginFile + "/x.so"_s
                                      << "Not a directory"_s;
        QTest::newRow("device") << "/dev/null"_s
                                << "neither a file nor a folder"_s;
        QTest::newRow("percent") << "/missing/%1%2.so"_s
                                 << "No such file or directory"_s;
    }

    void notThere()
    {
        QFETCH(QString, path);
        QFETCH(QString, message);
        QCOMPARE(complaintAbout(path), path + ": "_s + message);
    }

    void pipeDoesNotBlock()
    {
        ScratchFolder const folder;
        QString const pipe = folder.filePath("pipe.so"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        QCOMPARE(complaintAbout(pipe), pipe + ": neither a file nor a folder"_s);
    }

    void notAPlugin_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << QByteArray("hello\n");
        QTest::newRow("text with the mark of a plugin") << QByteArray("QTMETADATA !\0\5\17\0", 16);
        QTest::newRow("library that is no plugin") << contentOf(QStringLiteral(SDK_LIBRARY_FILE));
        QTest::newRow("program") << contentOf("/proc/self/exe"_s);
        QTest::newRow("first half") << m_library.left(m_library.size() / 2);
        QTest::newRow("header alone") << m_library.left(64);
        QTest::newRow("part of the header") << m_library.left(20);
        QTest::newRow("without its end") << m_library.left(m_library.size() - 1000);
        QByteArray otherMachine = m_library;
        otherMachine[4] = 1; // 32 bits
        QTest::newRow("for another machine") << otherMachine;
        QByteArray zeros(m_library.size(), '\0');
        QTest::newRow("header and zeros") << m_library.left(64) + zeros;
        QByteArray brokenMetaData = m_library;
        int const mark = brokenMetaData.indexOf("QTMETADATA !");
        brokenMetaData.replace(mark + 16, 8, QByteArray(8, '\xff'));
        QTest::newRow("broken metadata") << brokenMetaData;
    }

    void notAPlugin()
    {
        QFETCH(QByteArray, content);
        ScratchFolder const folder;
        QString const path = folder.write("library.so"_s, content);
        QCOMPARE(complaintAbout(path), path + ": not a Qt plugin"_s);
    }

    void otherInterface()
    {
        QString const path = QStringLiteral(ODD_INTERFACE_FILE);
        QCOMPARE(complaintAbout(path), path
                                           + ": its interface is \"odd.rd.box.PToolVeskOther\", wanted is "
                                             "\"*.rd.box.PToolVeskZrt\""_s);
        QVERIFY(!isMapped(path));
    }

    void laterInterface()
    {
        // What it wants must stand at the end: a successor of the interface is another interface.
        QByteArray content = contentOf(QStringLiteral(ODD_INTERFACE_FILE));
        content.replace("odd.rd.box.PToolVeskOther", "o.rd.box.PToolVeskZrt.two");
        ScratchFolder const folder;
        QString const path = folder.write("library.so"_s, content);
        QCOMPARE(complaintAbout(path), path
                                           + ": its interface is \"o.rd.box.PToolVeskZrt.two\", wanted is "
                                             "\"*.rd.box.PToolVeskZrt\""_s);
    }

    void otherQt_data()
    {
        QTest::addColumn<char>("major");
        QTest::addColumn<char>("minor");
        QTest::addColumn<QString>("version");
        QTest::newRow("later") << '\5' << '\20' << "5.16"_s;
        QTest::newRow("next") << '\6' << '\2' << "6.2"_s;
        QTest::newRow("former") << '\4' << '\10' << "4.8"_s;
    }

    void otherQt()
    {
        QFETCH(char, major);
        QFETCH(char, minor);
        QFETCH(QString, version);
        int const mark = m_library.indexOf("QTMETADATA !");
        QVERIFY(mark > 0);
        QCOMPARE(m_library.mid(mark + 13, 2), QByteArray("\5\17"));
        QByteArray content = m_library;
        content[mark + 13] = major;
        content[mark + 14] = minor;
        ScratchFolder const folder;
        QString const path = folder.write("library.so"_s, content);
        // It is known from the file already; nothing has to be loaded for it.
        QCOMPARE(complaintAbout(path),
                 "%1: built for Qt %2, this is Qt %3"_s.arg(path, version, QString::fromLatin1(qVersion())));
        QVERIFY(!isMapped(path));
    }

    void earlierQt()
    {
        QByteArray content = m_library;
        content[content.indexOf("QTMETADATA !") + 14] = '\14';
        ScratchFolder const folder;
        PluginLibrary library(folder.write("library.so"_s, content));
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
    QByteArray m_library = contentOf(pluginFile);
};

QTEST_GUILESS_MAIN(TestPluginLibrary)
#include "tst_plugin_library.moc"
