#pragma once

#include <QByteArray>
#include <QObject>

/// A QObject with a name of its own, which is not its objectName() here.
class Q_DECL_EXPORT DObject : public QObject
{
    Q_OBJECT

public:
    DObject(QString const& name, QObject* parent);
    ~DObject() override;

    QByteArray name() const { return m_name; }

private:
    QByteArray m_name;
};
