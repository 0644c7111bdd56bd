// zeltool: command-line front end over the zelutility public API.
#include <cstdio>
#include <string>

#include "commands.h"

namespace {

constexpr const char* kVersion = ZELTOOL_VERSION;

constexpr const char* kExitStatus =
    "Exit status: 0 done; 1 input refused (unreadable, undecodable or unparsable input, a refused "
    "colour text, ...); 2 usage (unknown command, bad options or option values, missing arguments).";

// The first word that is not an option names the command (zeltool has no option taking a
// value before it). Null when there is none or it is a real command, else that word.
const char* UnknownCommand(const CLI::App& app, int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.size() > 1 && word[0] == '-') continue;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
      if (sub->check_name(word)) return nullptr;
    return argv[i];
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"zeltool: JSON, colours, certificates, images and text through zelutility"};
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", std::string("zeltool ") + kVersion, "Print the version and exit");
  app.footer(kExitStatus);
  int exitCode = 0;
  AddJsonCommand(app, exitCode);
  AddColorCommand(app, exitCode);
  AddCertCommand(app, exitCode);
  AddB64Command(app, exitCode);
  AddPathCommand(app, exitCode);
  AddTextCommand(app, exitCode);
  AddClipCommand(app, exitCode);
  AddCompositeCommand(app, exitCode);
  AddDemoCommand(app, exitCode);
  AddConvertCommand(app, exitCode);
  AddEraseCommand(app, exitCode);
  if (const char* unknown = UnknownCommand(app, argc, argv)) {
    std::string names;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
      names += (names.empty() ? "" : ", ") + sub->get_name();
    std::fprintf(stderr, "zeltool: unknown command '%s'; commands: %s\n", unknown, names.c_str());
    return 2;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help and version are successes; every other parse failure is a usage error.
    return app.exit(e) == 0 ? 0 : 2;
  }
  return exitCode;
}
