#pragma once

#include <utilities/d_object.h>

/// One status channel of the screwdriver, as QML shows it (type "DZrtToolChannel" of module
/// "PlgLibToolZrt" 1.0).
class Q_DECL_EXPORT DZrtToolChannel : public DObject
{
    Q_OBJECT

public:
    explicit DZrtToolChannel(QObject* parent = nullptr);
    ~DZrtToolChannel() override;
};
