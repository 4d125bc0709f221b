#pragma once

#include "literals.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <mutex>
#include <unordered_set>

// Qt's own door for tools that watch objects; what stands at which place is fixed.
extern "C" Q_CORE_EXPORT quintptr qtHookData[];

/// All QObjects that were made since it was, in any thread, and are there still. One at a time.
class LivingObjects
{
public:
    LivingObjects()
    {
        s_current = this;
        qtHookData[c_addObject] = reinterpret_cast<quintptr>(static_cast<Hook>([](QObject* object) {
            std::lock_guard const lock(s_current->m_mutex);
            s_current->m_objects.insert(object);
        }));
        qtHookData[c_removeObject] = reinterpret_cast<quintptr>(static_cast<Hook>([](QObject* object) {
            std::lock_guard const lock(s_current->m_mutex);
            s_current->m_objects.erase(object);
        }));
    }
    ~LivingObjects()
    {
        qtHookData[c_addObject] = 0;
        qtHookData[c_removeObject] = 0;
        s_current = nullptr;
    }
    LivingObjects(LivingObjects const&) = delete;
    LivingObjects& operator=(LivingObjects const&) = delete;

    /// How many there are of each class; those that QML makes of a document by the document's name.
    QMap<QString, int> byClass() const
    {
        std::lock_guard const lock(m_mutex);
        QMap<QString, int> counts;
        for (auto const* const object : m_objects) {
            QString const name = QString::fromLatin1(object->metaObject()->className());
            ++counts[name.left(name.indexOf(QLatin1String("_QML")))];
        }
        return counts;
    }

private:
    using Hook = void (*)(QObject*);
    static constexpr int c_addObject = 3;
    static constexpr int c_removeObject = 4;

    inline static LivingObjects* s_current = nullptr;
    mutable std::mutex m_mutex;
    std::unordered_set<QObject*> m_objects;
};

/// What is more, or less, in the second count than in the first: "+2 QTimer, -1 QQuickItem"; empty if nothing
/// is.
inline QString differences(QMap<QString, int> const& before, QMap<QString, int> const& after)
{
    QStringList found;
    QStringList names = before.keys() + after.keys();
    names.removeDuplicates();
    for (auto const& name : qAsConst(names)) {
        int const more = after.value(name) - before.value(name);
        if (more != 0)
            found += (more > 0 ? "+%1 %2"_s : "%1 %2"_s).arg(more).arg(name);
    }
    return found.join(", "_s);
}
