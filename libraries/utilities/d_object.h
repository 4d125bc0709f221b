#pragma once

#include <utilities/export.h>

#include <QObject>
#include <QString>

/// A QObject that carries a name from its construction on: its objectName().
class UTILITIES_EXPORT DObject : public QObject
{
    Q_OBJECT

public:
    DObject(QString const& name, QObject* parent);
    ~DObject() override;
};
