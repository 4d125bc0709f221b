// Gives a tool any name and any id, and opens its maintenance page: the page must be the one that the plugin
// has, with the two as they are in it.

#include "be_maintenance_plugin.h"
#include "byte_reader.h"
#include "check.h"
#include "literals.h"
#include "p_tool_vesk_zrt.h"

#include "maintenance/page_document.h"

#include <QFile>
#include <QGuiApplication>
#include <QJSValue>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QUrl>

#include <cctype>
#include <memory>

namespace
{

constexpr int c_mostPieces = 24;
constexpr int c_pagesOfAnEngine = 50;

/// Where the page stands, and its imports with it: beside the components of a host that has no look.
QUrl const c_place =
    QUrl::fromLocalFile(QStringLiteral(OTHER_HOST "/plugins/zrt/resource/maintenance_panel.qml"));

/// A name out of what could be taken for something else, and of anything.
QString anyName(ByteReader& bytes)
{
    static QStringList const pieces{"\""_s,
                                    "\\"_s,
                                    "'"_s,
                                    "`"_s,
                                    "\n"_s,
                                    "\r"_s,
                                    QString(QChar(QChar::LineSeparator)),
                                    QString(QChar(QChar::Null)),
                                    "{OBJECT_NAME}"_s,
                                    "{OBJECT_ID}"_s,
                                    "{"_s,
                                    "}"_s,
                                    "${"_s,
                                    "//"_s,
                                    "/*"_s,
                                    "*/"_s,
                                    ";"_s,
                                    "\\u0022"_s,
                                    "application.setConfigChanged()"_s,
                                    "objectId: "_s,
                                    "BeMaintenanceToolZrt { name: \"\" }"_s,
                                    "left bench"_s};
    QString name;
    for (int left = bytes.below(c_mostPieces); left > 0; --left) {
        int const choice = bytes.below(static_cast<int>(pieces.size()) + 8);
        name += choice < pieces.size() ? pieces[choice] : QString(QChar(bytes.number<ushort>()));
    }
    return name;
}

/// What a string of the document says; it must not need to know more of QML than this.
QString read(QByteArray const& string)
{
    constexpr int codeLength = 6;
    QString text;
    for (int i = 0; i < string.size();) {
        char const c = string[i];
        check(c >= ' ' && c <= '~' && c != '"' && c != '{' && c != '}',
              [&] { return "a bare character %1"_s.arg(static_cast<uchar>(c)); });
        if (c != '\\') {
            text += QLatin1Char(c);
            ++i;
            continue;
        }
        QByteArray const code = string.mid(i, codeLength);
        bool isCode = false;
        ushort const number = code.mid(2).toUShort(&isCode, 16);
        check(isCode && code.size() == codeLength && code[1] == 'u' && std::isxdigit(code[2]) != 0,
              [&] { return "an odd escape "_s + QString::fromLatin1(code); });
        text += QChar(number);
        i += codeLength;
    }
    return text;
}

/// Takes the document apart at what the page has around its placeholders.
void checkText(QByteArray const& document, QString const& name, QString const& id)
{
    static QByteArray const page = [] {
        QFile file(":/{fe68f24c-ac43-4833-abc7-7d9f33744448}/maintenance_panel.qml"_s);
        static_cast<void>(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }();
    QByteArray const namePlace = "{OBJECT_NAME}";
    QByteArray const idPlace = "{OBJECT_ID}";
    QByteArray const before = page.left(page.indexOf(namePlace));
    QByteArray const after = page.mid(page.indexOf(idPlace) + idPlace.size());
    QByteArray const between =
        page.mid(before.size() + namePlace.size(), page.indexOf(idPlace) - before.size() - namePlace.size());
    check(document.startsWith(before) && document.endsWith(after),
          [] { return "the page around the placeholders is another"_s; });
    QByteArray const inside = document.mid(before.size(), document.size() - before.size() - after.size());
    // No name can hold what stands between the two, for it has quotes.
    int const end = inside.indexOf(between);
    check(end >= 0, [] { return "the page between the placeholders is another"_s; });
    check(read(inside.left(end)) == name, [] { return "the document has another name"_s; });
    check(read(inside.mid(end + between.size())) == id, [] { return "the document has another id"_s; });
}

/// A host's engine, with an `application` that counts its calls.
class Engine
{
public:
    Engine()
    {
        m_engine.setOutputWarningsToStandardError(false);
        QObject::connect(&m_engine, &QQmlEngine::warnings, [](QList<QQmlError> const& warnings) {
            for (auto const& warning : warnings) {
                QString const text = warning.toString();
                // The backend tells of a change whenever it is read.
                check(text.contains(QLatin1String("Binding loop detected")),
                      [&] { return "the engine warns: "_s + text; });
            }
        });
        m_application = m_engine.evaluate(R"(({
            ids: [], saves: 0, changes: 0,
            updatePluginParameters: function(id, parameters) { this.ids.push(id) },
            saveMaintenanceToFile: function() { this.saves++ },
            setConfigChanged: function() { this.changes++ }
        }))"_s);
        m_engine.globalObject().setProperty("application"_s, m_application);
    }

    void openAndClose(QByteArray const& document, QString const& name, QString const& id)
    {
        QQmlComponent component(&m_engine);
        component.setData(document, c_place);
        std::unique_ptr<QObject> page(component.create());
        check(page != nullptr, [&] { return "no page: "_s + component.errorString(); });
        auto const backends = page->findChildren<BeMaintenanceToolZrt*>();
        check(backends.size() == 1, [&] { return "%1 backends"_s.arg(backends.size()); });
        check(backends[0]->property("name").toString() == name, [] { return "another name"_s; });
        check(backends[0]->property("objectId").toString() == id, [] { return "another id"_s; });
        check(page->property("name").toString() == name, [] { return "another title"_s; });
        page.reset();

        QJSValue ids = m_application.property("ids"_s);
        check(ids.property("length"_s).toInt() == 1 && ids.property(0).toString() == id && count("saves") == 1
                  && count("changes") == 0,
              [] { return "other calls than those of a page that is closed"_s; });
        m_application.setProperty("ids"_s, m_engine.newArray());
        m_application.setProperty("saves"_s, 0);
    }

private:
    int count(char const* key) const { return m_application.property(QString::fromLatin1(key)).toInt(); }

    QQmlEngine m_engine;
    QJSValue m_application;
};

} // namespace

// The leak detector does not see what the engine's own heap holds; the limit for memory has to do.
extern "C" int __lsan_is_turned_off() // NOLINT(bugprone-reserved-identifier): the detector's name for it
{
    return 1;
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication const application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static PToolVeskZrt const plugin{QUuid()};
    // An engine keeps something of each document, so that one has to make room for the next now and then.
    static std::unique_ptr<Engine> engine;
    static int pages = 0;
    if (pages++ % c_pagesOfAnEngine == 0)
        engine = std::make_unique<Engine>();

    ByteReader bytes(data, size);
    QString const name = anyName(bytes);
    QString const id = anyName(bytes);
    auto const document = pageDocument(plugin, name, id);
    checkText(document.text, name, id);
    engine->openAndClose(document.text, name, id);
    return 0;
}
