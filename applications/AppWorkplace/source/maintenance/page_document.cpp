#include "page_document.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QFile>

PageDocument pageDocument(DAbstractPlugin const& plugin, QString const& tool, QString const& objectId)
{
    QString const path = QStringLiteral("/%1/maintenance_panel.qml").arg(plugin.pluginUuid().toString());
    QFile file(QLatin1Char(':') + path);
    if (!file.open(QIODevice::ReadOnly))
        throw InputError(QStringLiteral("%1: has no maintenance page (:%2)").arg(plugin.pluginName(), path));
    QByteArray text = file.readAll();
    text.replace("{OBJECT_NAME}", inQmlString(tool));
    text.replace("{OBJECT_ID}", inQmlString(objectId));
    // With an empty host; otherwise Qt does not find what the page imports.
    return {text, QUrl(QStringLiteral("qrc://") + path)};
}

QByteArray inQmlString(QString const& text)
{
    QByteArray escaped;
    for (QChar const c : text) {
        // Braces too, so that no text is taken for the next placeholder.
        bool const isPlain = c.unicode() >= ' ' && c.unicode() <= '~' && c != QLatin1Char('"')
                             && c != QLatin1Char('\\') && c != QLatin1Char('{') && c != QLatin1Char('}');
        escaped += isPlain ? QByteArray(1, c.toLatin1())
                           : "\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0');
    }
    return escaped;
}
