#pragma once

#include <QUuid>

#include <memory>

class PluginLibrary;
class Tool;
class Workstation;

/// Makes a tool from a library. What is wrong with the library is an InputError that names its file.
std::unique_ptr<Tool> makeTool(PluginLibrary& library, QUuid const& objectUuid, Workstation& workstation);
