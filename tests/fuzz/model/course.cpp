#include "course.h"

#include "literals.h"

#include "talk.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <optional>

namespace
{

ZrtState state()
{
    ZrtState state;
    state.presets.insert(3, {});
    state.screws = {ZrtScrew::Stripped, ZrtScrew::Good};
    return state;
}

/// A command takes of these what it knows.
QMap<QString, QVariant> parameters()
{
    return {{"name"_s, "left bench"_s},
            {"serialNumber"_s, "SN-7"_s},
            {"validityDate"_s, "2027-01-31"_s},
            {"program"_s, 3},
            {"prog"_s, 3},
            {"filePath"_s, QStringLiteral(BACKUP_FILE)},
            {"startPreset"_s, 1},
            {"endPreset"_s, 3}};
}

class Run
{
public:
    Run(TalkHost& host, DAbstractPlugin const& tool, QString const& command, Trouble const& trouble)
        : m_trouble(trouble)
        , m_device(ZrtSimulatedController::create({state(), {}, true, {}}, m_clock))
        , m_talk(host, tool, command, parameters())
    {
        m_course.isListening = !m_talk.stopName().isEmpty();
        for (int const pull : Course::c_pulls)
            m_clock.after(pull, [this] { m_device->pullTrigger(); });
        if (m_course.isListening)
            m_clock.after(Course::c_stop, [this] { call(&Talk::finish, true); });
        call(&Talk::execute);
        while (m_clock.step()) {
        }
        if (m_trouble.kind == Trouble::Repeated)
            call(&Talk::reply, m_troubledId, m_course.sent[m_trouble.instruction].replies.value(0));
    }

    Course const& course() const { return m_course; }

private:
    /// Calls the command, if it is still there, and carries what comes of it to the controller.
    template <class... Parameter, class... Argument>
    void call(void (Talk::*method)(Parameter...), Argument const&... argument)
    {
        if (!m_talk.isAlive())
            return;
        (m_talk.*method)(argument...);
        Effects const effects = m_talk.effects();
        m_course.results += effects.results;
        m_course.errors += effects.errors.size();
        m_course.ends += effects.ends;
        for (auto const& post : effects.posts)
            send(post);
        for (auto const id : effects.withdrawn)
            m_device->withdraw(id);
    }

    void send(Post const& post)
    {
        int const number = m_course.sent.size();
        m_course.sent += {post.name, post.arguments, {}};
        bool const isTroubled = m_trouble.kind != Trouble::None && number == m_trouble.instruction;
        quint64 const id = post.id;
        if (isTroubled)
            m_troubledId = id;
        if (isTroubled && m_trouble.kind == Trouble::GoneBefore)
            m_device->setConnected(false);
        if (!m_device->isConnected() || (isTroubled && m_trouble.kind == Trouble::Undelivered)) {
            m_clock.after(0, [this, id] { call(&Talk::instructionFailed, id); });
            return;
        }
        m_device->post(id, post.name, post.arguments,
                       [this, id, number, isTroubled](QVariantMap const& reply) {
                           if (isTroubled)
                               arriveInTrouble(id, reply);
                           else
                               call(&Talk::reply, id, reply);
                           m_course.sent[number].replies += reply;
                       });
        // Behind the reply: one that takes exactly the allowance is in time.
        m_clock.after(Talk::c_timeAllowance, [this, id] { call(&Talk::allowancePassed, id); });
        if (isTroubled)
            m_clock.after(Course::c_underway, [this, id] { apply(id); });
    }

    /// The instruction has reached the controller, and no reply is there yet.
    void apply(quint64 id)
    {
        switch (m_trouble.kind) {
        case Trouble::Gone:
            m_device->setConnected(false);
            break;
        case Trouble::GoneAndBack:
            m_device->setConnected(false);
            m_clock.after(Course::c_away, [this] { m_device->setConnected(true); });
            break;
        case Trouble::Released:
            if (m_talk.isAlive())
                m_talk.release();
            m_talk.allowancePassed(id);
            m_talk.instructionFailed(id);
            break;
        case Trouble::Finished:
            call(&Talk::finish, true);
            break;
        case Trouble::Unlinked:
            m_talk.takeOrder();
            break;
        case Trouble::ExecutedAgain:
            call(&Talk::execute);
            break;
        default:
            break;
        }
    }

    void arriveInTrouble(quint64 id, QVariantMap const& reply)
    {
        bool const isFirst = m_course.sent[m_trouble.instruction].replies.isEmpty();
        switch (m_trouble.kind) {
        case Trouble::Lost:
            break;
        case Trouble::Late:
            m_clock.after(Course::c_late, [this, id, reply] { call(&Talk::reply, id, reply); });
            break;
        case Trouble::Twice:
            call(&Talk::reply, id, reply);
            call(&Talk::reply, id, reply);
            break;
        case Trouble::HeldBack:
            m_clock.after(isFirst ? Course::c_held : 0, [this, id, reply] { call(&Talk::reply, id, reply); });
            break;
        case Trouble::Changed:
            call(&Talk::reply, id, m_trouble.onlyFirst && !isFirst ? reply : m_trouble.change(reply));
            break;
        default:
            call(&Talk::reply, id, reply);
            break;
        }
    }

    Trouble const& m_trouble;
    quint64 m_troubledId = 0;
    Course m_course;
    ZrtClock m_clock;
    std::unique_ptr<ZrtSimulatedController> const m_device;
    Talk m_talk;
};

void addPaths(QVariant const& value, Path const& path, QList<Path>& paths)
{
    if (!path.isEmpty() && !paths.contains(path))
        paths += path;
    if (value.userType() == QMetaType::QVariantMap) {
        auto const map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            addPaths(*it, path + Path{it.key()}, paths);
    } else if (value.userType() == QMetaType::QVariantList) {
        auto const list = value.toList();
        if (!list.isEmpty())
            addPaths(list.first(), path + Path{"0"_s}, paths);
    }
}

/// The value with another one inside, or with none there.
QVariant changed(QVariant const& value, Path const& path, std::optional<QVariant> const& other)
{
    if (path.isEmpty())
        return other.value_or(value);
    bool const isRemoved = path.size() == 1 && !other;
    if (value.userType() == QMetaType::QVariantMap) {
        auto map = value.toMap();
        if (!map.contains(path.first()))
            return value;
        if (isRemoved)
            map.remove(path.first());
        else
            map[path.first()] = changed(map[path.first()], path.mid(1), other);
        return map;
    }
    if (value.userType() == QMetaType::QVariantList) {
        auto list = value.toList();
        if (list.isEmpty())
            return value;
        if (isRemoved)
            list.removeFirst();
        else
            list[0] = changed(list[0], path.mid(1), other);
        return list;
    }
    return value;
}

} // namespace

Course Course::run(TalkHost& host, DAbstractPlugin const& tool, QString const& command,
                   Trouble const& trouble)
{
    return Run(host, tool, command, trouble).course();
}

QList<Path> pathsOf(QList<QVariantMap> const& replies)
{
    QList<Path> paths;
    for (auto const& reply : replies)
        addPaths(reply, {}, paths);
    return paths;
}

QVariantMap without(QVariantMap const& reply, Path const& path)
{
    return changed(reply, path, std::nullopt).toMap();
}

QVariantMap with(QVariantMap const& reply, Path const& path, QVariant const& value)
{
    return changed(reply, path, value).toMap();
}

QVector<Trouble> troublesOnTheWay()
{
    auto const refused = [](QVariantMap const& /*reply*/) { return QVariantMap{{"error"_s, "refused"_s}}; };
    return {{"lost"_s, Trouble::Lost},
            {"late"_s, Trouble::Late},
            {"twice"_s, Trouble::Twice},
            {"out of order"_s, Trouble::HeldBack},
            {"refused"_s, Trouble::Changed, refused},
            {"not delivered"_s, Trouble::Undelivered},
            {"gone, and back"_s, Trouble::GoneAndBack}};
}
