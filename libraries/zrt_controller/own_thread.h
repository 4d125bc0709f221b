#pragma once

#include <QThread>

/// The thread that an object was made in, which alone may call it.
class OwnThread
{
public:
    bool isCurrent() const { return QThread::currentThread() == m_thread; }

private:
    QThread const* const m_thread = QThread::currentThread();
};
