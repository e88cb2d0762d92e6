// vtcore subcommands and tour steps of the data family: checksums, zlib
// blocks, sample conversion and byte-order swapping.

#include "command.h"

#include <vtcore/vtcore.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace vtcore::cli;

// ---- Files or standard streams ---------------------------------------------

struct FileCloser {
  void operator()(std::FILE* f) const noexcept {
    if (f != stdin && f != stdout)
      std::fclose(f);
  }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// "-" (or nothing) means standard input / output.
File openInput(const std::string& path) {
  return File(path.empty() || path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
}
File openOutput(const std::string& path) {
  return File(path.empty() || path == "-" ? stdout : std::fopen(path.c_str(), "wb"));
}

std::string errnoText(const std::string& path) {
  return (path.empty() || path == "-" ? std::string("standard stream") : path) + ": " +
         std::strerror(errno);
}

std::optional<std::vector<std::uint8_t>> readAll(std::FILE* f) {
  std::vector<std::uint8_t> data;
  std::uint8_t chunk[1 << 16];
  for (;;) {
    const std::size_t n = std::fread(chunk, 1, sizeof chunk, f);
    data.insert(data.end(), chunk, chunk + n);
    if (n < sizeof chunk)
      break;
  }
  if (std::ferror(f))
    return std::nullopt;
  return data;
}

bool writeAll(std::FILE* f, const std::uint8_t* data, std::size_t size) {
  return std::fwrite(data, 1, size, f) == size && std::fflush(f) == 0;
}

// Size of a regular file behind `f`, or nullopt (pipes, terminals).
std::optional<std::uint64_t> regularFileSize(std::FILE* f) {
  struct stat info {};
  if (fstat(fileno(f), &info) != 0 || !S_ISREG(info.st_mode))
    return std::nullopt;
  return static_cast<std::uint64_t>(info.st_size);
}

// ---- crc16, crc32 ------------------------------------------------------------

int runCrc16(const Invocation& call) {
  const std::string text = argumentsOrStandardInput(call.operands());
  if (text.size() >= 65536)
    return fail("crc16", "TEXT must be shorter than 65,536 bytes");
  if (text.find('\0') != std::string::npos)
    return fail("crc16", "TEXT must not contain a NUL byte");
  std::printf("0x%04X\n", KWCRC16(text.c_str()));
  return 0;
}

int runCrc32(const Invocation& call) {
  const auto& args = call.operands();
  if (args.size() > 1)
    return usage("crc32");
  const std::string path = args.empty() ? "-" : args[0];
  File in = openInput(path);
  if (!in)
    return fail("crc32", errnoText(path));
  // Streams in chunks, feeding each result into the next call.
  std::vector<unsigned char> chunk(1 << 20);
  std::uint32_t crc = 0;
  std::size_t n;
  while ((n = std::fread(chunk.data(), 1, chunk.size(), in.get())) > 0)
    crc = KWCRC32(crc, chunk.data(), static_cast<std::uint32_t>(n));
  if (std::ferror(in.get()))
    return fail("crc32", errnoText(path));
  std::printf("%08x\n", crc);
  return 0;
}

// ---- compress, decompress ---------------------------------------------------

int runZlib(const char* name, const Invocation& call, bool compressing) {
  const auto& args = call.operands();
  if (args.size() > 2)
    return usage(name);
  const std::string inPath = args.size() > 0 ? args[0] : "-";
  const std::string outPath = args.size() > 1 ? args[1] : "-";
  File in = openInput(inPath);
  if (!in)
    return fail(name, errnoText(inPath));
  auto input = readAll(in.get());
  if (!input)
    return fail(name, errnoText(inPath));
  std::optional<std::vector<std::uint8_t>> output;
  if (compressing) {
    if (input->empty())
      return fail(name, "empty input has no compressed form");
    output = vtcore::byte_buffer::compressedData(*input);
    if (!output)
      return fail(name, "compression failed");
  } else {
    output = vtcore::byte_buffer::decompressedData(*input);
    if (!output)
      return fail(name, "input is not a complete zlib stream");
  }
  File out = openOutput(outPath);
  if (!out || !writeAll(out.get(), output->data(), output->size()))
    return fail(name, errnoText(outPath));
  return 0;
}

int runCompress(const Invocation& call) {
  return runZlib("compress", call, true);
}
int runDecompress(const Invocation& call) {
  return runZlib("decompress", call, false);
}

// ---- convert-samples ----------------------------------------------------------

struct SampleFormat {
  const char* name;
  int code;
  int littleEndian;
  int bytes;
};

constexpr SampleFormat kFormats[] = {
    {"s8", 1, 0, 1},     {"u8", 1, 1, 1},     {"s16be", 2, 0, 2},  {"s16le", 2, 1, 2},
    {"s24be", 3, 0, 3},  {"s24le", 3, 1, 3},  {"s32be", 4, 0, 4},  {"s32le", 4, 1, 4},
    {"f32be", -4, 0, 4}, {"f32le", -4, 1, 4}, {"f64be", -8, 0, 8},
};

const SampleFormat* findFormat(const std::string& name) {
  for (const auto& f : kFormats)
    if (name == f.name)
      return &f;
  return nullptr;
}

// A progress bar on standard error, drawn only for large inputs when standard
// error is a terminal.
class ProgressBar {
public:
  ProgressBar(std::optional<std::uint64_t> total)
      : m_total(total.value_or(0)),
        m_shown(total && *total > (std::uint64_t{64} << 20) && isatty(STDERR_FILENO)) {}
  ~ProgressBar() {
    if (m_shown)
      std::fputc('\n', stderr);
  }
  void update(std::uint64_t done) {
    if (!m_shown || m_total == 0)
      return;
    const int percent = static_cast<int>(std::min<std::uint64_t>(100, done * 100 / m_total));
    if (percent == m_last)
      return;
    m_last = percent;
    char bar[41];
    const int filled = percent * 40 / 100;
    for (int i = 0; i < 40; ++i)
      bar[i] = i < filled ? '#' : '.';
    bar[40] = '\0';
    std::fprintf(stderr, "\r[%s] %3d%%", bar, percent);
    std::fflush(stderr);
  }

private:
  std::uint64_t m_total;
  bool m_shown;
  int m_last = -1;
};

int runConvertSamples(const Invocation& call) {
  const char* name = "convert-samples";
  const auto& args = call.operands();
  const bool deinterleave = call.has("deinterleave");
  const bool interleave = call.has("interleave");
  if (args.size() != 4 || (deinterleave && interleave))
    return usage(name);
  const std::string secondPath =
      call.value(deinterleave ? "deinterleave" : "interleave").value_or("");
  const std::size_t i = 0;
  const SampleFormat* from = findFormat(args[i]);
  const SampleFormat* to = findFormat(args[i + 1]);
  if (!from || !to) {
    std::fprintf(stderr,
                 "vtcore %s: formats are s8 u8 s16be s16le s24be s24le s32be s32le "
                 "f32be f32le f64be\n",
                 name);
    return usage(name);
  }
  const std::string inPath = args[i + 2];
  const std::string outPath = args[i + 3];
  File in = openInput(inPath);
  if (!in)
    return fail(name, errnoText(inPath));
  File in2 = interleave ? openInput(secondPath) : File();
  if (interleave && !in2)
    return fail(name, errnoText(secondPath));
  File out = openOutput(outPath);
  if (!out)
    return fail(name, errnoText(outPath));
  File out2 = deinterleave ? openOutput(secondPath) : File();
  if (deinterleave && !out2)
    return fail(name, errnoText(secondPath));

  const KWSampleConverter toFloat = GetConvertNToFloat(from->code, from->littleEndian);
  const KWSampleConverter fromFloat = GetConvertFloatToN(to->code, to->littleEndian);
  const std::size_t frames = 1 << 18;
  const std::size_t inFrameBytes = from->bytes * (deinterleave ? 2 : 1);
  const std::size_t outFrameBytes = to->bytes * (interleave ? 2 : 1);
  std::vector<std::uint8_t> inBuffer(frames * inFrameBytes), inBuffer2(frames * from->bytes);
  std::vector<float> first(frames), second(frames);
  std::vector<std::uint8_t> outBuffer(frames * outFrameBytes), outBuffer2(frames * to->bytes);
  ProgressBar progress(regularFileSize(in.get()));
  std::uint64_t done = 0;
  for (;;) {
    const std::size_t got = std::fread(inBuffer.data(), 1, inBuffer.size(), in.get());
    std::size_t count = got / inFrameBytes;
    if (interleave) {
      const std::size_t got2 = std::fread(inBuffer2.data(), 1, count * from->bytes, in2.get());
      count = std::min(count, got2 / from->bytes);
    }
    const std::size_t wanted = got / inFrameBytes;
    if (count < wanted)
      std::fprintf(stderr, "vtcore %s: %s is shorter; output stops there\n", name,
                   secondPath.c_str());
    else if (got % inFrameBytes != 0)
      std::fprintf(stderr, "vtcore %s: ignoring %zu trailing bytes\n", name, got % inFrameBytes);
    if (count == 0)
      break;
    toFloat(first.data(), inBuffer.data(), count, deinterleave ? second.data() : nullptr);
    if (interleave)
      toFloat(second.data(), inBuffer2.data(), count, nullptr);
    fromFloat(outBuffer.data(), first.data(), count, interleave ? second.data() : nullptr);
    if (!writeAll(out.get(), outBuffer.data(), count * outFrameBytes))
      return fail(name, errnoText(outPath));
    if (deinterleave) {
      fromFloat(outBuffer2.data(), second.data(), count, nullptr);
      if (!writeAll(out2.get(), outBuffer2.data(), count * to->bytes))
        return fail(name, errnoText(secondPath));
    }
    done += got;
    progress.update(done);
    if (got < inBuffer.size() || count < wanted)
      break;
  }
  if (std::ferror(in.get()) || (in2 && std::ferror(in2.get())))
    return fail(name, errnoText(inPath));
  return 0;
}

Register crc16Command{
    {"crc16", "[TEXT...]", "CRC-16/AUG-CCITT of a text (or standard input)", {}, runCrc16}};
Register crc32Command{{"crc32", "[FILE|-]", "CRC-32 of a file or standard input", {}, runCrc32}};
Register compressCommand{
    {"compress", "[IN|- [OUT|-]]", "compress into a bare zlib stream", {}, runCompress}};
Register decompressCommand{
    {"decompress", "[IN|- [OUT|-]]", "expand a bare zlib stream", {}, runDecompress}};
Register convertCommand{
    {"convert-samples",
     "[--deinterleave OUT2 | --interleave IN2] FROM TO IN|- OUT|-   (FROM/TO: s8 u8 s16be s16le "
     "s24be s24le s32be s32le f32be f32le f64be)",
     "convert raw PCM samples between formats, optionally splitting or joining two channels",
     {{"deinterleave", 0, "OUT2", "split two interleaved channels: the second goes to OUT2"},
      {"interleave", 0, "IN2", "join IN with a second channel read from IN2"}},
     runConvertSamples}};

// ---- Tour ---------------------------------------------------------------------

std::string hex(const unsigned char* p, std::size_t n) {
  std::ostringstream text;
  for (std::size_t k = 0; k < n; ++k)
    text << (k ? " " : "") << std::hex << std::setw(2) << std::setfill('0') << int(p[k]);
  return text.str();
}

void tourSwapping() {
  unsigned char record[] = {0x00, 0x00, 0x00, 0x01, 0x00, 0x02, 'T', 'E', 'M', 'P'};
  std::cout << "A record: 32-bit value, 16-bit value, four-character code\n  before: "
            << hex(record, sizeof record) << "\n";
  const unsigned char table[] = {7, 15, 6, 0};
  TabIntelSwap(record, table);
  std::cout << "  after TabIntelSwap with table {7, 15, 6, 0}: " << hex(record, sizeof record)
            << "\n";
  unsigned char cut[] = {0x11, 0x22, 0x33, 0x44};
  LimitTabIntelSwap(cut, table, cut + 2);
  std::cout << "  a 32-bit field crossing a limit 2 bytes on stays as it was: "
            << hex(cut, sizeof cut) << "\n";
  const signed char copyTable[] = {4, -3, 2, 0};
  unsigned char src[] = {1, 2, 3, 4, 5, 6, 7, 8};
  unsigned char dst[8] = {};
  const int missing = SwapData(dst, src, copyTable, 8);
  std::cout << "SwapData {+4, -3, +2} over 8 bytes copies " << hex(dst, 7)
            << " and reports an item of " << missing << " bytes that no longer fits\n";
  std::cout << "Swap loops run on the " << vtcore::dataCodePathName(vtcore::dataCodePath())
            << " path\n";
}

void tourSamples() {
  const float in[] = {0.5f, -0.25f, 1.0f, -1.0f};
  unsigned char pcm[8];
  GetConvertFloatToN(2, 0)(pcm, in, 4, nullptr);
  std::cout << "Floats 0.5 -0.25 1.0 -1.0 as 16-bit big-endian PCM: " << hex(pcm, 8)
            << "  (1.0 clips to 7fff)\n";
  float back[4];
  GetConvertNToFloat(2, 0)(back, pcm, 4, nullptr);
  std::cout << "and back:";
  for (float f : back)
    std::cout << ' ' << f;
  const float left[] = {0.5f, 0.5f}, right[] = {-0.5f, -0.5f};
  unsigned char stereo[12];
  GetConvertFloatToN(3, 1)(stereo, left, 2, const_cast<float*>(right));
  std::cout << "\nTwo channels interleaved as 24-bit little-endian: " << hex(stereo, 12) << "\n";
}

void tourChecksums() {
  std::cout << "KWCRC16(\"123456789\") = 0x" << std::hex << std::uppercase << KWCRC16("123456789")
            << "  (CRC-16/AUG-CCITT)\n";
  const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
  const auto whole = KWCRC32(0, digits, 9);
  const auto chained = KWCRC32(KWCRC32(0, digits, 4), digits + 4, 5);
  std::cout << "KWCRC32 of the same digits = 0x" << whole << ", in two pieces 0x" << chained
            << std::dec << std::nouppercase
            << "\nCRC-32 method: " << vtcore::crc32MethodName(vtcore::crc32Method()) << "\n";
}

void tourCompression() {
  std::string text;
  for (int k = 0; k < 50; ++k)
    text += "four bars of swing at 120 bpm; ";
  const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(text.data()),
                                            text.size());
  auto packed = vtcore::byte_buffer::compressedData(bytes);
  if (!packed)
    return;
  auto unpacked = vtcore::byte_buffer::decompressedData(*packed);
  std::cout << text.size() << " bytes of text compress to a " << packed->size()
            << "-byte zlib stream (header " << hex(packed->data(), 2) << "), which expands back to "
            << (unpacked ? unpacked->size() : 0) << " identical bytes: "
            << (unpacked && std::equal(unpacked->begin(), unpacked->end(), bytes.begin()) ? "yes"
                                                                                          : "no")
            << "\n";
  packed->resize(packed->size() - 3);
  std::cout << "The same stream cut short by 3 bytes decompresses to: "
            << (vtcore::byte_buffer::decompressedData(*packed) ? "data (unexpected)" : "null")
            << "\n";
}

TourStep swapStep{30, "Byte-order swapping", tourSwapping};
TourStep samplesStep{31, "Sample converters", tourSamples};
TourStep crcStep{32, "Checksums", tourChecksums};
TourStep zlibStep{33, "Compressed data blocks", tourCompression};

} // namespace
