#include "plugin_library.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

namespace
{

QString identifierIn(QJsonObject const& metaData)
{
    return metaData.value(QLatin1String("IID")).toString();
}

bool fits(QJsonObject const& metaData)
{
    return identifierIn(metaData).endsWith(PluginLibrary::interfaceSuffix());
}

// 0x050f00 for Qt 5.15.
int qtNumber(QJsonObject const& metaData)
{
    return metaData.value(QLatin1String("version")).toInt();
}

/// While it lives Qt's own warnings are not printed: what a library lacks is reported here, in one line.
class QuietQt
{
public:
    QuietQt() : m_former(qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {}))
    {}
    ~QuietQt() { qInstallMessageHandler(m_former); }
    QuietQt(QuietQt const&) = delete;
    QuietQt& operator=(QuietQt const&) = delete;

private:
    QtMessageHandler m_former;
};

QString findIn(QDir const& folder)
{
    QStringList found;
    auto const files = folder.entryInfoList({QStringLiteral("*.so")}, QDir::Files, QDir::Name);
    for (auto const& file : files) {
        if (fits(QPluginLoader(file.absoluteFilePath()).metaData()))
            found += file.absoluteFilePath();
    }
    if (found.isEmpty())
        throw InputError(QStringLiteral("%1: no library in this folder is a plugin for \"*%2\"")
                             .arg(folder.path(), PluginLibrary::interfaceSuffix()));
    if (found.size() > 1)
        throw InputError(QStringLiteral("%1: several plugins in this folder, name one: %2")
                             .arg(folder.path(), found.join(QStringLiteral(", "))));
    return found.first();
}

QString findLibrary(QString const& path)
{
    QFileInfo const info(path);
    if (info.isDir())
        return findIn(QDir(path));
    if (info.exists() && !info.isFile())
        throw InputError(QStringLiteral("%1: neither a file nor a folder").arg(path));
    // Qt's loader would try other spellings of the name, or look elsewhere; and it says less.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw InputError(QStringLiteral("%1: %2").arg(path, file.errorString()));
    return info.absoluteFilePath();
}

} // namespace

QString PluginLibrary::interfaceSuffix()
{
    return QStringLiteral(".rd.box.PToolVeskZrt");
}

PluginLibrary::PluginLibrary(QString const& path)
{
    {
        QuietQt const quiet;
        m_loader.setFileName(findLibrary(path));
        m_metaData = m_loader.metaData();
    }
    if (m_metaData.isEmpty())
        throw InputError(QStringLiteral("%1: not a Qt plugin").arg(path));
    if (!fits(m_metaData))
        throw InputError(QStringLiteral("%1: its interface is \"%2\", wanted is \"*%3\"")
                             .arg(path, interfaceIdentifier(), interfaceSuffix()));
    int const major = qtNumber(m_metaData) >> 16;
    int const minor = (qtNumber(m_metaData) >> 8) & 0xff;
    if (major != QT_VERSION_MAJOR || minor > QT_VERSION_MINOR)
        throw InputError(QStringLiteral("%1: built for Qt %2, this is Qt %3")
                             .arg(path, qtVersion(), QString::fromLatin1(qVersion())));
}

PluginLibrary::~PluginLibrary()
{
    m_loader.unload();
}

QString PluginLibrary::interfaceIdentifier() const
{
    return identifierIn(m_metaData);
}

QString PluginLibrary::className() const
{
    return m_metaData.value(QLatin1String("className")).toString();
}

QString PluginLibrary::qtVersion() const
{
    int const version = qtNumber(m_metaData);
    return QStringLiteral("%1.%2").arg(version >> 16).arg((version >> 8) & 0xff);
}

DAbstractPlugin& PluginLibrary::plugin()
{
    QObject* const root = m_loader.instance();
    if (!root)
        throw InputError(QStringLiteral("%1: %2").arg(fileName(), m_loader.errorString().simplified()));
    auto* const plugin = qobject_cast<DAbstractPlugin*>(root);
    if (!plugin)
        throw InputError(QStringLiteral("%1: its root object, a %2, is no plugin of this host")
                             .arg(fileName(), QLatin1String(root->metaObject()->className())));
    return *plugin;
}
