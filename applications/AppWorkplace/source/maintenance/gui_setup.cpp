#include "gui_setup.h"

#include <QCoreApplication>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTranslator>

namespace
{

// Material is made for fingers. A page of three fields needs no graphics card, and a station may have none.
void chooseLook()
{
    QQuickStyle::setStyle(QStringLiteral("Material"));
    QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
}

// Pages name their texts by ids; without a translation the ids would be shown.
void installPageTexts()
{
    auto* const texts = new QTranslator(QCoreApplication::instance());
    if (texts->load(QStringLiteral(":/applications/AppWorkplace/page_texts.qm")))
        QCoreApplication::installTranslator(texts);
}

// Qt keeps compiled pages on the disk. It crashes when it reads one that was cut off because the disk was
// full. The few pages here are compiled as quickly as they are read.
void keepNoCompiledPages()
{
    qputenv("QML_DISABLE_DISK_CACHE", "1");
}

} // namespace

void setUpGui()
{
    Q_INIT_RESOURCE(gui);
    Q_INIT_RESOURCE(page_texts);
    chooseLook();
    keepNoCompiledPages();
    installPageTexts();
}
