// Logs one line through the system sink, for the journal test.
#include <vtcore/core/diagnostics/log/log.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: journal_probe TAG\n");
    return 2;
  }
  KWLogCString(4, true, argv[1], "probe message %d", 42);
  return 0;
}
