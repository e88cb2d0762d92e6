// A program that links VTCore but calls none of its functions, and does not
// name malloc itself either (a program that does would pull libvtcore in even
// under --as-needed): the core library must still be loaded ahead of libc, so
// that its malloc family is the process's. Exits 0 when malloc, free and
// realloc resolve into libvtcore.
#include <cstdio>
#include <cstring>
#include <dlfcn.h>

static bool fromVTCore(const char* name) {
  void* symbol = dlsym(RTLD_DEFAULT, name);
  Dl_info info{};
  if (!symbol || !dladdr(symbol, &info) || !info.dli_fname) {
    std::fprintf(stderr, "direct_link: %s not found\n", name);
    return false;
  }
  if (!std::strstr(info.dli_fname, "libvtcore.so")) {
    std::fprintf(stderr, "direct_link: %s comes from %s, not libvtcore\n", name, info.dli_fname);
    return false;
  }
  return true;
}

int main() {
  const bool ok = fromVTCore("malloc") && fromVTCore("free") && fromVTCore("realloc");
  delete new int(1); // allocates through whichever malloc is in force
  if (ok)
    std::puts("direct_link: malloc, free and realloc are VTCore's");
  return ok ? 0 : 1;
}
