// Gives a tool any name and any id, and opens its maintenance page: the page must be the one that the plugin
// has, with the two as they are in it.

#include "be_maintenance_plugin.h"
#include "byte_reader.h"
#include "check.h"
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
    static QStringList const pieces{
        QStringLiteral("\""),
        QStringLiteral("\\"),
        QStringLiteral("'"),
        QStringLiteral("`"),
        QStringLiteral("\n"),
        QStringLiteral("\r"),
        QString(QChar(QChar::LineSeparator)),
        QString(QChar(QChar::Null)),
        QStringLiteral("{OBJECT_NAME}"),
        QStringLiteral("{OBJECT_ID}"),
        QStringLiteral("{"),
        QStringLiteral("}"),
        QStringLiteral("${"),
        QStringLiteral("//"),
        QStringLiteral("/*"),
        QStringLiteral("*/"),
        QStringLiteral(";"),
        QStringLiteral("\\u0022"),
        QStringLiteral("application.setConfigChanged()"),
        QStringLiteral("objectId: "),
        QStringLiteral("BeMaintenanceToolZrt { name: \"\" }"),
        QStringLiteral("left bench"),
    };
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
              [&] { return QStringLiteral("a bare character %1").arg(static_cast<uchar>(c)); });
        if (c != '\\') {
            text += QLatin1Char(c);
            ++i;
            continue;
        }
        QByteArray const code = string.mid(i, codeLength);
        bool isCode = false;
        ushort const number = code.mid(2).toUShort(&isCode, 16);
        check(isCode && code.size() == codeLength && code[1] == 'u' && std::isxdigit(code[2]) != 0,
              [&] { return QStringLiteral("an odd escape ") + QString::fromLatin1(code); });
        text += QChar(number);
        i += codeLength;
    }
    return text;
}

/// Takes the document apart at what the page has around its placeholders.
void checkText(QByteArray const& document, QString const& name, QString const& id)
{
    static QByteArray const page = [] {
        QFile file(QStringLiteral(":/{fe68f24c-ac43-4833-abc7-7d9f33744448}/maintenance_panel.qml"));
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
          [] { return QStringLiteral("the page around the placeholders is another"); });
    QByteArray const inside = document.mid(before.size(), document.size() - before.size() - after.size());
    // No name can hold what stands between the two, for it has quotes.
    int const end = inside.indexOf(between);
    check(end >= 0, [] { return QStringLiteral("the page between the placeholders is another"); });
    check(read(inside.left(end)) == name, [] { return QStringLiteral("the document has another name"); });
    check(read(inside.mid(end + between.size())) == id,
          [] { return QStringLiteral("the document has another id"); });
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
                      [&] { return QStringLiteral("the engine warns: ") + text; });
            }
        });
        m_application = m_engine.evaluate(QStringLiteral(R"(({
            ids: [], saves: 0, changes: 0,
            updatePluginParameters: function(id, parameters) { this.ids.push(id) },
            saveMaintenanceToFile: function() { this.saves++ },
            setConfigChanged: function() { this.changes++ }
        }))"));
        m_engine.globalObject().setProperty(QStringLiteral("application"), m_application);
    }

    void openAndClose(QByteArray const& document, QString const& name, QString const& id)
    {
        QQmlComponent component(&m_engine);
        component.setData(document, c_place);
        std::unique_ptr<QObject> page(component.create());
        check(page != nullptr, [&] { return QStringLiteral("no page: ") + component.errorString(); });
        auto const backends = page->findChildren<BeMaintenanceToolZrt*>();
        check(backends.size() == 1, [&] { return QStringLiteral("%1 backends").arg(backends.size()); });
        check(backends[0]->property("name").toString() == name,
              [] { return QStringLiteral("another name"); });
        check(backends[0]->property("objectId").toString() == id,
              [] { return QStringLiteral("another id"); });
        check(page->property("name").toString() == name, [] { return QStringLiteral("another title"); });
        page.reset();

        QJSValue ids = m_application.property(QStringLiteral("ids"));
        check(ids.property(QStringLiteral("length")).toInt() == 1 && ids.property(0).toString() == id
                  && count("saves") == 1 && count("changes") == 0,
              [] { return QStringLiteral("other calls than those of a page that is closed"); });
        m_application.setProperty(QStringLiteral("ids"), m_engine.newArray());
        m_application.setProperty(QStringLiteral("saves"), 0);
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
