#include "zrt_backup.h"

#include <files/json_input.h>

#include <limits>

ZrtBackup readZrtBackup(QString const& fileName)
{
    QString const presets = QStringLiteral("presets");
    QString const parameters = QStringLiteral("parameters");
    auto const root = JsonInput::fromFile(fileName);
    root.allowKeys({presets, parameters});
    ZrtBackup backup;
    backup.presets = readZrtPresets(root.at(presets));
    if (root.has(parameters))
        backup.parameters = readZrtParameters(root.at(parameters));
    return backup;
}

QMap<QString, int> readZrtParameters(JsonInput const& input)
{
    QMap<QString, int> parameters;
    auto const keys = input.keys();
    for (auto const& key : keys)
        parameters.insert(key, static_cast<int>(input.at(key).toInteger(std::numeric_limits<int>::min(),
                                                                        std::numeric_limits<int>::max())));
    return parameters;
}
