#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaMethod>
#include <QObject>
#include <QSignalSpy>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

/// Listens to every signal that an object has from a class on: its own, and those of whatever derives from
/// it.
class SignalLog
{
public:
    explicit SignalLog(QObject const& object, QMetaObject const& from = QObject::staticMetaObject)
    {
        auto const& meta = *object.metaObject();
        for (int i = from.methodOffset(); i < meta.methodCount(); ++i) {
            if (meta.method(i).methodType() == QMetaMethod::Signal)
                m_spies.push_back(std::make_unique<QSignalSpy>(&object, meta.method(i)));
        }
    }

    /// What was emitted since the last call, with arguments: "renamed" or "moved[1,2]". What is of one signal
    /// stands together, in the order in which the class declares them.
    QStringList take()
    {
        QStringList lines;
        for (auto const& spy : m_spies) {
            QByteArray const name = spy->signal().left(spy->signal().indexOf('('));
            for (auto const& arguments : qAsConst(*spy)) {
                QJsonDocument const json(QJsonArray::fromVariantList(arguments));
                lines += QString::fromUtf8(arguments.isEmpty() ? name
                                                               : name + json.toJson(QJsonDocument::Compact));
            }
            spy->clear();
        }
        return lines;
    }

private:
    std::vector<std::unique_ptr<QSignalSpy>> m_spies;
};
