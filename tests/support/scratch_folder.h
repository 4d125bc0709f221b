#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

/// A folder of the test's own that goes with it.
class ScratchFolder
{
public:
    QString path() const { return m_folder.path(); }
    QString filePath(QString const& name) const { return m_folder.filePath(name); }

    /// Writes a file and answers its path.
    QString write(QString const& name, QByteArray const& content) const
    {
        QFile file(filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
            qFatal("cannot write %s", qPrintable(file.fileName()));
        return file.fileName();
    }

    /// Everything in the folder, hidden files too.
    QStringList names() const
    {
        return QDir(path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                      QDir::Name);
    }

private:
    QTemporaryDir m_folder;
};

/// The content of a file; a null array if there is none.
inline QByteArray contentOf(QString const& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
