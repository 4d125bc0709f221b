#include "working_command.h"

#include "log_lines/log_lines.h"

#include <QDataStream>

namespace
{

QVariantMap eventWith(QVariantMap const& values)
{
    return {{"values"_s, values}};
}

} // namespace

/// The command "startListening" of the shipped library.
class TestCmdEventListen : public QObject
{
    Q_OBJECT

private slots:
    void course()
    {
        WorkingCommand listen("startListening"_s);
        QCOMPARE(listen.execute(), "listenEventsData"_s);
        for (int count = 1; count <= 2; ++count)
            QCOMPARE(listen.reply(eventWith({{"eventCountNo"_s, count}})),
                     "eventData = {eventCountNo: %1, serialNumber: \"\", toolName: \"\", "
                     "validityDate: \"\"}"_s.arg(count));
        QCOMPARE(listen.finish(), "withdrew listenEventsData; ended well"_s);
        QCOMPARE(listen.reply(eventWith({})), "dropped; refused"_s);
    }

    void tool_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QStringList>("texts");
        auto const row = [](char const* rule, QVariant const& number, QVariant const& date,
                            QVariant const& name, QStringList const& texts) {
            QTest::newRow(rule) << QVariantMap{{"serialNumber"_s, number},
                                               {"validityDate"_s, date},
                                               {"name"_s, name}}
                                << texts;
        };
        row("texts", "SN-7"_s, "2027-01-31"_s, "left"_s, {"SN-7"_s, "2027-01-31"_s, "left"_s});
        row("what can be a text", 7, QDate(2027, 1, 31), true, {"7"_s, "2027-01-31"_s, "true"_s});
        row("what cannot be a text", {}, QVariantList{1}, QVariantMap{{"a"_s, 1}}, {{}, {}, {}});
    }

    // Each event tells of the tool, as texts, whatever the controller says of it.
    void tool()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QStringList, texts);
        WorkingCommand listen("startListening"_s, parameters);
        listen.execute();
        QCOMPARE(listen.reply(eventWith({{"serialNumber"_s, 1}, {"validityDate"_s, 2}, {"toolName"_s, 3}})),
                 "eventData = {serialNumber: \"%1\", toolName: \"%3\", validityDate: \"%2\"}"_s.arg(
                     texts[0], texts[1], texts[2]));
    }

    // What is no value at all and a text without a character differ for who writes results down.
    void nullTextIsPublishedAsText()
    {
        auto const written = [](QVariant const& value) {
            QByteArray bytes;
            QDataStream stream(&bytes, QIODevice::WriteOnly);
            stream << value;
            return bytes;
        };
        QVariant const null(QVariant::String);
        WorkingCommand listen("startListening"_s,
                              {{"serialNumber"_s, null}, {"validityDate"_s, null}, {"name"_s, null}});
        listen.execute();
        listen.reply(eventWith({}));
        auto const published = listen.object().result("eventData"_s).toMap();
        QCOMPARE(published.size(), 3);
        for (auto const& text : published)
            QCOMPARE(written(text), written(QString()));
    }

    void namedErrors()
    {
        QMap<int, QString> names;
        for (auto const& error : controllerErrors())
            names[error.code] = QString::fromUtf8(error.text);
        WorkingCommand listen("startListening"_s, {{"name"_s, "left bench"_s}});
        listen.execute();
        for (int code = -400; code <= 400; ++code) {
            QString course = "eventData = {error: %1, serialNumber: \"\", toolName: \"left bench\", "
                             "validityDate: \"\"}"_s.arg(code);
            if (names.contains(code))
                course.prepend("ZRT screwdriver  \"left bench\"  error code  %1 :  \"%2\"; "_s.arg(code).arg(
                    names[code]));
            QCOMPARE(listen.reply(eventWith({{"error"_s, code}})), course);
        }
    }

    void message_data()
    {
        addReplyColumns();
        QString const tool = ", serialNumber: \"\", toolName: \"\", validityDate: \"\"}"_s;
        QString const info = "ZRT screwdriver  \"\"  error code  342 :  \"Holding time max angle\"; "_s;
        addReply("a text is read, and published as it is", eventWith({{"error"_s, "342"_s}}),
                 info + "eventData = {error: \"342\""_s + tool);
        addReply("a fraction is cut", eventWith({{"error"_s, 342.9}}),
                 info + "eventData = {error: double 342.9"_s + tool);
        addReply("what is no number is no error", eventWith({{"error"_s, "E342"_s}}),
                 "eventData = {error: \"E342\""_s + tool);
        addReply("an event without values is refused", {{"error"_s, 342}},
                 "ERROR: Invalid reply format; refused"_s);
        addReply("values that are no map are not published", {{"values"_s, "a"_s}},
                 "ERROR: Reply data format not managed, received type : QString , "
                 "values = QVariant(QString, \"a\")"_s);
    }

    void message()
    {
        QFETCH(QVariantMap, reply);
        QFETCH(QString, course);
        WorkingCommand listen("startListening"_s);
        listen.execute();
        QCOMPARE(listen.reply(reply), course);
        // It goes on after whatever.
        QVERIFY(listen.reply(eventWith({})).startsWith("eventData"_s));
    }
};

QTEST_GUILESS_MAIN(TestCmdEventListen)
#include "tst_cmd_event_listen.moc"
