#include <plugin_management/i_command.h>

ICommand::ICommand() = default;
ICommand::~ICommand() = default;
