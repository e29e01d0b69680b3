// The groups of commands. Each group has a file of its own that adds its commands to the parser; a new group is a new
// file, a line here and a line in main.
#pragma once

#include <CLI/CLI.hpp>

void AddIniCommands(CLI::App& app);
void AddLogCommands(CLI::App& app);
void AddFileCommands(CLI::App& app);
void AddPacketCommands(CLI::App& app);
void AddConvCommand(CLI::App& app);
void AddBase64Commands(CLI::App& app);
void AddMd5Command(CLI::App& app);
void AddZCommands(CLI::App& app);
void AddCabCommands(CLI::App& app);
void AddXmlCommands(CLI::App& app);
void AddJsonCommands(CLI::App& app);
void AddCertCommands(CLI::App& app);
void AddDerCommands(CLI::App& app);
void AddHttpCommands(CLI::App& app);
void AddPingCommand(CLI::App& app);
void AddNetCommands(CLI::App& app);
/// The commands of the group net about how devices are set up.
void AddNetConfigCommands(CLI::App& net);
void AddProcCommands(CLI::App& app);
void AddIpcCommands(CLI::App& app);
