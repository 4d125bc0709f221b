#include <QObject>

/// A good Qt plugin for something else.
class OddInterface : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "odd.rd.box.PToolVeskOther")
};

#include "odd_interface.moc"
