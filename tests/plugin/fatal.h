#pragma once

#include "child.h"
#include "literals.h"

#include <QString>
#include <QtGlobal>

#include <functional>

/// The fatal message that @p action ends with, in a child process; "nothing fatal" if it ends well.
template <class Action> QString fatalInChild(Action const& action)
{
    return wordsOfChild([&action](auto const& say) {
        static std::function<void(QString const&)> s_say;
        s_say = say;
        qInstallMessageHandler([](QtMsgType type, QMessageLogContext const&, QString const& text) {
            if (type == QtFatalMsg)
                s_say(text);
        });
        action();
        say("nothing fatal"_s);
    });
}
