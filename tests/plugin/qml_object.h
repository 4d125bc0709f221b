#pragma once

#include "literals.h"

#include <p_tool_vesk_zrt.h>

#include <QCoreApplication>
#include <QEvent>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <memory>

/// Whatever was left to be deleted is, wherever the engine or an event left it.
inline void collectGarbage(QJSEngine& engine)
{
    for (int i = 0; i < 5; ++i) {
        engine.collectGarbage();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

/// An object that a document in QML declares, with the types of the plugin.
struct QmlObject
{
    /// The document finds @p subject, if there is one, under that name.
    explicit QmlObject(QByteArray const& document, QObject* subject = nullptr)
    {
        engine.rootContext()->setContextProperty("subject"_s, subject);
        QQmlComponent component(&engine);
        component.setData(document, QUrl());
        object.reset(component.create());
        error = component.errorString();
    }

    /// What a function of the document answers, as text.
    QString call(char const* function) const
    {
        QVariant answer;
        QMetaObject::invokeMethod(object.get(), function, Q_RETURN_ARG(QVariant, answer));
        return answer.toString();
    }

    PToolVeskZrt const plugin; // registers the types
    QQmlEngine engine;
    QString error;
    std::unique_ptr<QObject> object;
};
