#include <QObject>

int oddAbsent();

/// A plugin that says it is one for the ZRT, but needs a library that cannot be found.
class OddDependency : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "odd.rd.box.PToolVeskZrt")

public:
    int value = oddAbsent();
};

#include "odd_dependency.moc"
