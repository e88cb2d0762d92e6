// Subcommands and tour steps of the vtcore tool.
//
// A file tools/vtcore/cmd_<area>.cpp defines its subcommands and tour steps
// and registers them with static registrar objects:
//
//   static vtcore::cli::Register reg{{"crc32", "[FILE|-]", "CRC-32 of a file", {}, runCrc32}};
//   static vtcore::cli::TourStep step{40, "Checksums", tourChecksums};
//
// Every command's arguments go through one parser (Invocation) that knows
// the command's options, and every number through one reader
// (integerArgument), so that all subcommands agree on what an option, an
// operand and a number look like. A command returns the process exit
// status (0 success, 1 failure, 2 bad usage); a bad argument throws
// UsageError, which the tool turns into a message and status 2.
#pragma once

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vtcore::cli {

using Args = std::span<const std::string>;

/// An option of a subcommand, written "--name", "--name VALUE",
/// "--name=VALUE" or, with a short name, "-n VALUE".
struct Option {
  std::string name;   // long name without the dashes, e.g. "style"
  char shortName = 0; // e.g. 'i', or 0 for none
  std::string value;  // what the value is, e.g. "N"; empty for a switch
  std::string help;   // one line for `vtcore help <command>`
};

class Invocation;

struct Command {
  std::string name;     // subcommand, e.g. "crc32"
  std::string synopsis; // arguments, e.g. "[FILE|-]"
  std::string summary;  // one line for the command list
  std::vector<Option> options;
  // Plain function pointers, not std::function: the call chains that the
  // tour's leak report and exception report print stay free of wrapper
  // frames.
  int (*run)(const Invocation&);
  // The rest of `vtcore help <command>`, the man page and the completion:
  // what the operands mean, the styles and values a command knows, what its
  // exit status says. Paragraphs are separated by blank lines; lines that
  // start with two blanks are shown as they are.
  std::string details;
  // Words that complete the first operand (actions, formats).
  std::vector<std::string> words;
};

/// The commands in name order (for the help, the man page, the completion).
std::vector<const Command*> allCommands();
/// The command called `name`, or null.
const Command* findCommand(std::string_view name);

/// Registers a subcommand at static-initialisation time.
struct Register {
  explicit Register(Command command);
};

/// Registers a step of `vtcore tour`; steps run in ascending `order`.
struct TourStep {
  TourStep(int order, std::string title, void (*run)());
};

/// Bad usage: a missing or unknown argument or a bad value. The tool prints
/// "vtcore <command>: <message>" and the command's usage line and exits 2.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// The arguments of one run of a command, split into options and operands by
/// the command's option list. Options may stand anywhere; "--" ends them;
/// "-" and negative numbers ("-5") are operands.
class Invocation {
public:
  /// Throws UsageError on an unknown option or a missing value.
  Invocation(const Command& command, Args args);

  const std::string& name() const { return m_command.name; }
  /// Whether -h or --help was given: the command then only prints its help.
  bool helpRequested() const { return m_help; }
  const std::vector<std::string>& operands() const { return m_operands; }
  /// Whether the option (long name) was given.
  bool has(std::string_view option) const;
  /// The value of the option's last occurrence, if given.
  std::optional<std::string> value(std::string_view option) const;
  /// The options in the order given (long names), for mutually exclusive ones.
  std::vector<std::string> givenOptions() const;

private:
  const Command& m_command;
  bool m_help = false;
  std::vector<std::string> m_operands;
  std::vector<std::pair<std::string, std::string>> m_options;
};

/// Reads a whole number: decimal digits, or hexadecimal after "0x", with a
/// leading '-' for negative values. Nothing else is accepted (no blanks, no
/// octal, no trailing text). Returns nullopt when the text is no such number
/// or lies outside [min, max].
std::optional<long long> readInteger(std::string_view text, long long min, long long max);

/// readInteger for an argument: throws UsageError "<what> must be a whole
/// number from <min> to <max>" when the text does not qualify.
long long integerArgument(std::string_view what, std::string_view text, long long min,
                          long long max);

/// Reads a decimal number with an optional fraction and exponent ("1.5",
/// "-2e3"); nullopt on anything else.
std::optional<double> readReal(std::string_view text);

/// Prints "usage: vtcore <name> <synopsis>" for `name` to standard error and
/// returns 2, the exit status for bad usage.
int usage(std::string_view name);

/// Prints "vtcore <name>: <message>" to standard error and returns 1.
int fail(std::string_view name, std::string_view message);

/// Reads all of standard input (binary-safe).
std::string readStandardInput();

/// Reads the whole file `path`, or standard input for "-" (binary-safe).
/// Throws std::runtime_error "<path>: <reason>" when it cannot.
std::string readInput(const std::string& path);

/// The --input option of the commands that read a text.
Option inputOption();

/// The input rule of the text subcommands: the file or standard input named
/// by --input; else the operands (from the `skip`th on) joined with single
/// blanks, where a lone "-" means standard input; else standard input. Text read from a file or
/// standard input loses one trailing line feed, as a shell's $(...) would.
std::string textInput(const Invocation& call, std::size_t skip = 0);

/// Bytes as two uppercase hexadecimal digits each, separated by blanks
/// ("C3 A9"): the one style in which the tool shows bytes.
std::string hexBytes(std::string_view bytes);
/// A value as "0x" and at least `digits` uppercase hexadecimal digits
/// ("0x1B3", "0xCBF43926"): the one style of checksums, masks and words.
std::string hexValue(unsigned long long value, int digits = 1);

} // namespace vtcore::cli
