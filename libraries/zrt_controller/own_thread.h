#pragma once

#include <QThread>
#include <QtDebug>

/// The thread that an object was made in, which alone may call it.
class OwnThread
{
public:
    explicit OwnThread(char const* className) : m_class(className) {}

    /// Whether this is that thread; logs a warning that names the @p call if not.
    bool isCurrent(char const* call) const
    {
        bool const answer = QThread::currentThread() == m_thread;
        if (!answer)
            qWarning("%s::%s: called from another thread", m_class, call);
        return answer;
    }

private:
    char const* const m_class;
    QThread const* const m_thread = QThread::currentThread();
};
