#include <QObject>

/// The root object of a Qt plugin that does nothing: what any plugin of this linkage costs to load.
class EmptyPlugin final : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "benchmarks.EmptyPlugin")
};

#include "empty_plugin.moc"
