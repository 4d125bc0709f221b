#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QSignalSpy>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

/// Listens to every signal that an object has from a class on: its own, and those of whatever derives from
/// it.
class SignalCounts
{
public:
    explicit SignalCounts(QObject const& object, QMetaObject const& from = QObject::staticMetaObject)
    {
        auto const& meta = *object.metaObject();
        for (int i = from.methodOffset(); i < meta.methodCount(); ++i) {
            if (meta.method(i).methodType() == QMetaMethod::Signal)
                m_spies.push_back(std::make_unique<QSignalSpy>(&object, meta.method(i)));
        }
    }

    /// What was emitted since the last call: each signal's name as often as it was, in the order in which the
    /// class declares them.
    QStringList take()
    {
        QStringList names;
        for (auto const& spy : m_spies) {
            QByteArray const signature = spy->signal();
            for (int i = 0; i < spy->count(); ++i)
                names += QString::fromLatin1(signature.left(signature.indexOf('(')));
            spy->clear();
        }
        return names;
    }

private:
    std::vector<std::unique_ptr<QSignalSpy>> m_spies;
};
