// zeltool: command-line front end over the zelutility public API.
#include "commands.h"

int main(int argc, char** argv) {
  CLI::App app{"zeltool: JSON, colours, certificates, images and text through zelutility"};
  app.require_subcommand(1);
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
  CLI11_PARSE(app, argc, argv);
  return exitCode;
}
