// Subcommands and tour steps of the vtcore tool.
//
// A file tools/vtcore/cmd_<area>.cpp defines its subcommands and tour steps
// and registers them with static registrar objects:
//
//   static vtcore::cli::Register reg{{"crc32", "[FILE|-]", "CRC-32 of a file", runCrc32}};
//   static vtcore::cli::TourStep step{40, "Checksums", tourChecksums};
//
// A command receives its arguments after the subcommand name and returns the
// process exit status (0 success, 1 failure, 2 bad usage).
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vtcore::cli {

using Args = std::span<const std::string>;

struct Command {
  std::string name;     // subcommand, e.g. "crc32"
  std::string synopsis; // arguments, e.g. "[FILE|-]"
  std::string summary;  // one line for the command list
  std::function<int(Args)> run;
};

/// Registers a subcommand at static-initialisation time.
struct Register {
  explicit Register(Command command);
};

/// Registers a step of `vtcore tour`; steps run in ascending `order`.
struct TourStep {
  TourStep(int order, std::string title, std::function<void()> run);
};

/// Prints "usage: vtcore <name> <synopsis>" for `name` to standard error and
/// returns 2, the exit status for bad usage.
int usage(std::string_view name);

/// Prints "vtcore <name>: <message>" to standard error and returns 1.
int fail(std::string_view name, std::string_view message);

/// Reads all of standard input (binary-safe).
std::string readStandardInput();

/// Joins the arguments with single blanks, or reads standard input when
/// there are none (trailing line feed removed): the usual input rule of the
/// text subcommands.
std::string argumentsOrStandardInput(Args args);

} // namespace vtcore::cli
