#pragma once

#include "logged_error.h"

#include <QList>
#include <QMap>
#include <QPair>
#include <QString>
#include <QVariant>

/// An instruction as it reached an endpoint.
struct Post
{
    quint64 id = 0;
    QString name;
    QMap<QString, QVariant> arguments;
};

/// What comes of one call of a command: each kind in the order in which it came, and in which order the kinds
/// came.
struct Effects
{
    bool answer = false;
    QList<Post> posts;
    QList<QPair<QString, QVariant>> results;
    QList<LoggedError> errors; ///< line 0 where any will do
    QStringList infos;
    QList<quint64> withdrawn;
    QList<quint64> dropped;
    QList<bool> ends;     ///< as the command's signal tells them: whether it succeeded
    QList<bool> toldEnds; ///< as its order is told of them
    QStringList wrong;    ///< what no command may do
    QByteArray kinds;     ///< a letter for each, of whatever kind

    void add(Post const& post) { noted('p', posts) += post; }
    void add(LoggedError const& error) { noted('e', errors) += error; }
    void addResult(QString const& key, QVariant const& value) { noted('r', results).append({key, value}); }
    void addInfo(QString const& info) { noted('i', infos) += info; }
    void addWithdrawn(quint64 id) { noted('w', withdrawn) += id; }
    void addDropped(quint64 id) { noted('d', dropped) += id; }
    void addEnd(bool success) { noted('s', ends) += success; }
    void addToldEnd(bool success) { noted('t', toldEnds) += success; }
    void addWrong(QString const& what) { noted('x', wrong) += what; }

private:
    template <class List> List& noted(char kind, List& list)
    {
        kinds += kind;
        return list;
    }
};

/// Whether a command did what it should; where that names no line of an error, any line will do.
bool areSame(Effects const& did, Effects const& should);

/// As lines of a complaint.
QString shown(Effects const& effects);
