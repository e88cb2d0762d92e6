# The hardening Debian gives its own packages (what
# `DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags` prints on amd64 for
# Debian 12), applied to every VTCore binary when VTCORE_HARDENING is on. The
# release preset, which the Debian packages are built from, turns it on; the
# sanitizer and fuzzing presets leave it off, because their run-time checks
# already cover the same faults and _FORTIFY_SOURCE's wrappers hide reads and
# writes from AddressSanitizer.
option(VTCORE_HARDENING "Build with Debian's hardening flags (stack protector, _FORTIFY_SOURCE, full RELRO)" OFF)

if(VTCORE_HARDENING)
  if(VTCORE_SANITIZER OR VTCORE_BUILD_FUZZ)
    message(FATAL_ERROR "VTCORE_HARDENING is for optimised builds without sanitizers")
  endif()
  add_compile_options(
    -fstack-protector-strong
    -fstack-clash-protection
    -Wformat -Werror=format-security
    -Wdate-time)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
    add_compile_options(-fcf-protection)
  endif()
  # _FORTIFY_SOURCE only works with optimisation; a Debug build with the option
  # on would warn on every file (and warnings are errors).
  add_compile_definitions($<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
  # Full RELRO: the relocation tables are read-only after start-up, and
  # immediate binding resolves every symbol before main runs.
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()
