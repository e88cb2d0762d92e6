// The README's first program: two calls of the core library.
#include <cstdio>
#include <cstring>
#include <vtcore/vtcore.h>

int main() {
  const char* text = "Grüße";
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  std::printf("%zu characters, CRC-32 %08x\n", utf8_strlen(text),
              KWCRC32(0, bytes, static_cast<uint32_t>(std::strlen(text))));
}
