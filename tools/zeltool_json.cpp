// zeltool json [FILE|-] [--decimals N]: parses a JSON text and prints it back compact.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include <zelutility/json_factory.h>

#include "commands.h"
#include "zeltool_input.h"

namespace {

struct JsonOptions {
  std::string input = "-";
  int decimals = 0;
  bool hasDecimals = false;
};

// 0 printed, 1 no input or the library refused the text (its own line is already on stdout).
int RunJson(const JsonOptions& options) {
  std::string bytes;
  if (!zeltool::ReadAll(options.input, bytes)) {
    std::fprintf(stderr, "zeltool json: cannot read %s\n", options.input.c_str());
    return 1;
  }
  if (bytes.size() >= std::numeric_limits<unsigned int>::max()) {
    std::fprintf(stderr, "zeltool json: %s is too large\n", options.input.c_str());
    return 1;
  }
  const std::shared_ptr<ZELJson> root = ZELJsonFactory::ParseJsonString(
      bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr);
  if (!root) return 1;
  ZELJsonFactory::BuildConfig config;
  if (options.hasDecimals) config.SetMaxDecimalPlaces(options.decimals);
  const CMRL_ByteString text = ZELJsonFactory::BuildJsonString(root, &config);
  std::fwrite(text.c_str(), 1, static_cast<size_t>(text.GetLength()), stdout);
  std::fputc('\n', stdout);
  return 0;
}

}  // namespace

void AddJsonCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<JsonOptions>();
  CLI::App* command =
      app.add_subcommand("json", "Parse a JSON text (an array or an object) and print it compact");
  command->add_option("file", options->input, "JSON file, or - for standard input")
      ->capture_default_str();
  command->add_option("--decimals", options->decimals,
                      "Most digits after the decimal point of floating-point numbers (cut, not "
                      "rounded; below 1 acts as 1)");
  command->callback([options, command, &exitCode] {
    options->hasDecimals = command->count("--decimals") > 0;
    exitCode = RunJson(*options);
  });
}
