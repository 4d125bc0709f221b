#include "zrt_setup.h"

#include "input/json_input.h"

namespace
{

constexpr int c_longestReplyTime = 600'000;

void readText(JsonInput const& object, QString const& key, QString& text)
{
    if (object.has(key))
        text = object.at(key).toText();
}

void readBool(JsonInput const& object, QString const& key, bool& value)
{
    if (object.has(key))
        value = object.at(key).toBool();
}

void readInteger(JsonInput const& object, QString const& key, int lowest, int highest, int& number)
{
    if (object.has(key))
        number = static_cast<int>(object.at(key).toInteger(lowest, highest));
}

} // namespace

ZrtSetup readZrtSetup(QString const& fileName)
{
    QString const identity = QStringLiteral("identity");
    QString const model = QStringLiteral("model");
    QString const serialNumber = QStringLiteral("serialNumber");
    QString const firmware = QStringLiteral("firmware");
    QString const lock = QStringLiteral("lock");
    QString const screenLocked = QStringLiteral("screenLocked");
    QString const connected = QStringLiteral("connected");
    QString const replyTime = QStringLiteral("replyTime");

    auto const root = JsonInput::fromFile(fileName);
    root.allowKeys({identity, lock, screenLocked, connected, replyTime});

    ZrtSetup setup;
    if (root.has(identity)) {
        auto const given = root.at(identity);
        given.allowKeys({model, serialNumber, firmware});
        readText(given, model, setup.state.model);
        readText(given, serialNumber, setup.state.serialNumber);
        readText(given, firmware, setup.state.firmware);
    }
    readInteger(root, lock, ZrtState::Free, ZrtState::LooseningLocked, setup.state.lock);
    readBool(root, screenLocked, setup.state.isScreenLocked);
    readBool(root, connected, setup.isConnected);
    readInteger(root, replyTime, 0, c_longestReplyTime, setup.replyTime);
    return setup;
}
