#include "d_zrt_tool_channel.h"

DZrtToolChannel::DZrtToolChannel(QObject* parent) : DObject(QStringLiteral("DZrtToolChannel"), parent) {}

DZrtToolChannel::~DZrtToolChannel() = default;
