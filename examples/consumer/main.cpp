// The smallest VTCore application: logs one line with its banner.
#include <vtcore/vtcore.h>

int main() {
  KWLogCString(6, KWLogWithSyslogBanner() != 0, "consumer", "VTCore %s works", "0.1");
  return dbgAssertionFailed();
}
