#include <utilities/d_object.h>

DObject::DObject(QString const& name, QObject* parent) : QObject(parent)
{
    setObjectName(name);
}

DObject::~DObject() = default;
