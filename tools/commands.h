#ifndef ZELTOOL_COMMANDS_H_
#define ZELTOOL_COMMANDS_H_

#include <CLI/CLI.hpp>

// Each command lives in its own file and adds itself to the application here.
// The callback it installs sets the process exit code through the shared integer.
void AddJsonCommand(CLI::App& app, int& exitCode);
void AddColorCommand(CLI::App& app, int& exitCode);
void AddCertCommand(CLI::App& app, int& exitCode);
void AddB64Command(CLI::App& app, int& exitCode);
void AddPathCommand(CLI::App& app, int& exitCode);
void AddTextCommand(CLI::App& app, int& exitCode);
void AddClipCommand(CLI::App& app, int& exitCode);
void AddCompositeCommand(CLI::App& app, int& exitCode);
void AddDemoCommand(CLI::App& app, int& exitCode);
void AddConvertCommand(CLI::App& app, int& exitCode);
void AddEraseCommand(CLI::App& app, int& exitCode);

#endif  // ZELTOOL_COMMANDS_H_
