// vtcore: a command-line front end to the VTCore library, for trying its
// services from a shell, and `vtcore tour`, the library's demonstration.
//
// The help of every command, the man page and the bash completion are all
// made from the same Command records, so they cannot disagree.

#include "command.h"

#include <vtcore/vtcore.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <unistd.h>

namespace vtcore::cli {
namespace {

std::map<std::string, Command, std::less<>>& commands() {
  static std::map<std::string, Command, std::less<>> table;
  return table;
}

struct Step {
  int order;
  std::string title;
  void (*run)();
};

std::vector<Step>& steps() {
  static std::vector<Step> list;
  return list;
}

// The exit statuses, the same for every command.
constexpr std::pair<int, const char*> kExitStatus[] = {
    {0, "success; \"yes\" or \"true\" for a question (is-email, is-uri, bool, utf8 check)"},
    {1, "\"no\" or \"false\" for a question, or a failed operation (unreadable input, "
        "invalid data)"},
    {2, "bad usage: an unknown command or option, a missing argument, a bad value"},
};

void printExitStatus(std::FILE* out) {
  std::fprintf(out, "exit status:\n");
  for (const auto& [status, meaning] : kExitStatus)
    std::fprintf(out, "  %d  %s\n", status, meaning);
}

void printCommandList(std::FILE* out) {
  std::fprintf(out, "usage: vtcore <command> [arguments]\n"
                    "       vtcore --version | --help\n\ncommands:\n");
  for (const Command* command : allCommands())
    std::fprintf(out, "  %-16s %s\n", command->name.c_str(), command->summary.c_str());
  std::fprintf(out, "\n'vtcore help <command>' or 'vtcore <command> --help' shows a command's "
                    "arguments\nand options. 'vtcore --version' prints the library's version.\n\n");
  printExitStatus(out);
}

std::string optionLabel(const Option& option) {
  std::string label = option.shortName ? std::string("-") + option.shortName + ", " : "    ";
  label += "--" + option.name;
  if (!option.value.empty())
    label += " " + option.value;
  return label;
}

const Option kHelpOption{"help", 'h', "", "show this help and exit"};

// `text` broken at blanks into lines of at most `width` characters, every
// line after the first indented by `indent` blanks.
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent) {
  std::string out, line;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!line.empty() && line.size() + 1 + word.size() > width) {
      out += line + "\n" + std::string(indent, ' ');
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  return out + line;
}

// Details as the help shows them: lines that start with two blanks stay as
// they are (tables); runs of other lines are one paragraph, wrapped anew.
std::string reflowed(const std::string& details) {
  std::istringstream lines(details);
  std::string out, paragraph;
  auto flush = [&] {
    if (!paragraph.empty())
      out += wrapped(paragraph, 80, 0) + "\n";
    paragraph.clear();
  };
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.starts_with("  ")) {
      flush();
      out += line + "\n";
    } else {
      paragraph += (paragraph.empty() ? "" : " ") + line;
    }
  }
  flush();
  return out;
}

void printCommandHelp(const Command& command) {
  std::string summary = command.summary;
  if (!summary.empty())
    summary[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(summary[0])));
  std::cout << "usage: vtcore " << command.name
            << (command.synopsis.empty() ? "" : " " + command.synopsis) << "\n\n"
            << wrapped(summary + ".", 80, 0) << "\n\noptions:\n";
  std::vector<Option> options = command.options;
  options.push_back(kHelpOption);
  constexpr std::size_t kColumn = 24;
  for (const auto& option : options) {
    const std::string label = optionLabel(option);
    std::cout << "  " << label;
    if (label.size() < kColumn)
      std::cout << std::string(kColumn - label.size(), ' ');
    else
      std::cout << "\n" << std::string(kColumn + 2, ' ');
    std::cout << wrapped(option.help, 80 - kColumn - 2, kColumn + 2) << "\n";
  }
  if (!command.details.empty())
    std::cout << "\n" << reflowed(command.details);
  std::cout << "\n" << std::flush;
  printExitStatus(stdout);
}

// ---- The man page ------------------------------------------------------------

std::string roff(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '\\')
      out += "\\e";
    else if (c == '-')
      out += "\\-";
    else
      out += c;
  }
  // A line starting with a dot or an apostrophe would be read as a request.
  if (!out.empty() && (out[0] == '.' || out[0] == '\''))
    out.insert(0, "\\&");
  return out;
}

void printRoffParagraphs(std::ostream& out, const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  bool literal = false;
  bool fresh = true;
  while (std::getline(lines, line)) {
    const bool indented = line.starts_with("  ");
    if (line.empty()) {
      if (literal)
        out << ".fi\n";
      literal = false;
      fresh = true;
      continue;
    }
    if (indented && !literal) {
      out << ".PP\n.nf\n";
      literal = true;
    } else if (!indented && literal) {
      out << ".fi\n";
      literal = false;
      fresh = true;
    }
    if (fresh && !literal)
      out << ".PP\n";
    fresh = false;
    out << roff(literal ? line.substr(2) : line) << "\n";
  }
  if (literal)
    out << ".fi\n";
}

void printManPage() {
  std::ostream& out = std::cout;
  out << ".\\\" Made by 'vtcore help --man' from the tool's own help texts.\n"
      << ".TH VTCORE 1 \"\" \"VTCore " << vtcore::libraryVersion() << "\" \"User Commands\"\n"
      << ".SH NAME\nvtcore \\- try the services of the VTCore library from a shell\n"
      << ".SH SYNOPSIS\n.B vtcore\n.I command\n[\\fIarguments\\fR]\n.br\n"
      << ".B vtcore\n\\fB\\-\\-version\\fR | \\fB\\-\\-help\\fR\n"
      << ".SH DESCRIPTION\n"
      << roff("vtcore gives the services of libvtcore, the support library of a family of "
              "music-production applications, a command line: checksums and compression, "
              "UTF-8 and web text conversions, sample-format conversion, channel layouts, MIDI "
              "value formatting, key-command names, the memory layer's probes. "
              "'vtcore tour' walks through every service with a short demonstration.")
      << "\n.PP\n"
      << roff("Options may stand anywhere among the operands and take their value as '--name "
              "VALUE' or '--name=VALUE'; '--' ends the options. A data operand '-' means "
              "standard input. Numbers are decimal, or hexadecimal after 0x. Every command "
              "accepts -h and --help.")
      << "\n.SH COMMANDS\n";
  for (const Command* command : allCommands()) {
    out << ".SS \"" << roff(command->name)
        << (command->synopsis.empty() ? "" : " " + roff(command->synopsis)) << "\"\n"
        << roff(command->summary) << ".\n";
    for (const auto& option : command->options)
      out << ".TP\n.B " << roff(optionLabel(option).substr(option.shortName ? 0 : 4)) << "\n"
          << roff(option.help) << "\n";
    if (!command->details.empty())
      printRoffParagraphs(out, command->details);
  }
  out << ".SH EXIT STATUS\n";
  for (const auto& [status, meaning] : kExitStatus)
    out << ".TP\n.B " << status << "\n" << roff(meaning) << "\n";
  out << ".SH ENVIRONMENT\n"
      << ".TP\n.B VTCORE_DEFAULTS_FILE\n"
      << roff("the user-defaults file that 'vtcore defaults' and the memory layer read") << "\n"
      << ".TP\n.B VTCORE_TRACE_WITHOUT_BANNER\n"
      << roff("when set, log lines on standard error carry no date, process and tag banner")
      << "\n.TP\n.B QXLOG_FORCE_STDERR\n"
      << roff("when set, log lines are copied to standard error whatever it is connected to")
      << "\n.TP\n.B VTCORE_LEAK_GUARD\n"
      << roff("a non-zero value switches the leak guard on") << "\n"
      << ".SH SEE ALSO\n"
      << roff("journalctl(1), eu-addr2line(1), zlib-flate(1)") << "\n";
}

// ---- Bash completion ------------------------------------------------------------

void printBashCompletion() {
  std::ostream& out = std::cout;
  std::string names;
  for (const Command* command : allCommands())
    names += (names.empty() ? "" : " ") + command->name;
  out << "# bash completion for vtcore; made by 'vtcore help --bash-completion' from the\n"
      << "# tool's own help texts.\n"
      << "_vtcore() {\n"
      << "  local cur=\"${COMP_WORDS[COMP_CWORD]}\"\n"
      << "  if [[ $COMP_CWORD -eq 1 ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"" << names << " --help --version\" -- \"$cur\"))\n"
      << "    return\n  fi\n"
      << "  local options=\"\" words=\"\"\n"
      << "  case \"${COMP_WORDS[1]}\" in\n";
  for (const Command* command : allCommands()) {
    std::string options;
    for (const auto& option : command->options)
      options += "--" + option.name + " ";
    options += "--help";
    std::string words;
    for (const auto& word : command->words)
      words += (words.empty() ? "" : " ") + word;
    if (command->name == "help")
      words = names;
    out << "    " << command->name << ") options=\"" << options << "\" words=\"" << words
        << "\" ;;\n";
  }
  out << "  esac\n"
      << "  if [[ \"$cur\" == -* ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
      << "  elif [[ $COMP_CWORD -eq 2 && -n \"$words\" ]]; then\n"
      << "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
      << "  else\n"
      << "    COMPREPLY=($(compgen -f -- \"$cur\"))\n"
      << "  fi\n"
      << "}\n"
      << "complete -o filenames -F _vtcore vtcore\n";
}

int runHelp(const Invocation& call) {
  if (call.has("man")) {
    printManPage();
    return 0;
  }
  if (call.has("bash-completion")) {
    printBashCompletion();
    return 0;
  }
  if (call.operands().empty()) {
    printCommandList(stdout);
    return 0;
  }
  if (call.operands().size() > 1)
    return usage("help");
  const Command* command = findCommand(call.operands()[0]);
  if (!command)
    throw UsageError("unknown command '" + call.operands()[0] + "'");
  printCommandHelp(*command);
  return 0;
}

Register helpCommand{
    {"help",
     "[COMMAND]",
     "list the commands, or show a command's arguments, options and exit status",
     {{"man", 0, "", "print the man page (roff), for packagers"},
      {"bash-completion", 0, "", "print the bash completion script, for packagers"}},
     runHelp,
     "The man page and the bash completion that packages install are made from the\n"
     "same texts as this help.",
     {}}};

// ---- The tour ---------------------------------------------------------------------

// Keeps the tour's log records out of the system journal: what the tour logs
// is a demonstration, not an event of the machine. The logger's copy on
// standard error is what the reader sees.
class TourLogSink : public vtcore::LogSink {
public:
  void send(const vtcore::LogRecord&) override { ++m_count; }
  int count() const { return m_count; }

private:
  std::atomic<int> m_count{0};
};

// For the length of the tour, standard error is the tour's own output and
// the log goes to TourLogSink: the demonstration's log lines, the symbol
// tool's output and the leak report then appear in the order they happen,
// in one stream that can be paged or saved, instead of on a second stream
// that a terminal interleaves at random.
class TourOutput {
public:
  TourOutput() {
    std::fflush(stdout);
    std::fflush(stderr);
    // Line-buffered even into a pipe or file, so that lines written through
    // stdio and lines the library writes straight to the descriptor stay in
    // order.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    m_savedError = dup(STDERR_FILENO);
    if (m_savedError >= 0)
      dup2(STDOUT_FILENO, STDERR_FILENO);
    m_previousSink = vtcore::setLogSink(&m_sink);
  }
  ~TourOutput() {
    std::cout << std::flush;
    std::fflush(stdout);
    vtcore::setLogSink(m_previousSink);
    if (m_savedError >= 0) {
      dup2(m_savedError, STDERR_FILENO);
      close(m_savedError);
    }
  }
  TourOutput(const TourOutput&) = delete;
  TourOutput& operator=(const TourOutput&) = delete;

  int loggedRecords() const { return m_sink.count(); }

private:
  TourLogSink m_sink;
  vtcore::LogSink* m_previousSink = nullptr;
  int m_savedError = -1;
};

int runTour(const Invocation& call) {
  if (!call.operands().empty())
    return usage("tour");
  auto list = steps();
  std::stable_sort(list.begin(), list.end(),
                   [](const Step& a, const Step& b) { return a.order < b.order; });
  TourOutput output;
  std::cout << "A tour of VTCore " << vtcore::libraryVersion()
            << ", the support library of music-production applications.\n"
               "Each step below calls the library's own functions and shows what they give.\n"
               "Log lines of the demonstrations appear here; they are not sent to the system\n"
               "journal.\n";
  for (const auto& step : list) {
    std::cout << "\n=== " << step.title << " ===\n" << std::flush;
    step.run();
    std::cout << std::flush;
    std::fflush(stdout);
  }
  std::cout << "\nTour complete: " << list.size() << " steps; " << output.loggedRecords()
            << " log records were kept out of the system journal.\n"
            << "'vtcore --help' lists the commands that try each service on your own data.\n";
  return 0;
}

Register tourCommand{{"tour",
                      "",
                      "walk through every service of the library",
                      {},
                      runTour,
                      "Prints one short demonstration per service, about 300 lines; page it "
                      "with 'vtcore tour | less'.\nThe tour's log lines go to its own output, "
                      "not to the system journal.",
                      {}}};

void printVersion() {
  std::printf("vtcore (VTCore) %s\n", vtcore::libraryVersion());
  if (std::strcmp(vtcore::libraryVersion(), VTCORE_VERSION_STRING) != 0)
    std::printf("built against VTCore %s\n", VTCORE_VERSION_STRING);
}

} // namespace

Register::Register(Command command) {
  auto name = command.name;
  commands().emplace(std::move(name), std::move(command));
}

TourStep::TourStep(int order, std::string title, void (*run)()) {
  steps().push_back({order, std::move(title), run});
}

std::vector<const Command*> allCommands() {
  std::vector<const Command*> list;
  for (const auto& [name, command] : commands())
    list.push_back(&command);
  return list;
}

const Command* findCommand(std::string_view name) {
  auto it = commands().find(name);
  return it == commands().end() ? nullptr : &it->second;
}

int usage(std::string_view name) {
  const Command* command = findCommand(name);
  if (!command)
    std::fprintf(stderr, "usage: vtcore %.*s\n", static_cast<int>(name.size()), name.data());
  else
    std::fprintf(stderr, "usage: vtcore %s%s%s\n", command->name.c_str(),
                 command->synopsis.empty() ? "" : " ", command->synopsis.c_str());
  std::fprintf(stderr, "Try 'vtcore help %.*s' for more information.\n",
               static_cast<int>(name.size()), name.data());
  return 2;
}

int fail(std::string_view name, std::string_view message) {
  std::fprintf(stderr, "vtcore %.*s: %.*s\n", static_cast<int>(name.size()), name.data(),
               static_cast<int>(message.size()), message.data());
  return 1;
}

std::string readStandardInput() {
  std::ostringstream buffer;
  buffer << std::cin.rdbuf();
  if (std::cin.bad())
    throw std::runtime_error(std::string("standard input: ") + std::strerror(errno));
  return buffer.str();
}

std::string readInput(const std::string& path) {
  if (path == "-")
    return readStandardInput();
  std::ifstream in(path, std::ios::binary);
  if (!in)
    throw std::runtime_error(path + ": " + std::strerror(errno));
  // A directory opens as a stream that reads nothing: say so instead.
  std::error_code error;
  if (std::filesystem::is_directory(path, error))
    throw std::runtime_error(path + ": " + std::strerror(EISDIR));
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  if (in.bad())
    throw std::runtime_error(path + ": " + std::strerror(errno));
  return bytes;
}

Option inputOption() {
  return {"input", 'i', "FILE", "read the text from FILE ('-': standard input)"};
}

namespace {

std::string argumentsOrStandardInput(const std::vector<std::string>& args) {
  if (args.empty()) {
    auto text = readStandardInput();
    if (!text.empty() && text.back() == '\n')
      text.pop_back();
    return text;
  }
  std::string joined;
  for (const auto& arg : args) {
    if (!joined.empty())
      joined += ' ';
    joined += arg;
  }
  return joined;
}

} // namespace

std::string textInput(const Invocation& call, std::size_t skip) {
  const std::vector<std::string> words(
      call.operands().begin() + static_cast<std::ptrdiff_t>(std::min(skip, call.operands().size())),
      call.operands().end());
  if (auto path = call.value("input")) {
    if (!words.empty())
      throw UsageError("give the text either as arguments or with --input, not both");
    std::string text = readInput(*path);
    if (!text.empty() && text.back() == '\n')
      text.pop_back();
    return text;
  }
  // A lone "-" is standard input, as for the commands that read files.
  if (words.size() == 1 && words[0] == "-")
    return argumentsOrStandardInput({});
  return argumentsOrStandardInput(words);
}

std::string hexBytes(std::string_view bytes) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto b = static_cast<unsigned char>(bytes[i]);
    if (i > 0)
      out += ' ';
    out += digits[b >> 4];
    out += digits[b & 0xF];
  }
  return out;
}

std::string hexValue(unsigned long long value, int digits) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%0*llX", digits, value);
  return text;
}

} // namespace vtcore::cli

int main(int argc, char** argv) {
  using namespace vtcore::cli;
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    printCommandList(stderr);
    return 2;
  }
  if (args[0] == "-h" || args[0] == "--help") {
    printCommandList(stdout);
    return 0;
  }
  if (args[0] == "--version") {
    printVersion();
    return 0;
  }
  const Command* command = findCommand(args[0]);
  if (!command) {
    std::fprintf(stderr, "vtcore: unknown %s '%s'\n",
                 args[0].starts_with('-') ? "option" : "command", args[0].c_str());
    std::fprintf(stderr, "usage: vtcore <command> [arguments]\n"
                         "Try 'vtcore --help' for the list of commands.\n");
    return 2;
  }
  try {
    const Invocation invocation(*command, Args(args).subspan(1));
    if (invocation.helpRequested()) {
      printCommandHelp(*command);
      return 0;
    }
    return command->run(invocation);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "vtcore %s: %s\n", args[0].c_str(), error.what());
    return usage(args[0]);
  } catch (const std::exception& error) {
    return fail(args[0], error.what());
  }
}
