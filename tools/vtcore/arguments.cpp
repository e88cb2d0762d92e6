// The one argument parser and number reader of the vtcore subcommands.

#include "command.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

namespace vtcore::cli {
namespace {

const Option* findLong(const Command& command, std::string_view name) {
  for (const auto& option : command.options)
    if (option.name == name)
      return &option;
  return nullptr;
}

const Option* findShort(const Command& command, char name) {
  for (const auto& option : command.options)
    if (option.shortName != 0 && option.shortName == name)
      return &option;
  return nullptr;
}

// "-5" and "-.5" are numbers, not options: MIDI values and offsets can be
// negative.
bool looksLikeNegativeNumber(std::string_view arg) {
  return arg.size() >= 2 && arg[0] == '-' &&
         (std::isdigit(static_cast<unsigned char>(arg[1])) || arg[1] == '.');
}

} // namespace

Invocation::Invocation(const Command& command, Args args) : m_command(command) {
  // Help wins over everything else on the line, bad arguments included:
  // "vtcore url --help" never treats --help as data. After "--" it is data.
  for (const auto& arg : args) {
    if (arg == "--")
      break;
    if (arg == "-h" || arg == "--help") {
      m_help = true;
      return;
    }
  }
  bool optionsEnded = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-' ||
        looksLikeNegativeNumber(arg)) {
      m_operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }

    const Option* option = nullptr;
    std::optional<std::string> attached;
    std::string shown;
    if (arg.starts_with("--")) {
      const auto equals = arg.find('=');
      const std::string name = arg.substr(2, equals == std::string::npos ? equals : equals - 2);
      if (equals != std::string::npos)
        attached = arg.substr(equals + 1);
      option = findLong(command, name);
      shown = "--" + name;
    } else {
      option = findShort(command, arg[1]);
      if (arg.size() > 2)
        attached = arg.substr(2);
      shown = arg.substr(0, 2);
    }
    if (!option)
      throw UsageError("unknown option '" + shown + "'");
    if (option->value.empty()) {
      if (attached)
        throw UsageError("option " + shown + " takes no value");
      m_options.emplace_back(option->name, std::string());
      continue;
    }
    if (!attached) {
      if (i + 1 == args.size())
        throw UsageError("option " + shown + " needs a value " + option->value);
      attached = args[++i];
    }
    m_options.emplace_back(option->name, *attached);
  }
}

bool Invocation::has(std::string_view option) const {
  for (const auto& given : m_options)
    if (given.first == option)
      return true;
  return false;
}

std::optional<std::string> Invocation::value(std::string_view option) const {
  std::optional<std::string> last;
  for (const auto& given : m_options)
    if (given.first == option)
      last = given.second;
  return last;
}

std::vector<std::string> Invocation::givenOptions() const {
  std::vector<std::string> names;
  for (const auto& given : m_options)
    names.push_back(given.first);
  return names;
}

std::optional<long long> readInteger(std::string_view text, long long min, long long max) {
  bool negative = false;
  if (text.starts_with('-')) {
    negative = true;
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  // from_chars would take a second sign; the digits must start right here.
  if (text.empty() || !std::isxdigit(static_cast<unsigned char>(text[0])))
    return std::nullopt;
  unsigned long long magnitude = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (error != std::errc() || end != text.data() + text.size())
    return std::nullopt;
  constexpr auto largest = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
  if (magnitude > largest + (negative ? 1 : 0))
    return std::nullopt;
  const long long value = negative
                              ? (magnitude == largest + 1 ? std::numeric_limits<long long>::min()
                                                          : -static_cast<long long>(magnitude))
                              : static_cast<long long>(magnitude);
  if (value < min || value > max)
    return std::nullopt;
  return value;
}

long long integerArgument(std::string_view what, std::string_view text, long long min,
                          long long max) {
  if (auto value = readInteger(text, min, max))
    return *value;
  throw UsageError(std::string(what) + " must be a whole number from " + std::to_string(min) +
                   " to " + std::to_string(max) + ", not '" + std::string(text) + "'");
}

std::optional<double> readReal(std::string_view text) {
  if (text.empty() || text[0] == '+')
    return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  // "inf" and "nan" are words, not numbers a user means.
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

} // namespace vtcore::cli
