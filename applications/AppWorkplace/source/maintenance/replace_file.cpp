#include "replace_file.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace
{

// A disk that fills up takes a part first; it says why only when it is asked for the rest. Unbuffered,
// because what cannot be written when the file is closed is lost without a word.
bool write(QFileDevice& file, QByteArray const& content)
{
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    qint64 done = 0;
    while (done < content.size()) {
        qint64 const count = file.write(content.constData() + done, content.size() - done);
        if (count <= 0)
            return false;
        done += count;
    }
    return true;
}

} // namespace

QString replaceFile(QString const& fileName, QByteArray const& content)
{
    QFileInfo const info(fileName);
    if (info.exists() && !info.isFile() && !info.isDir()) {
        QFile file(fileName);
        return write(file, content) ? QString() : file.errorString();
    }
    QSaveFile file(fileName);
    return write(file, content) && file.commit() ? QString() : file.errorString();
}
