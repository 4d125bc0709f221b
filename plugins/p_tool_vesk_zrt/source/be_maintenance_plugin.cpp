#include "be_maintenance_plugin.h"

BeMaintenanceToolZrt::BeMaintenanceToolZrt(QObject* parent)
    : DAbstractPluginBackend(QStringLiteral("PlgLibToolZrt"), parent)
{}

BeMaintenanceToolZrt::~BeMaintenanceToolZrt() = default;
