#pragma once

#include <plugin_management/d_abstract_plugin_backend.h>

/// What stands behind the tool's maintenance page. The page makes it (QML type "BeMaintenanceToolZrt" of
/// module "PlgLibToolZrt" 1.0) and owns it.
class Q_DECL_EXPORT BeMaintenanceToolZrt : public DAbstractPluginBackend
{
    Q_OBJECT

public:
    explicit BeMaintenanceToolZrt(QObject* parent = nullptr);
    ~BeMaintenanceToolZrt() override;
};
