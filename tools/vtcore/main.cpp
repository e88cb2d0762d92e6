// vtcore: a command-line front end to the VTCore library, for trying its
// services from a shell, and `vtcore tour`, the library's demonstration.

#include "command.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

namespace vtcore::cli {
namespace {

std::map<std::string, Command>& commands() {
  static std::map<std::string, Command> table;
  return table;
}

struct Step {
  int order;
  std::string title;
  std::function<void()> run;
};

std::vector<Step>& steps() {
  static std::vector<Step> list;
  return list;
}

void printCommandList(std::FILE* out) {
  std::fprintf(out, "usage: vtcore <command> [arguments]\n\ncommands:\n");
  std::fprintf(out, "  %-18s %s\n", "tour", "walk through every service of the library");
  for (const auto& [name, command] : commands())
    std::fprintf(out, "  %-18s %s\n", name.c_str(), command.summary.c_str());
  std::fprintf(out, "\n'vtcore help <command>' shows a command's arguments.\n");
}

int runTour() {
  auto list = steps();
  std::stable_sort(list.begin(), list.end(),
                   [](const Step& a, const Step& b) { return a.order < b.order; });
  for (const auto& step : list) {
    std::cout << "\n=== " << step.title << " ===\n" << std::flush;
    step.run();
    std::cout << std::flush;
    std::fflush(stdout);
    std::fflush(stderr);
  }
  std::cout << "\nTour complete: " << list.size() << " steps.\n";
  return 0;
}

} // namespace

Register::Register(Command command) {
  auto name = command.name;
  commands().emplace(std::move(name), std::move(command));
}

TourStep::TourStep(int order, std::string title, std::function<void()> run) {
  steps().push_back({order, std::move(title), std::move(run)});
}

int usage(std::string_view name) {
  auto it = commands().find(std::string(name));
  if (it == commands().end())
    std::fprintf(stderr, "usage: vtcore %.*s\n", static_cast<int>(name.size()), name.data());
  else
    std::fprintf(stderr, "usage: vtcore %s %s\n", it->second.name.c_str(),
                 it->second.synopsis.c_str());
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
  return buffer.str();
}

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

} // namespace vtcore::cli

int main(int argc, char** argv) {
  using namespace vtcore::cli;
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "-h" || args[0] == "--help") {
    printCommandList(args.empty() ? stderr : stdout);
    return args.empty() ? 2 : 0;
  }
  if (args[0] == "tour")
    return args.size() == 1 ? runTour() : (std::fprintf(stderr, "usage: vtcore tour\n"), 2);
  if (args[0] == "help") {
    if (args.size() != 2) {
      printCommandList(stdout);
      return 0;
    }
    usage(args[1]);
    return 0;
  }
  auto it = commands().find(args[0]);
  if (it == commands().end()) {
    std::fprintf(stderr, "vtcore: unknown command '%s'\n\n", args[0].c_str());
    printCommandList(stderr);
    return 2;
  }
  try {
    const Invocation invocation(it->second, Args(args).subspan(1));
    return it->second.run(invocation);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "vtcore %s: %s\n", args[0].c_str(), error.what());
    return usage(args[0]);
  } catch (const std::exception& error) {
    return fail(args[0], error.what());
  }
}
