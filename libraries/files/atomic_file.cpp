#include "atomic_file.h"

#include "pipe.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace
{

std::unique_ptr<QFileDevice> makeFile(QString const& fileName)
{
    QFileInfo const info(fileName);
    if (info.exists() && !info.isFile() && !info.isDir())
        return std::make_unique<QFile>(fileName);
    return std::make_unique<QSaveFile>(fileName);
}

} // namespace

AtomicFile::AtomicFile(QString const& fileName) : m_file(makeFile(fileName)) {}

AtomicFile::~AtomicFile() = default;

// Unbuffered, because what cannot be written when the file is closed is lost without a word.
bool AtomicFile::open()
{
    QIODevice::OpenMode const mode = QIODevice::WriteOnly | QIODevice::Unbuffered;
    auto* const file = qobject_cast<QFile*>(m_file.get());
    if (!file || !isPipe(file->fileName()))
        return m_file->open(mode) || fail();
    m_problem = openPipe(*file, mode);
    return m_problem.isEmpty();
}

bool AtomicFile::write(QByteArray const& content)
{
    // A disk that fills up takes a part first; it says why only when it is asked for the rest.
    qint64 done = 0;
    while (m_problem.isEmpty() && done < content.size()) {
        qint64 const count = m_file->write(content.constData() + done, content.size() - done);
        if (count <= 0)
            return fail();
        done += count;
    }
    return m_problem.isEmpty();
}

bool AtomicFile::commit()
{
    auto* const saved = qobject_cast<QSaveFile*>(m_file.get());
    if (!m_problem.isEmpty() || !saved)
        return m_problem.isEmpty();
    // Some disks say only now that they are full, and Qt would replace the file all the same. What cannot be
    // brought to its disk for lack of one is fine.
    if (::fsync(saved->handle()) != 0 && errno != EINVAL) {
        m_problem = qt_error_string();
        return false;
    }
    return saved->commit() || fail();
}

bool AtomicFile::fail()
{
    m_problem = m_file->errorString();
    return false;
}

QString replaceFile(QString const& fileName, QByteArray const& content)
{
    AtomicFile file(fileName);
    static_cast<void>(file.open() && file.write(content) && file.commit());
    return file.problem();
}

bool isSameFileAsAny(QString const& fileName, QStringList const& others)
{
    QFileInfo const file(fileName);
    return file.exists() && std::any_of(others.cbegin(), others.cend(), [&file](QString const& other) {
               return file == QFileInfo(other);
           });
}
