#pragma once

#include <QFileDevice>
#include <QString>
#include <QStringList>

#include <memory>

/// A file that is written as a whole or not at all: until commit() has succeeded, the one that was there
/// before stays as it was. What is no regular file, a pipe or a device, is written to directly.
///
/// The first thing that goes wrong ends it: open(), write() and commit() answer false from then on, and
/// problem() says why.
class AtomicFile
{
public:
    explicit AtomicFile(QString const& fileName);
    ~AtomicFile();
    AtomicFile(AtomicFile const&) = delete;
    AtomicFile& operator=(AtomicFile const&) = delete;

    bool open();
    bool write(QByteArray const& content);
    bool commit();

    QString problem() const { return m_problem; }

private:
    bool fail();

    std::unique_ptr<QFileDevice> m_file;
    QString m_problem;
};

/// Puts a file with this content in the place of the one with this name. Answers why that was not possible;
/// empty if it was.
QString replaceFile(QString const& fileName, QByteArray const& content);

/// Whether a file of this name exists and is the same as one of the others, by whatever name. Prevents
/// overwriting an input.
bool isSameFileAsAny(QString const& fileName, QStringList const& others);
