#include <vtcore/core/text/dispatch/data_dispatch.h>

#include <atomic>
#include <string_view>

namespace vtcore {
namespace {

constexpr int kUnset = -1;
std::atomic<int> g_path{kUnset};
std::atomic<int> g_crcMethod{kUnset};

bool processorHas(const char* feature) noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();
  // __builtin_cpu_supports needs a literal, hence the explicit names.
  std::string_view name(feature);
  if (name == "avx2")
    return __builtin_cpu_supports("avx2");
  if (name == "ssse3")
    return __builtin_cpu_supports("ssse3");
  if (name == "avx")
    return __builtin_cpu_supports("avx") && __builtin_cpu_supports("ssse3");
  if (name == "pclmul")
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
  // The 512-bit kernels use byte-granular masks (BW), 128/256-bit forms of
  // the EVEX instructions (VL) and byte permutes across the register (VBMI).
  if (name == "avx512")
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi");
  if (name == "vpclmul256")
    return __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx2") &&
           __builtin_cpu_supports("pclmul");
  if (name == "vpclmul512")
    return __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx512f") &&
           __builtin_cpu_supports("avx2") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("pclmul");
#endif
  (void)feature;
  return false;
}

} // namespace

bool dataCodePathAvailable(DataCodePath path) noexcept {
  switch (path) {
  case DataCodePath::Portable:
    return true;
  case DataCodePath::AVX2:
    return processorHas("avx2");
  case DataCodePath::SSSE3:
    return processorHas("ssse3");
  case DataCodePath::AVX512:
    return processorHas("avx512");
  case DataCodePath::AVX:
    return processorHas("avx");
  }
  return false;
}

bool crc32MethodAvailable(Crc32Method method) noexcept {
  switch (method) {
  case Crc32Method::Reference:
  case Crc32Method::Slicing16:
    return true;
  case Crc32Method::CarrylessFold:
    return processorHas("pclmul");
  case Crc32Method::CarrylessFold256:
    return processorHas("vpclmul256");
  case Crc32Method::CarrylessFold512:
    return processorHas("vpclmul512");
  }
  return false;
}

DataCodePath dataCodePath() noexcept {
  int path = g_path.load(std::memory_order_relaxed);
  if (path == kUnset) {
    DataCodePath best = DataCodePath::Portable;
    if (dataCodePathAvailable(DataCodePath::AVX512))
      best = DataCodePath::AVX512;
    else if (dataCodePathAvailable(DataCodePath::AVX2))
      best = DataCodePath::AVX2;
    else if (dataCodePathAvailable(DataCodePath::AVX))
      best = DataCodePath::AVX;
    else if (dataCodePathAvailable(DataCodePath::SSSE3))
      best = DataCodePath::SSSE3;
    path = static_cast<int>(best);
    g_path.store(path, std::memory_order_relaxed);
  }
  return static_cast<DataCodePath>(path);
}

Crc32Method crc32Method() noexcept {
  int method = g_crcMethod.load(std::memory_order_relaxed);
  if (method == kUnset) {
    Crc32Method best = Crc32Method::Slicing16;
    for (Crc32Method fastest :
         {Crc32Method::CarrylessFold, Crc32Method::CarrylessFold256, Crc32Method::CarrylessFold512})
      if (crc32MethodAvailable(fastest))
        best = fastest;
    method = static_cast<int>(best);
    g_crcMethod.store(method, std::memory_order_relaxed);
  }
  return static_cast<Crc32Method>(method);
}

bool setDataCodePath(DataCodePath path) noexcept {
  if (!dataCodePathAvailable(path))
    return false;
  g_path.store(static_cast<int>(path), std::memory_order_relaxed);
  return true;
}

bool setCrc32Method(Crc32Method method) noexcept {
  if (!crc32MethodAvailable(method))
    return false;
  g_crcMethod.store(static_cast<int>(method), std::memory_order_relaxed);
  return true;
}

const char* dataCodePathName(DataCodePath path) noexcept {
  switch (path) {
  case DataCodePath::AVX2:
    return "avx2";
  case DataCodePath::SSSE3:
    return "ssse3";
  case DataCodePath::AVX512:
    return "avx512";
  case DataCodePath::AVX:
    return "avx";
  case DataCodePath::Portable:
    break;
  }
  return "portable";
}

const char* crc32MethodName(Crc32Method method) noexcept {
  switch (method) {
  case Crc32Method::Reference:
    return "reference";
  case Crc32Method::Slicing16:
    return "slicing16";
  case Crc32Method::CarrylessFold:
    return "carryless-fold";
  case Crc32Method::CarrylessFold256:
    return "carryless-fold-256";
  case Crc32Method::CarrylessFold512:
    return "carryless-fold-512";
  }
  return "unknown";
}

} // namespace vtcore
