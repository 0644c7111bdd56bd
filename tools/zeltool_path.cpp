// zeltool path info PATH: what a path is on disk, and the pieces the path functions cut from it.
#include <cstdio>
#include <memory>
#include <string>

#include <zelutility/file_info.h>
#include <zelutility/path.h>

#include "commands.h"

namespace {

std::string FlagWords(int flags) {
  if (flags == 0) return "missing";
  std::string words = "exists";
  if (flags & ZELFile_Regular) words += " file";
  if (flags & ZELFile_Directory) words += " directory";
  if (flags & ZELFile_Readable) words += " readable";
  if (flags & ZELFile_Writable) words += " writable";
  return words;
}

int RunPathInfo(const std::string& path) {
  const int flags = GetFileFlags(path.c_str());
  std::printf("flags: %d (%s)\n", flags, FlagWords(flags).c_str());
  std::printf("extension: %s\n", GetFileExt(path.c_str(), -1));
  std::printf("name: %s\n", GetFileName(path.c_str(), -1).c_str());
  std::printf("name with extension: %s\n", GetFileNameWithExt(path.c_str(), -1));
  return 0;
}

}  // namespace

void AddPathCommand(CLI::App& app, int& exitCode) {
  CLI::App* command = app.add_subcommand("path", "Path strings and file status");
  command->require_subcommand(1);
  auto path = std::make_shared<std::string>();
  CLI::App* info = command->add_subcommand(
      "info", "Print the file flags of PATH as words, then its extension, name and name with extension");
  info->add_option("path", *path, "A path with either separator")->required();
  info->callback([path, &exitCode] { exitCode = RunPathInfo(*path); });
}
