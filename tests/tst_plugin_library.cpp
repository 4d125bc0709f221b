#include "complaint.h"
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
    return contentOf(QStringLiteral("/proc/self/maps"))
        .contains(QFileInfo(fileName).canonicalFilePath().toUtf8());
}

QString complaintAbout(QString const& path)
{
    return complaintOf([&path] { PluginLibrary const library(path); });
}

} // namespace

/// Plugin libraries on disk: finding them, looking at them, loading them.
class TstPluginLibrary : public QObject
{
    Q_OBJECT

private slots:
    // Comes first: nothing may have loaded the library before.
    void lookingRunsNothing();
    void loading();
    void relativePath();
    void folderWithOne();
    void folderWithNone();
    void folderWithSeveral();
    void folderIsNotSearchedDeeper();
    void folderWithOddFiles();
    void notThere_data();
    void notThere();
    void pipeDoesNotBlock();
    void notAPlugin_data();
    void notAPlugin();
    void otherInterface();
    void laterInterface();
    void otherQt_data();
    void otherQt();
    void earlierQt();
    void missingDependency();
    void otherRootObject();

private:
    QByteArray m_library = contentOf(pluginFile);
};

void TstPluginLibrary::lookingRunsNothing()
{
    QVERIFY(!isMapped(pluginFile));
    {
        PluginLibrary const library(pluginFile);
        QCOMPARE(library.fileName(), QFileInfo(pluginFile).absoluteFilePath());
        QCOMPARE(library.interfaceIdentifier(), identifier);
        QCOMPARE(library.className(), QStringLiteral("PToolVeskZrt"));
        QCOMPARE(library.qtVersion(), QStringLiteral("5.15"));
        QVERIFY(!isMapped(pluginFile));
    }
    QVERIFY(!isMapped(pluginFile));
}

void TstPluginLibrary::loading()
{
    QPointer<QObject> root;
    {
        PluginLibrary library(pluginFile);
        DAbstractPlugin& plugin = library.plugin();
        QVERIFY(isMapped(pluginFile));
        QCOMPARE(plugin.pluginName(), QStringLiteral("Plugin Tool ZRT"));
        QCOMPARE(plugin.objectUuid(), QUuid());
        QCOMPARE(&library.plugin(), &plugin);
        root = &plugin;
    }
    QVERIFY(root.isNull());
    // What it has registered with QML, and texts of it, may still be about.
    QVERIFY(isMapped(pluginFile));
}

void TstPluginLibrary::relativePath()
{
    QString const before = QDir::currentPath();
    QFileInfo const info(pluginFile);
    QVERIFY(QDir::setCurrent(info.absolutePath()));
    QString fileName;
    QString const complaint = complaintOf([&] { fileName = PluginLibrary(info.fileName()).fileName(); });
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(complaint, QStringLiteral("no complaint"));
    QCOMPARE(fileName, info.absoluteFilePath());
}

void TstPluginLibrary::folderWithOne()
{
    ScratchFolder const folder;
    // Neither its name nor what else is there matters.
    folder.write(QStringLiteral("a.so"), "no library");
    folder.write(QStringLiteral("b.txt"), m_library);
    QVERIFY(QFile::copy(QStringLiteral(ODD_INTERFACE_FILE), folder.filePath(QStringLiteral("c.so"))));
    QString const expected = folder.write(QStringLiteral("d.so"), m_library);
    PluginLibrary library(folder.path());
    QCOMPARE(library.fileName(), expected);
    QCOMPARE(library.plugin().pluginName(), QStringLiteral("Plugin Tool ZRT"));
    QCOMPARE(PluginLibrary(folder.path() + QLatin1Char('/')).fileName(), expected);
}

void TstPluginLibrary::folderWithNone()
{
    ScratchFolder const folder;
    QString const expected =
        folder.path()
        + QStringLiteral(": no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\"");
    QCOMPARE(complaintAbout(folder.path()), expected);
    QVERIFY(QFile::copy(QStringLiteral(ODD_INTERFACE_FILE), folder.filePath(QStringLiteral("other.so"))));
    QCOMPARE(complaintAbout(folder.path()), expected);
}

void TstPluginLibrary::folderWithSeveral()
{
    ScratchFolder const folder;
    QString const second = folder.write(QStringLiteral("second.so"), m_library);
    QString const first = folder.write(QStringLiteral("first.so"), m_library);
    QCOMPARE(complaintAbout(folder.path()),
             QStringLiteral("%1: several plugins in this folder, name one: %2, %3")
                 .arg(folder.path(), first, second));
}

void TstPluginLibrary::folderIsNotSearchedDeeper()
{
    ScratchFolder const folder;
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("deeper.so")));
    folder.write(QStringLiteral("deeper.so/library.so"), m_library);
    QCOMPARE(complaintAbout(folder.path()),
             folder.path()
                 + QStringLiteral(": no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""));
}

void TstPluginLibrary::folderWithOddFiles()
{
    ScratchFolder const folder;
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {folder.filePath(QStringLiteral("pipe.so"))}), 0);
    QVERIFY(
        QFile::link(folder.filePath(QStringLiteral("nowhere")), folder.filePath(QStringLiteral("link.so"))));
    QString const expected = folder.write(QStringLiteral("library.so"), m_library);
    QCOMPARE(PluginLibrary(folder.path()).fileName(), expected);
}

void TstPluginLibrary::notThere_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing") << QStringLiteral("/missing/library.so")
                             << QStringLiteral("No such file or directory");
    // Qt's own loader would try the name with what libraries have in front and behind.
    QString without = pluginFile;
    without.chop(3);
    QTest::newRow("without suffix") << without << QStringLiteral("No such file or directory");
    QTest::newRow("below a file") << pluginFile + QStringLiteral("/x.so")
                                  << QStringLiteral("Not a directory");
    QTest::newRow("device") << QStringLiteral("/dev/null") << QStringLiteral("neither a file nor a folder");
    QTest::newRow("percent") << QStringLiteral("/missing/%1%2.so")
                             << QStringLiteral("No such file or directory");
}

void TstPluginLibrary::notThere()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    QCOMPARE(complaintAbout(path), path + QStringLiteral(": ") + message);
}

void TstPluginLibrary::pipeDoesNotBlock()
{
    ScratchFolder const folder;
    QString const pipe = folder.filePath(QStringLiteral("pipe.so"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {pipe}), 0);
    QCOMPARE(complaintAbout(pipe), pipe + QStringLiteral(": neither a file nor a folder"));
}

void TstPluginLibrary::notAPlugin_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("hello\n");
    QTest::newRow("text with the mark of a plugin") << QByteArray("QTMETADATA !\0\5\17\0", 16);
    QTest::newRow("library that is no plugin") << contentOf(QStringLiteral(SDK_LIBRARY_FILE));
    QTest::newRow("program") << contentOf(QStringLiteral("/proc/self/exe"));
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

void TstPluginLibrary::notAPlugin()
{
    QFETCH(QByteArray, content);
    ScratchFolder const folder;
    QString const path = folder.write(QStringLiteral("library.so"), content);
    QCOMPARE(complaintAbout(path), path + QStringLiteral(": not a Qt plugin"));
}

void TstPluginLibrary::otherInterface()
{
    QString const path = QStringLiteral(ODD_INTERFACE_FILE);
    QCOMPARE(complaintAbout(path),
             path
                 + QStringLiteral(": its interface is \"odd.rd.box.PToolVeskOther\", wanted is "
                                  "\"*.rd.box.PToolVeskZrt\""));
    QVERIFY(!isMapped(path));
}

void TstPluginLibrary::laterInterface()
{
    // What it wants must stand at the end: a successor of the interface is another interface.
    QByteArray content = contentOf(QStringLiteral(ODD_INTERFACE_FILE));
    content.replace("odd.rd.box.PToolVeskOther", "o.rd.box.PToolVeskZrt.two");
    ScratchFolder const folder;
    QString const path = folder.write(QStringLiteral("library.so"), content);
    QCOMPARE(complaintAbout(path),
             path
                 + QStringLiteral(": its interface is \"o.rd.box.PToolVeskZrt.two\", wanted is "
                                  "\"*.rd.box.PToolVeskZrt\""));
}

void TstPluginLibrary::otherQt_data()
{
    QTest::addColumn<char>("major");
    QTest::addColumn<char>("minor");
    QTest::addColumn<QString>("version");
    QTest::newRow("later") << '\5' << '\20' << QStringLiteral("5.16");
    QTest::newRow("next") << '\6' << '\2' << QStringLiteral("6.2");
    QTest::newRow("former") << '\4' << '\10' << QStringLiteral("4.8");
}

void TstPluginLibrary::otherQt()
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
    QString const path = folder.write(QStringLiteral("library.so"), content);
    // It is known from the file already; nothing has to be loaded for it.
    QCOMPARE(complaintAbout(path), QStringLiteral("%1: built for Qt %2, this is Qt %3")
                                       .arg(path, version, QString::fromLatin1(qVersion())));
    QVERIFY(!isMapped(path));
}

void TstPluginLibrary::earlierQt()
{
    QByteArray content = m_library;
    content[content.indexOf("QTMETADATA !") + 14] = '\14';
    ScratchFolder const folder;
    PluginLibrary library(folder.write(QStringLiteral("library.so"), content));
    QCOMPARE(library.qtVersion(), QStringLiteral("5.12"));
    QCOMPARE(library.plugin().pluginName(), QStringLiteral("Plugin Tool ZRT"));
}

void TstPluginLibrary::missingDependency()
{
    PluginLibrary library(QStringLiteral(ODD_DEPENDENCY_FILE));
    QCOMPARE(library.className(), QStringLiteral("OddDependency"));
    QCOMPARE(complaintOf([&] { library.plugin(); }),
             QStringLiteral(
                 "%1: Cannot load library %1: (libodd_absent.so: cannot open shared object file: No such "
                 "file or directory)")
                 .arg(library.fileName()));
}

void TstPluginLibrary::otherRootObject()
{
    PluginLibrary library(QStringLiteral(ODD_ROOT_FILE));
    QCOMPARE(complaintOf([&] { library.plugin(); }),
             library.fileName() + QStringLiteral(": its root object, a OddRoot, is no plugin of this host"));
}

QTEST_GUILESS_MAIN(TstPluginLibrary)
#include "tst_plugin_library.moc"
