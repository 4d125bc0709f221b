#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>

/// Catches every log line written while it lives, with its context. One at a time.
class MessageCapture
{
public:
    struct Line
    {
        QtMsgType type;
        QString text;
        QByteArray category;
        QByteArray file;
        QByteArray function;
        int line;
    };

    MessageCapture()
    {
        s_lines = &lines;
        m_former = qInstallMessageHandler(
            [](QtMsgType type, QMessageLogContext const& context, QString const& text) {
                s_lines->append({type, text, context.category, context.file, context.function, context.line});
            });
    }
    ~MessageCapture()
    {
        qInstallMessageHandler(m_former);
        s_lines = nullptr;
    }
    MessageCapture(MessageCapture const&) = delete;
    MessageCapture& operator=(MessageCapture const&) = delete;

    QList<Line> of(QtMsgType type) const
    {
        QList<Line> found;
        for (auto const& line : lines) {
            if (line.type == type)
                found.append(line);
        }
        return found;
    }

    QList<Line> lines;

private:
    inline static QList<Line>* s_lines = nullptr;
    QtMessageHandler m_former;
};
