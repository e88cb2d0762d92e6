// vtcore subcommands and tour steps of the data family: checksums, zlib
// blocks, sample conversion and byte-order swapping.

#include "command.h"

#include <vtcore/vtcore.h>

#include <algorithm>
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
#include <zlib.h>

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

// A progress bar on standard error for long work, drawn only when standard
// error is a terminal: with a known total once it passes 64 MiB, as a
// running count of MiB once that much is done when the total is unknown
// (a pipe).
class ProgressBar {
public:
  explicit ProgressBar(std::optional<std::uint64_t> total)
      : m_total(total), m_terminal(isatty(STDERR_FILENO) == 1) {}
  ~ProgressBar() {
    if (m_drawn)
      std::fputc('\n', stderr);
  }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void update(std::uint64_t done) {
    constexpr std::uint64_t kLong = std::uint64_t{64} << 20;
    if (!m_terminal)
      return;
    if (m_total) {
      if (*m_total <= kLong || *m_total == 0)
        return;
      const int percent = static_cast<int>(std::min<std::uint64_t>(100, done * 100 / *m_total));
      if (percent == m_last)
        return;
      m_last = percent;
      char bar[41];
      const int filled = percent * 40 / 100;
      for (int i = 0; i < 40; ++i)
        bar[i] = i < filled ? '#' : '.';
      bar[40] = '\0';
      std::fprintf(stderr, "\r[%s] %3d%%", bar, percent);
    } else {
      const int mebibytes = static_cast<int>(done >> 20);
      if (done < kLong || mebibytes == m_last)
        return;
      m_last = mebibytes;
      std::fprintf(stderr, "\r%d MiB", mebibytes);
    }
    m_drawn = true;
    std::fflush(stderr);
  }

private:
  std::optional<std::uint64_t> m_total;
  bool m_terminal;
  bool m_drawn = false;
  int m_last = -1;
};

// An output file that is removed again unless the command finishes: a
// failed or refused run leaves no half-written file that looks like a result.
class OutputFile {
public:
  explicit OutputFile(std::string path) : m_path(std::move(path)) { m_file = openOutput(m_path); }
  ~OutputFile() {
    if (!m_file || m_kept || m_file.get() == stdout)
      return;
    m_file.reset();
    std::remove(m_path.c_str());
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  std::FILE* get() const { return m_file.get(); }
  explicit operator bool() const { return static_cast<bool>(m_file); }
  bool write(const std::uint8_t* data, std::size_t size) {
    return std::fwrite(data, 1, size, m_file.get()) == size;
  }
  /// Flushes and keeps the file; false when the data did not reach it.
  bool finish() {
    if (std::fflush(m_file.get()) != 0 || std::ferror(m_file.get()))
      return false;
    if (m_file.get() != stdout && std::fclose(m_file.release()) != 0)
      return false;
    m_kept = true;
    return true;
  }

private:
  std::string m_path;
  File m_file;
  bool m_kept = false;
};

// ---- crc16, crc32 ------------------------------------------------------------

int runCrc16(const Invocation& call) {
  const std::string text = textInput(call);
  if (text.size() >= 65536)
    return fail("crc16", "the text must be shorter than 65,536 bytes");
  if (const auto nul = text.find('\0'); nul != std::string::npos)
    return fail("crc16", "the text holds a NUL byte at byte offset " + std::to_string(nul) +
                             "; KWCRC16 ends a text there");
  std::printf("%s\n", hexValue(KWCRC16(text.c_str()), 4).c_str());
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
  ProgressBar progress(regularFileSize(in.get()));
  std::uint64_t done = 0;
  while ((n = std::fread(chunk.data(), 1, chunk.size(), in.get())) > 0) {
    crc = KWCRC32(crc, chunk.data(), static_cast<std::uint32_t>(n));
    progress.update(done += n);
  }
  if (std::ferror(in.get()))
    return fail("crc32", errnoText(path));
  std::printf("%s\n", hexValue(crc, 8).c_str());
  return 0;
}

// ---- compress, decompress ---------------------------------------------------

// The tool streams through zlib itself, in pieces of kChunk bytes, because
// the library's compressedData and decompressedData take and give whole
// buffers: a file of any size then needs a fixed amount of memory. The
// stream format is the library's: a bare zlib stream at the default level.
constexpr std::size_t kChunk = 256 * 1024;

constexpr std::uint64_t kDefaultExpansionLimit = std::uint64_t{256} << 20;

// "4096", "64K", "256M", "2G" (powers of 1024): the one way the tool reads a
// byte size.
std::uint64_t sizeArgument(std::string_view what, std::string_view text) {
  std::uint64_t unit = 1;
  if (!text.empty()) {
    switch (text.back()) {
    case 'K':
      unit = 1ull << 10;
      break;
    case 'M':
      unit = 1ull << 20;
      break;
    case 'G':
      unit = 1ull << 30;
      break;
    case 'T':
      unit = 1ull << 40;
      break;
    default:
      break;
    }
  }
  const std::string_view digits = unit == 1 ? text : text.substr(0, text.size() - 1);
  const auto value = readInteger(digits, 0, static_cast<long long>((1ull << 62) / unit));
  if (!value)
    throw UsageError(std::string(what) +
                     " must be a byte count such as 4096, 64K, 256M or 2G, "
                     "not '" +
                     std::string(text) + "'");
  return static_cast<std::uint64_t>(*value) * unit;
}

struct ZlibStream {
  z_stream stream{};
  int (*end)(z_streamp) = nullptr;
  ~ZlibStream() {
    if (end)
      end(&stream);
  }
};

int runCompress(const Invocation& call) {
  const char* name = "compress";
  const auto& args = call.operands();
  if (args.size() > 2)
    return usage(name);
  const std::string inPath = args.size() > 0 ? args[0] : "-";
  const std::string outPath = args.size() > 1 ? args[1] : "-";
  File in = openInput(inPath);
  if (!in)
    return fail(name, errnoText(inPath));
  std::vector<std::uint8_t> input(kChunk), output(kChunk);
  std::size_t got = std::fread(input.data(), 1, input.size(), in.get());
  if (std::ferror(in.get()))
    return fail(name, errnoText(inPath));
  if (got == 0)
    return fail(name, "empty input has no compressed form");
  ZlibStream zlib;
  if (deflateInit(&zlib.stream, Z_DEFAULT_COMPRESSION) != Z_OK)
    return fail(name, "compression failed: out of memory");
  zlib.end = deflateEnd;
  OutputFile out(outPath);
  if (!out)
    return fail(name, errnoText(outPath));
  ProgressBar progress(regularFileSize(in.get()));
  std::uint64_t done = 0;
  for (;;) {
    const bool last = got < input.size() && (std::feof(in.get()) || std::ferror(in.get()));
    if (std::ferror(in.get()))
      return fail(name, errnoText(inPath));
    zlib.stream.next_in = input.data();
    zlib.stream.avail_in = static_cast<uInt>(got);
    int status;
    do {
      zlib.stream.next_out = output.data();
      zlib.stream.avail_out = static_cast<uInt>(output.size());
      status = deflate(&zlib.stream, last ? Z_FINISH : Z_NO_FLUSH);
      if (status == Z_STREAM_ERROR)
        return fail(name, "compression failed");
      if (!out.write(output.data(), output.size() - zlib.stream.avail_out))
        return fail(name, errnoText(outPath));
    } while (zlib.stream.avail_out == 0);
    progress.update(done += got);
    if (last)
      break;
    got = std::fread(input.data(), 1, input.size(), in.get());
  }
  if (!out.finish())
    return fail(name, errnoText(outPath));
  return 0;
}

int runDecompress(const Invocation& call) {
  const char* name = "decompress";
  const auto& args = call.operands();
  if (args.size() > 2)
    return usage(name);
  const std::uint64_t limit = call.value("max-size")
                                  ? sizeArgument("--max-size", *call.value("max-size"))
                                  : kDefaultExpansionLimit;
  const std::string inPath = args.size() > 0 ? args[0] : "-";
  const std::string outPath = args.size() > 1 ? args[1] : "-";
  File in = openInput(inPath);
  if (!in)
    return fail(name, errnoText(inPath));
  ZlibStream zlib;
  if (inflateInit(&zlib.stream) != Z_OK)
    return fail(name, "decompression failed: out of memory");
  zlib.end = inflateEnd;
  OutputFile out(outPath);
  if (!out)
    return fail(name, errnoText(outPath));
  std::vector<std::uint8_t> input(kChunk), output(kChunk);
  ProgressBar progress(regularFileSize(in.get()));
  std::uint64_t consumed = 0, produced = 0;
  bool started = false, ended = false;
  while (!ended) {
    const std::size_t got = std::fread(input.data(), 1, input.size(), in.get());
    if (std::ferror(in.get()))
      return fail(name, errnoText(inPath));
    if (got == 0)
      break;
    started = true;
    zlib.stream.next_in = input.data();
    zlib.stream.avail_in = static_cast<uInt>(got);
    do {
      zlib.stream.next_out = output.data();
      zlib.stream.avail_out = static_cast<uInt>(output.size());
      const int status = inflate(&zlib.stream, Z_NO_FLUSH);
      if (status == Z_NEED_DICT || status == Z_DATA_ERROR)
        return fail(name, "the input is not a zlib stream, or it is damaged (byte offset " +
                              std::to_string(consumed + (got - zlib.stream.avail_in)) + ")");
      if (status == Z_MEM_ERROR)
        return fail(name, "decompression failed: out of memory");
      const std::size_t made = output.size() - zlib.stream.avail_out;
      if (produced + made > limit)
        return fail(name, "the data expands to more than " + std::to_string(limit) +
                              " bytes; stopped (raise the limit with --max-size)");
      produced += made;
      if (!out.write(output.data(), made))
        return fail(name, errnoText(outPath));
      if (status == Z_STREAM_END) {
        ended = true; // bytes after the end of the stream are ignored
        break;
      }
    } while (zlib.stream.avail_out == 0 || zlib.stream.avail_in > 0);
    consumed += got;
    progress.update(consumed);
  }
  // Empty input expands to empty output, as with the library.
  if (started && !ended)
    return fail(name, "the zlib stream is cut short");
  if (!out.finish())
    return fail(name, errnoText(outPath));
  return 0;
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

int runConvertSamples(const Invocation& call) {
  const char* name = "convert-samples";
  const auto& args = call.operands();
  const bool deinterleave = call.has("deinterleave");
  const bool interleave = call.has("interleave");
  if (args.size() != 4 || (deinterleave && interleave))
    return usage(name);
  const std::string secondPath =
      call.value(deinterleave ? "deinterleave" : "interleave").value_or("");
  const std::size_t i = 0; // FROM TO IN OUT are the operands from here
  const SampleFormat* from = findFormat(args[i]);
  const SampleFormat* to = findFormat(args[i + 1]);
  if (!from || !to)
    throw UsageError("formats are s8 u8 s16be s16le s24be s24le s32be s32le f32be f32le f64be, "
                     "not '" +
                     (from ? args[i + 1] : args[i]) + "'");
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

Register crc16Command{{"crc16",
                       "[TEXT... | --input FILE|-]",
                       "CRC-16/AUG-CCITT (KWCRC16) of a text",
                       {inputOption()},
                       runCrc16,
                       "The text is the arguments joined with blanks, the file named by --input "
                       "('-' for\nstandard input; a lone '-' argument too), or standard input when "
                       "there are neither; from "
                       "a file or\nstandard input one trailing line feed is dropped. The text must "
                       "be shorter than\n65,536 bytes and hold no NUL byte. Prints the checksum as "
                       "0x and four hexadecimal\ndigits, e.g. 0xE5CC for 123456789.",
                       {}}};
Register crc32Command{{"crc32",
                       "[FILE|-]",
                       "CRC-32 (KWCRC32) of a file or standard input",
                       {},
                       runCrc32,
                       "Reads FILE, or standard input when it is '-' or missing, in pieces of any "
                       "size.\nPrints the checksum as 0x and eight hexadecimal digits, e.g. "
                       "0xCBF43926 for\n123456789. Shows progress on a terminal for inputs over "
                       "64 MiB.",
                       {}}};
Register compressCommand{
    {"compress",
     "[IN|- [OUT|-]]",
     "compress into a bare zlib stream, the library's compressed-data format",
     {},
     runCompress,
     "Reads IN (standard input when '-' or missing) and writes OUT (standard output when\n"
     "'-' or missing), streaming in fixed-size pieces: memory use does not grow with\n"
     "the input. Empty input has no compressed form (exit 1), as with compressedData.\n"
     "A run that fails removes the OUT file it made. Shows progress on a terminal for\n"
     "inputs over 64 MiB.",
     {}}};
Register decompressCommand{
    {"decompress",
     "[--max-size SIZE] [IN|- [OUT|-]]",
     "expand a bare zlib stream",
     {{"max-size", 0, "SIZE", "refuse to expand past SIZE bytes (K, M, G suffixes; default 256M)"}},
     runDecompress,
     "Reads IN (standard input when '-' or missing) and writes OUT (standard output when\n"
     "'-' or missing), streaming in fixed-size pieces: memory use does not grow with\n"
     "the input or the output. A stream that would expand past the --max-size limit is\n"
     "stopped with exit 1, so a small hostile input (a \"zlib bomb\") cannot fill the\n"
     "disk. A damaged or cut-short stream is an error (exit 1); bytes after the end of\n"
     "the stream are ignored and empty input gives empty output, as with\n"
     "decompressedData. A run that fails removes the OUT file it made. Shows progress on\n"
     "a terminal for inputs over 64 MiB.",
     {}}};
Register convertCommand{
    {"convert-samples",
     "[--deinterleave OUT2 | --interleave IN2] FROM TO IN|- OUT|-",
     "convert raw PCM samples between formats, optionally splitting or joining two channels",
     {{"deinterleave", 0, "OUT2", "IN holds two interleaved channels: write the second to OUT2"},
      {"interleave", 0, "IN2", "interleave IN with a second channel read from IN2"}},
     runConvertSamples,
     "FROM and TO are sample formats:\n"
     "  s8 u8                8-bit signed, unsigned\n"
     "  s16be s16le          16-bit signed, big- or little-endian\n"
     "  s24be s24le          24-bit signed, packed in 3 bytes\n"
     "  s32be s32le          32-bit signed\n"
     "  f32be f32le f64be    IEEE floating point\n"
     "Samples pass through 32-bit floats (GetConvertNToFloat, GetConvertFloatToN); values\n"
     "beyond full scale clip. Trailing bytes that make no whole frame are ignored with a\n"
     "warning. IN and OUT may be '-' for standard input and output. Shows progress on a\n"
     "terminal for inputs over 64 MiB.",
     {"s8", "u8", "s16be", "s16le", "s24be", "s24le", "s32be", "s32le", "f32be", "f32le",
      "f64be"}}};

// ---- Tour ---------------------------------------------------------------------

std::string hex(const unsigned char* p, std::size_t n) {
  return hexBytes(std::string_view(reinterpret_cast<const char*>(p), n));
}

void tourSwapping() {
  unsigned char record[] = {0x00, 0x00, 0x00, 0x01, 0x00, 0x02, 'T', 'E', 'M', 'P'};
  std::cout << "Byte-order swapping converts records between big-endian (most significant\n"
               "byte first) and little-endian (\"Intel\") order, driven by a table that lists\n"
               "the record's fields (4: a 32-bit value, 2: a 16-bit value; 0 ends the table).\n";
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
  std::cout << "Sample converters turn PCM audio (samples stored as integers of 8 to 32 bits\n"
               "or as floats) into 32-bit floats and back; interleaved channels alternate\n"
               "sample by sample.\n";
  const float in[] = {0.5f, -0.25f, 1.0f, -1.0f};
  unsigned char pcm[8];
  GetConvertFloatToN(2, 0)(pcm, in, 4, nullptr);
  std::cout << "Floats 0.5 -0.25 1.0 -1.0 as 16-bit big-endian PCM: " << hex(pcm, 8)
            << "  (1.0 clips to 7F FF)\n";
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
  std::cout << "A checksum is a short number computed from data; a changed byte changes it.\n"
            << "KWCRC16(\"123456789\") = " << hexValue(KWCRC16("123456789"), 4)
            << "  (CRC-16/AUG-CCITT)\n";
  const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
  const auto whole = KWCRC32(0, digits, 9);
  const auto chained = KWCRC32(KWCRC32(0, digits, 4), digits + 4, 5);
  std::cout << "KWCRC32 of the same digits = " << hexValue(whole, 8) << ", in two pieces "
            << hexValue(chained, 8) << " (a running checksum continues where it stopped)\n"
            << "CRC-32 method on this processor: " << vtcore::crc32MethodName(vtcore::crc32Method())
            << "\n";
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
  std::cout << "Data blocks are compressed into a zlib stream (the deflate format with a\n"
               "2-byte header and a checksum).\n";
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
