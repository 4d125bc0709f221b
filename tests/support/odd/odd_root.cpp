#include <QObject>

/// A plugin that says it is one for the ZRT, but whose root object is none of the host's plugin objects.
class OddRoot : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "odd.rd.box.PToolVeskZrt")
};

#include "odd_root.moc"
