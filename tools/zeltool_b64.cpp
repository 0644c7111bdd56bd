// zeltool b64 encode|decode [FILE|-]: Base64 of a file or of standard input, to standard output.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>

#include <zelutility/base64.h>

#include "commands.h"
#include "zeltool_input.h"

namespace {

struct B64Options {
  std::string input = "-";
};

// 0 written, 1 no input, an input too large for the library's lengths, or a failed write.
int RunB64(const B64Options& options, bool encode) {
  std::string bytes;
  if (!zeltool::ReadAll(options.input, bytes)) {
    std::fprintf(stderr, "zeltool b64: cannot read %s\n", options.input.c_str());
    return 1;
  }
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) / 4 * 3) {
    std::fprintf(stderr, "zeltool b64: %s is too large\n", options.input.c_str());
    return 1;
  }
  const int length = static_cast<int>(bytes.size());
  if (encode) {
    const CMRL_ByteString text = Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), length);
    std::fwrite(text.c_str(), 1, static_cast<std::size_t>(text.GetLength()), stdout);
    std::fputc('\n', stdout);
  } else {
    // The decoder ends at the first foreign byte, the final line break included.
    const CMRL_ByteString data = Base64Decode(bytes.data(), length);
    std::fwrite(data.c_str(), 1, static_cast<std::size_t>(data.GetLength()), stdout);
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace

void AddB64Command(CLI::App& app, int& exitCode) {
  CLI::App* command = app.add_subcommand("b64", "Base64 text of a file, or the bytes of a Base64 text");
  command->require_subcommand(1);
  for (const bool encode : {true, false}) {
    auto options = std::make_shared<B64Options>();
    CLI::App* direction = encode
        ? command->add_subcommand("encode", "Print the Base64 text of the input, one line")
        : command->add_subcommand("decode",
                                  "Write the bytes of the input's Base64 text; decoding stops at the "
                                  "first \"=\" or byte outside the alphabet, a line break included");
    direction->add_option("file", options->input, "Input file, or - for standard input")->capture_default_str();
    direction->callback([options, encode, &exitCode] { exitCode = RunB64(*options, encode); });
  }
}
