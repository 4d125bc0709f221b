#pragma once

#include <memory>

class PluginLibrary;
class Tool;
class Workstation;

/// Makes the workplace's tool from a library; its identity is the same in every run. What is wrong with the
/// library is an InputError that names its file.
std::unique_ptr<Tool> makeTool(PluginLibrary& library, Workstation& workstation);
