#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

class DAbstractPlugin;

/// The document of a plugin's maintenance page, for one tool.
struct PageDocument
{
    QByteArray text;
    /// Where it stands, for the imports in it.
    QUrl url;
};

/// Takes the page out of the resources of a plugin and fills in the tool. InputError if the plugin has no
/// page.
PageDocument pageDocument(DAbstractPlugin const& plugin, QString const& tool, QString const& objectId);

/// A text as it stands between the quotes of a QML string, whatever is in it.
QByteArray inQmlString(QString const& text);
