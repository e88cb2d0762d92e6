// Runs the vtcore tool as a user would, through a shell, and checks what a
// user relies on: exit statuses, standard input, help on every command, the
// expansion limit of decompress.
#include <vtcore/vtcore.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

namespace {

namespace fs = std::filesystem;

fs::path scratch(const std::string& name) {
  return fs::temp_directory_path() / ("vtcore_cli_" + std::to_string(::getpid()) + "_" + name);
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

// `arguments` is shell text; `input` becomes the tool's standard input.
ToolRun tool(const std::string& arguments, const std::string& input = "") {
  const auto in = scratch("stdin"), out = scratch("stdout"), err = scratch("stderr");
  writeFile(in, input);
  const std::string command = std::string(VTCORE_CLI_PATH) + " " + arguments + " <" + in.string() +
                              " >" + out.string() + " 2>" + err.string();
  const int raw = std::system(command.c_str());
  ToolRun run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readFile(out), readFile(err)};
  fs::remove(in);
  fs::remove(out);
  fs::remove(err);
  return run;
}

// The command names, as the tool lists them in its --help.
std::vector<std::string> commandNames() {
  std::istringstream lines(tool("--help").out);
  std::vector<std::string> names;
  bool inList = false;
  for (std::string line; std::getline(lines, line);) {
    if (line == "commands:") {
      inList = true;
      continue;
    }
    if (inList && line.empty())
      break;
    if (inList)
      names.push_back(line.substr(2, line.find(' ', 2) - 2));
  }
  return names;
}

std::string zlibOf(const std::string& bytes) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  std::string packed(size, '\0');
  EXPECT_EQ(compress(reinterpret_cast<Bytef*>(packed.data()), &size,
                     reinterpret_cast<const Bytef*>(bytes.data()),
                     static_cast<uLong>(bytes.size())),
            Z_OK);
  packed.resize(size);
  return packed;
}

// A small stream that expands to `size` zero bytes, made piece by piece.
std::string zlibBombOf(std::size_t size) {
  z_stream stream{};
  EXPECT_EQ(deflateInit(&stream, Z_BEST_COMPRESSION), Z_OK);
  const std::string zeros(1 << 20, '\0');
  std::string packed;
  std::string out(1 << 16, '\0');
  for (std::size_t done = 0; done < size; done += zeros.size()) {
    const bool last = done + zeros.size() >= size;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
    stream.avail_in = static_cast<uInt>(zeros.size());
    do {
      stream.next_out = reinterpret_cast<Bytef*>(out.data());
      stream.avail_out = static_cast<uInt>(out.size());
      deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH);
      packed.append(out.data(), out.size() - stream.avail_out);
    } while (stream.avail_out == 0);
  }
  deflateEnd(&stream);
  return packed;
}

} // namespace

TEST(VtcoreTool, HelpOnEveryCommandIsNeverTakenAsData) {
  const auto names = commandNames();
  ASSERT_GE(names.size(), 25u) << "the command list of --help was not found";
  for (const auto& name : names) {
    SCOPED_TRACE(name);
    const ToolRun help = tool(name + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.starts_with("usage: vtcore " + name)) << help.out;
    EXPECT_NE(help.out.find("exit status:"), std::string::npos);
    EXPECT_EQ(help.err, "");
    // The short form, help after a bad argument, and `vtcore help CMD` agree.
    EXPECT_EQ(tool(name + " --no-such-option -h").out, help.out);
    EXPECT_EQ(tool("help " + name).out, help.out);
  }
  // After "--" it is data.
  EXPECT_EQ(tool("url -- --help").out, "http://--help\n");
  EXPECT_EQ(tool("help no-such-command").status, 2);
}

TEST(VtcoreTool, VersionIsTheLibrarys) {
  const ToolRun run = tool("--version");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, std::string("vtcore (VTCore) ") + vtcore::libraryVersion() + "\n");
  EXPECT_STREQ(vtcore::libraryVersion(), VTCORE_VERSION_STRING);
}

TEST(VtcoreTool, ExitStatusSaysSuccessNoOrBadUsage) {
  const struct {
    const char* arguments;
    int status;
  } cases[] = {
      {"", 2},
      {"no-such-command", 2},
      {"--no-such-option", 2},
      {"midi --style x 60", 2},
      {"midi --no-such-option 60", 2},
      {"midi --style", 2},
      {"log 9 message", 2},
      {"checkmemory 12abc", 2},
      {"channels 9", 2},
      {"utf8 copy -1 text", 2},
      {"utf8 no-such-action", 2},
      {"keys name 0 --layout no-such-layout", 2},
      {"transients --make 99999999999 x", 2},
      {"decompress --max-size 12Q", 2},
      {"convert-samples s16le s17le - -", 2},
      {"is-email a.b@c.de", 0},
      {"is-email not-an-address", 1},
      {"bool yes", 0},
      {"bool no", 1},
      {"utf8 check --hex C3 A9", 0},
      {"utf8 check --hex A9", 1},
      {"crc32 /no/such/file", 1},
      {"crc16 --input /no/such/file", 1},
      {"crc16 --input /", 1},
      {"transients /", 1},
  };
  for (const auto& c : cases) {
    const ToolRun run = tool(c.arguments);
    EXPECT_EQ(run.status, c.status) << "vtcore " << c.arguments << "\n" << run.err;
    if (c.status == 2) {
      EXPECT_NE(run.err.find("usage: vtcore"), std::string::npos) << c.arguments;
    }
  }
}

TEST(VtcoreTool, DataComesFromFilesOrStandardInput) {
  EXPECT_EQ(tool("crc32 -", "123456789").out, "0xCBF43926\n");
  EXPECT_EQ(tool("crc32", "123456789").out, "0xCBF43926\n");
  EXPECT_EQ(tool("crc16 -i -", "123456789\n").out, "0xE5CC\n");
  EXPECT_EQ(tool("crc16 -", "123456789\n").out, "0xE5CC\n");
  EXPECT_EQ(tool("crc16 123456789").out, "0xE5CC\n");
  const auto file = scratch("text");
  writeFile(file, "123456789");
  EXPECT_EQ(tool("crc16 --input " + file.string()).out, "0xE5CC\n");
  EXPECT_EQ(tool("crc32 " + file.string()).out, "0xCBF43926\n");
  EXPECT_EQ(tool("xml-escape --input=-", "a<b\n").out, "a&lt;b\n");
  EXPECT_EQ(tool("crc16 --input " + file.string() + " extra").status, 2);
  fs::remove(file);

  // A stored block read from standard input.
  const auto block = scratch("block");
  ASSERT_EQ(tool("transients --make 3 " + block.string()).status, 0);
  const ToolRun fromStdin = tool("transients -", readFile(block));
  EXPECT_EQ(fromStdin.status, 0) << fromStdin.err;
  EXPECT_NE(fromStdin.out.find("3 records"), std::string::npos) << fromStdin.out;
  fs::remove(block);
}

TEST(VtcoreTool, NumbersAreReadOneWayAndOptionsStandAnywhere) {
  EXPECT_EQ(tool("midi 60 --style 3").out, "60\t\"C3\"\n");
  EXPECT_EQ(tool("midi --style=3 0x3C").out, "0x3C\t\"C3\"\n");
  // No octal surprise: 010 is ten.
  EXPECT_EQ(tool("midi 010").out, "010\t\"10\"\n");
  // A negative number is a value, not an option.
  EXPECT_EQ(tool("midi --style 1 -5").out, "-5\t\"-5\"\n");
}

TEST(VtcoreTool, Utf8JudgesEveryByteAndSaysWhere) {
  // A NUL byte no longer hides what follows it.
  const ToolRun nulThenInvalid = tool("utf8 check -i -", std::string("ab\0\xFF", 4));
  EXPECT_EQ(nulThenInvalid.status, 1);
  EXPECT_NE(nulThenInvalid.out.find("byte offset 3"), std::string::npos) << nulThenInvalid.out;
  EXPECT_EQ(tool("utf8 length -i -", std::string("ab\0\xFF", 4)).status, 1);

  const ToolRun withNul = tool("utf8 length -i -", std::string("a\0\xC3\xA9", 4));
  EXPECT_EQ(withNul.status, 0);
  EXPECT_EQ(withNul.out, "3 characters, 4 bytes\n");

  const ToolRun stray = tool("utf8 check --hex 41 C3 A9 80 42");
  EXPECT_EQ(stray.status, 1);
  EXPECT_NE(stray.out.find("byte offset 3"), std::string::npos) << stray.out;

  const ToolRun cutShort = tool("utf8 length --hex 41 42 E2 82");
  EXPECT_EQ(cutShort.status, 1);
  EXPECT_NE(cutShort.err.find("byte offset 2"), std::string::npos) << cutShort.err;
  EXPECT_NE(cutShort.err.find("cut short"), std::string::npos) << cutShort.err;

  EXPECT_EQ(tool("utf8 nfd -i -", std::string("a\0b", 3)).status, 1);
}

TEST(VtcoreTool, CompressionStreamsAndRoundTrips) {
  std::string data;
  for (int i = 0; data.size() < (3u << 20); ++i)
    data += "bar " + std::to_string(i * 7919 % 1000) + " of swing; ";
  const auto plain = scratch("plain"), packed = scratch("packed"), back = scratch("back");
  writeFile(plain, data);
  ASSERT_EQ(tool("compress " + plain.string() + " " + packed.string()).status, 0);
  const std::string stream = readFile(packed);
  // The library reads what the tool wrote, and the tool what the library wrote.
  const auto expanded = vtcore::byte_buffer::decompressedData(
      {reinterpret_cast<const std::uint8_t*>(stream.data()), stream.size()});
  ASSERT_TRUE(expanded);
  EXPECT_TRUE(std::equal(expanded->begin(), expanded->end(), data.begin(), data.end()));
  EXPECT_EQ(tool("decompress - -", zlibOf(data)).out, data);
  ASSERT_EQ(tool("decompress " + packed.string() + " " + back.string()).status, 0);
  EXPECT_EQ(readFile(back), data);

  // A cut-short stream fails and leaves no output file behind.
  fs::remove(back);
  writeFile(packed, stream.substr(0, stream.size() / 2));
  EXPECT_EQ(tool("decompress " + packed.string() + " " + back.string()).status, 1);
  EXPECT_FALSE(fs::exists(back));
  EXPECT_EQ(tool("compress", "").status, 1);
  EXPECT_EQ(tool("decompress", "not zlib at all").status, 1);
  fs::remove(plain);
  fs::remove(packed);
}

TEST(VtcoreTool, DecompressStopsAZlibBombInLittleMemory) {
  // About 300 KB that expand to 300 MiB: past the default limit of 256 MiB.
  const std::string bomb = zlibBombOf(std::size_t{300} << 20);
  ASSERT_LT(bomb.size(), std::size_t{1} << 20);
  const auto out = scratch("bomb-out");
  const ToolRun stopped = tool("decompress - " + out.string(), bomb);
  EXPECT_EQ(stopped.status, 1);
  EXPECT_NE(stopped.err.find("--max-size"), std::string::npos) << stopped.err;
  EXPECT_FALSE(fs::exists(out)) << "the partial output must be removed";

  EXPECT_EQ(tool("decompress --max-size 1M - /dev/null", zlibOf(std::string(2 << 20, 'x'))).status,
            1);
  EXPECT_EQ(tool("decompress --max-size 2M - /dev/null", zlibOf(std::string(2 << 20, 'x'))).status,
            0);

  // Streaming: the tool never held the expanded data. (Sanitizer builds,
  // where the library leaves the allocator alone, add shadow memory of their
  // own: the bound would measure the sanitizer.)
  if (vtcore::mallocZoneInterposed()) {
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    EXPECT_LT(usage.ru_maxrss, 64 * 1024) << "kilobytes";
  }
}

TEST(VtcoreTool, ManPageAndCompletionCoverEveryCommand) {
  const std::string man = tool("help --man").out;
  const std::string completion = tool("help --bash-completion").out;
  for (const auto& name : commandNames()) {
    std::string roffName; // roff writes a minus sign as \-
    for (char c : name)
      roffName += c == '-' ? std::string("\\-") : std::string(1, c);
    EXPECT_NE(man.find(".SS \"" + roffName), std::string::npos) << name;
    EXPECT_NE(completion.find("    " + name + ") options="), std::string::npos) << name;
  }
  const auto script = scratch("completion");
  writeFile(script, completion);
  EXPECT_EQ(std::system(("bash -n " + script.string()).c_str()), 0);
  fs::remove(script);
}

TEST(VtcoreTool, TourWritesOneOrderedOutput) {
  const ToolRun tour = tool("tour");
  EXPECT_EQ(tour.status, 0);
  EXPECT_EQ(tour.err, "") << "the tour's log lines belong to its own output";
  // The log lines sit inside their steps, in order.
  const auto logging = tour.out.find("=== Logging ===");
  const auto logged = tour.out.find("tour: the logger writes");
  const auto assertions = tour.out.find("=== Assertions ===");
  EXPECT_LT(logging, logged);
  EXPECT_LT(logged, assertions);
  EXPECT_NE(tour.out.find("kept out of the system journal"), std::string::npos);
  EXPECT_EQ(tour.out.find("failed.) in"), std::string::npos);
  EXPECT_EQ(tour.out.find(" 1.0\n"), std::string::npos);
  EXPECT_NE(tour.out.find(std::string("vtcore tour ") + vtcore::libraryVersion()),
            std::string::npos);
}
