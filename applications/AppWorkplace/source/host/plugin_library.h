#pragma once

#include <QJsonObject>
#include <QPluginLoader>
#include <QString>

class DAbstractPlugin;

/// A plugin library on disk. Looking at its metadata runs none of its code; plugin() loads it.
///
/// Whatever the library made (tools, commands) must be gone before this object, which deletes the root
/// object. The code stays until the process ends: QML knows its types, and texts of it may be about.
class PluginLibrary
{
public:
    /// What the interface identifier of a plugin for the ZRT ends with; the maker's domain stands in front.
    static QString interfaceSuffix();

    /// Opens a library file, or the one library in a folder whose identifier fits. InputError if the file is
    /// missing, unreadable, no Qt plugin, a plugin of another interface or built for another Qt.
    explicit PluginLibrary(QString const& path);
    ~PluginLibrary();
    PluginLibrary(PluginLibrary const&) = delete;
    PluginLibrary& operator=(PluginLibrary const&) = delete;

    QString fileName() const { return m_loader.fileName(); }
    QString interfaceIdentifier() const;
    QString className() const;
    /// The Qt it was built with, "5.15".
    QString qtVersion() const;

    /// The library's root object, loading the library if need be. InputError if it cannot be loaded.
    DAbstractPlugin& plugin();

private:
    QPluginLoader m_loader;
    QJsonObject m_metaData;
};
