// vtcore subcommands and tour steps of the music and system helpers:
// channel layouts, MIDI formatting, stored transient blocks, code paths.

#include "command.h"

#include <vtcore/vtcore.h>

#include <algorithm>
#include <any>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace vtcore::cli;

constexpr std::size_t kBlockHeaderBytes = 1024;

const char* formatNickname(std::uint32_t format) {
  static const char* const names[] = {"none", "mono", "stereo", "quad",    "LCRS",
                                      "5.1",  "6.1",  "7.1",    "7.1 SDDS"};
  return format <= 8 ? names[format] : "?";
}

std::string channelList(const std::uint32_t* order, std::uint32_t count) {
  std::string text;
  for (std::uint32_t i = 0; i < count; ++i)
    text += std::string(i ? " " : "") + GetChannelLabel(order[i]);
  return text;
}

std::vector<std::uint32_t> channelsOf(std::uint32_t format) {
  std::uint32_t order[8] = {};
  GetMappingForFormatAndAudioChannelLayoutTag(format, 0, order);
  const std::uint32_t count =
      static_cast<std::uint32_t>(__builtin_popcountll(GetChannelIDBitMask(format)));
  return {order, order + count};
}

void printFormat(std::uint32_t format) {
  const auto channels = channelsOf(format);
  std::cout << "Format " << format << " (" << formatNickname(format)
            << "): " << channelList(channels.data(), static_cast<std::uint32_t>(channels.size()))
            << "   mask " << hexValue(GetChannelIDBitMask(format)) << "\n";
  std::cout << "  id  name  host label  angle\n";
  for (std::uint32_t id : channels) {
    std::cout << "  " << std::setw(2) << id << "  " << std::left << std::setw(4)
              << GetChannelLabel(id) << std::right << "  " << std::setw(10)
              << GetLabelForChannelID(format, id) << "  ";
    const float angle = GetAngleForChannel(format, id);
    if (angle == vtcore::kDirectionlessAngle)
      std::cout << "1000 (no direction)\n";
    else
      std::cout << angle << "\n";
  }
  std::cout << "  layouts:\n";
  for (const auto& row : vtcore::channelLayoutTable()) {
    if (row.format != format)
      continue;
    std::ostringstream tag;
    if (row.tag == 0)
      tag << "own order";
    else
      tag << "tag " << (row.tag >> 16) << "/" << (row.tag & 0xFFFF) << " (" << row.tag << ")";
    std::cout << "    " << std::left << std::setw(22) << tag.str() << std::right
              << channelList(row.order, row.channelCount) << "\n";
  }
}

// The speakers on a circle seen from above, front at the top, left on the
// left; directionless channels (LFE) sit in a box of their own.
std::string speakerPicture(std::uint32_t format) {
  constexpr double kPi = 3.14159265358979323846;
  constexpr double cx = 230, cy = 250, radius = 150;
  std::ostringstream svg;
  svg << std::fixed << std::setprecision(1);
  svg << R"(<svg xmlns="http://www.w3.org/2000/svg" width="460" height="500" )"
      << R"(viewBox="0 0 460 500" font-family="DejaVu Sans, sans-serif">)"
      << "\n";
  svg << R"(<rect width="460" height="500" fill="#ffffff"/>)"
      << "\n";
  const auto channels = channelsOf(format);
  svg << R"(<text x="230" y="30" font-size="17" text-anchor="middle" font-weight="bold">)"
      << "Format " << format << " (" << formatNickname(format)
      << "): " << channelList(channels.data(), static_cast<std::uint32_t>(channels.size()))
      << "</text>\n";
  svg << "<circle cx=\"" << cx << "\" cy=\"" << cy << "\" r=\"" << radius
      << R"(" fill="none" stroke="#999999" stroke-dasharray="4 4"/>)"
      << "\n";
  svg << "<text x=\"" << cx << "\" y=\"" << cy + 34
      << R"(" font-size="11" text-anchor="middle" fill="#777777">listener, facing front</text>)"
      << "\n";
  // The listener, facing the front.
  svg << "<circle cx=\"" << cx << "\" cy=\"" << cy
      << R"(" r="12" fill="#dddddd" stroke="#555555"/>)"
      << "\n";
  svg << "<path d=\"M " << cx - 6 << " " << cy - 9 << " L " << cx << " " << cy - 20 << " L "
      << cx + 6 << " " << cy - 9 << R"(" fill="#555555"/>)"
      << "\n";
  int directionless = 0;
  for (std::uint32_t id : channels) {
    const float angle = GetAngleForChannel(format, id);
    const std::string name = GetChannelLabel(id);
    if (angle == vtcore::kDirectionlessAngle) {
      const double x = 365, y = 440 - 66.0 * directionless++;
      svg << "<rect x=\"" << x - 45 << "\" y=\"" << y - 28 << R"(" width="125" height="58" )"
          << R"(rx="6" fill="#fff4e0" stroke="#cc8800"/>)"
          << "\n";
      svg << "<rect x=\"" << x - 34 << "\" y=\"" << y - 16
          << R"(" width="24" height="24" fill="#cc8800"/>)"
          << "\n";
      svg << "<text x=\"" << x << "\" y=\"" << y + 2 << R"(" font-size="15" font-weight="bold">)"
          << name << "</text>\n";
      svg << "<text x=\"" << x - 34 << "\" y=\"" << y + 22
          << R"(" font-size="10" fill="#775500">no direction (1000)</text>)"
          << "\n";
      continue;
    }
    const double rad = angle * kPi / 180.0;
    const double x = cx + radius * std::sin(rad), y = cy - radius * std::cos(rad);
    svg << "<line x1=\"" << cx << "\" y1=\"" << cy << "\" x2=\"" << x << "\" y2=\"" << y
        << R"(" stroke="#cccccc"/>)"
        << "\n";
    svg << "<circle cx=\"" << x << "\" cy=\"" << y
        << R"(" r="20" fill="#2a6fdb" stroke="#103a80" stroke-width="2"/>)"
        << "\n";
    svg << "<text x=\"" << x << "\" y=\"" << y + 5
        << R"(" font-size="14" font-weight="bold" fill="#ffffff" text-anchor="middle">)" << name
        << "</text>\n";
    // The angle goes outside the circle, away from the listener.
    const double lx = cx + (radius + 36) * std::sin(rad), ly = cy - (radius + 36) * std::cos(rad);
    std::ostringstream degrees;
    degrees << angle;
    svg << "<text x=\"" << lx << "\" y=\"" << ly + 4
        << R"(" font-size="12" text-anchor="middle" fill="#333333">)" << degrees.str()
        << "&#176;</text>\n";
  }
  svg << "</svg>\n";
  return svg.str();
}

int runChannels(const Invocation& call) {
  std::optional<std::uint32_t> format;
  if (call.operands().size() > 1)
    return usage("channels");
  if (!call.operands().empty())
    format = static_cast<std::uint32_t>(integerArgument("FORMAT", call.operands()[0], 1, 8));
  const std::string svgFile = call.value("svg").value_or("");
  if (call.has("svg") && svgFile.empty())
    throw UsageError("--svg needs a file name");
  if (!svgFile.empty()) {
    if (!format)
      return usage("channels");
    std::ofstream out(svgFile, std::ios::binary);
    out << speakerPicture(*format);
    if (!out.flush())
      return fail("channels", "cannot write " + svgFile);
    std::cout << "wrote " << svgFile << "\n";
    return 0;
  }
  for (std::uint32_t f = format.value_or(1); f <= format.value_or(8); ++f) {
    printFormat(f);
    if (f != format.value_or(8))
      std::cout << "\n";
  }
  return 0;
}

Register channelsCommand{{"channels",
                          "[FORMAT 1-8] [--svg FILE]",
                          "surround formats: channels, mask, host labels and tags, angles; "
                          "--svg draws the speakers",
                          {{"svg", 0, "FILE", "draw the speakers of FORMAT as an SVG picture"}},
                          runChannels,
                          "FORMAT is a surround format: 1 mono, 2 stereo, 3 quad, 4 LCRS, 5 5.1, "
                          "6 6.1, 7 7.1,\n8 7.1 SDDS; without it all eight are listed. For each "
                          "channel: its id, name, the\nlabel number of the host's layout, and its "
                          "angle in degrees (0 front, negative\nleft); 1000 marks a channel "
                          "without direction (LFE). A layout tag is\nlayout/channel count, as in "
                          "121/6. --svg needs FORMAT.",
                          {}}};

int runMidi(const Invocation& call) {
  int style = 0;
  if (auto text = call.value("style"))
    style = static_cast<int>(integerArgument("--style", *text, INT32_MIN, INT32_MAX));
  const std::vector<std::string>& values = call.operands();
  if (values.empty())
    return usage("midi");
  KWMIDIFormatter formatter;
  formatter.setNoteStyle(style);
  for (const auto& text : values) {
    // A number is handed over as a number object; anything else as a string
    // object, which the formatter shows as the empty text.
    std::any value;
    if (auto integer = readInteger(text, LLONG_MIN, LLONG_MAX))
      value = *integer;
    else if (auto real = readReal(text))
      value = *real;
    else
      value = text;
    std::string shown;
    formatter.stringForObjectValue(value).toUTF8String(shown);
    std::cout << text << "\t\"" << shown << "\"\n";
  }
  return 0;
}

Register midiCommand{
    {"midi",
     "[--style N] VALUE...",
     "MIDI values as text: style 0 decimal, 1 signed, 2 hexadecimal, 3 note name",
     {{"style", 0, "N", "note style 0 to 3 (below); default 0"}},
     runMidi,
     "Note styles of KWMIDIFormatter:\n"
     "  0  decimal: 60\n"
     "  1  signed decimal, zero with a plus-minus sign: +60, \u00b1 0, -5\n"
     "  2  hexadecimal: 0x3C (15 shows as \"0x F\", the formatter's own padding)\n"
     "  3  note name with octave, middle C is C3: C3, C#3; empty for negative values\n"
     "Other styles give the empty text. A VALUE is a whole number (decimal, or\n"
     "hexadecimal after 0x) or a decimal fraction; anything else is handed over as a\n"
     "text, which the formatter shows as empty. Each line is the VALUE, a tab, and the\n"
     "formatted text in double quotes.",
     {}}};

std::vector<unsigned char> readFile(const std::string& name) {
  const std::string bytes = readInput(name);
  return {bytes.begin(), bytes.end()};
}

std::uint32_t headerWord(const std::vector<unsigned char>& block, std::size_t index) {
  std::uint32_t word;
  std::memcpy(&word, block.data() + 4 * index, sizeof word);
  return word;
}

// A sample block in this machine's byte order: the four header words are a
// made-up signature ('VTtr'), a version, the record count and the record
// size; the records are random but reproducible (fixed seed).
int makeBlock(const std::string& countText, const std::string& file) {
  const long long count = integerArgument("N", countText, 0, 10'000'000);
  std::vector<unsigned char> block(kBlockHeaderBytes + static_cast<std::size_t>(count) * 36);
  const std::uint32_t header[4] = {0x56547472, 1, static_cast<std::uint32_t>(count), 36};
  std::memcpy(block.data(), header, sizeof header);
  std::mt19937_64 random(20261122);
  std::uniform_int_distribution<std::int64_t> step(1, 44100);
  std::uniform_real_distribution<float> energy(0.0f, 1.0f), freq(20.0f, 20000.0f);
  std::int64_t pos = 0;
  for (long long i = 0; i < count; ++i) {
    CTransient transient;
    pos += step(random);
    transient.pos = pos;
    transient.Energy = energy(random);
    transient.visibleweight = energy(random);
    transient.FreqHz = std::round(freq(random));
    std::memcpy(block.data() + kBlockHeaderBytes + 36 * static_cast<std::size_t>(i), &transient,
                sizeof transient);
  }
  std::ofstream out(file, std::ios::binary);
  out.write(reinterpret_cast<const char*>(block.data()),
            static_cast<std::streamsize>(block.size()));
  if (!out.flush())
    return fail("transients", "cannot write " + file);
  std::cout << "wrote " << file << ": " << count << " transients, " << block.size() << " bytes\n";
  return 0;
}

int runTransients(const Invocation& call) {
  if (auto count = call.value("make")) {
    if (call.operands().size() != 1 || call.has("swap"))
      return usage("transients");
    return makeBlock(*count, call.operands()[0]);
  }
  if (call.operands().size() != 1)
    return usage("transients");
  const std::string& file = call.operands()[0];
  const bool swap = call.has("swap");
  const auto bytes = readFile(file);
  const auto* block = &bytes;
  if (block->size() < kBlockHeaderBytes)
    return fail("transients", file + " is no stored transient block: " +
                                  std::to_string(block->size()) + " bytes, fewer than 1024");
  auto swapped = bytes;
  if (swap) {
    SwapTransientCallback(swapped.data(), swapped.size(), true);
    block = &swapped;
  }
  const std::size_t records = (block->size() - kBlockHeaderBytes) / 36;
  const std::size_t trailing = (block->size() - kBlockHeaderBytes) % 36;
  std::cout << file << ": " << block->size() << " bytes" << (swap ? ", byte order swapped" : "")
            << "\nheader words:";
  for (std::size_t i = 0; i < 4; ++i)
    std::cout << " " << hexValue(headerWord(*block, i), 8);
  std::cout << "\n" << records << " records, " << trailing << " trailing bytes left alone\n";
  CTransients transients(records);
  if (records)
    std::memcpy(static_cast<void*>(transients.data()), block->data() + kBlockHeaderBytes,
                records * 36);
  std::cout << "CTransients: size  " << transients.size() << "\n";
  bbTraceIndentBegin("transients", "", 2);
  for (const auto& transient : transients) {
    IndentToCout();
    std::cout << transient << "\n";
  }
  bbTraceIndentEnd();
  std::cout << "in position order: " << (transients.AreSortedByPos() ? "yes" : "no")
            << ", unique: " << (transients.AreUniqueAndSortedByPos() ? "yes" : "no") << "\n";
  return 0;
}

Register transientsCommand{{"transients",
                            "[--swap] FILE|- | --make N FILE",
                            "print a stored transient block (optionally byte-swapped), or "
                            "write a sample block of N transients",
                            {{"swap", 0, "", "swap the block's byte order before printing it"},
                             {"make", 0, "N", "write a sample block of N transients to FILE"}},
                            runTransients,
                            "A stored transient block is a 1024-byte header followed by 36-byte "
                            "records\n(position, energy, visible weight, frequency). FILE may be "
                            "'-' for standard\ninput. --make N (0 to 10000000) writes a block of "
                            "N reproducible random\ntransients in this machine's byte order. Exit "
                            "status 1 for a file shorter than\nthe header.",
                            {}}};

void printMenu(bool debug) {
  CDotAPI::SetDebugMode(debug);
  CDotAPI::Init();
  std::cout << (debug ? "debug" : "release") << " configuration: processor path "
            << CDotAPI::ProcessorID() << ", " << CDotAPI::MenuEntries() << " menu entries\n";
  for (int i = 0; i < CDotAPI::MenuEntries(); ++i)
    std::cout << "  " << i << ": path " << CDotAPI::MenuID(i) << "  \"" << CDotAPI::MenuText(i)
              << "\"\n";
  std::cout << "  in force: path " << CDotAPI::ID() << " (menu entry " << CDotAPI::GetSelection()
            << "), interleave " << CDotAPI::Interleave() << ", max interleave "
            << CDotAPI::MaxInterleave() << "\n";
}

int runDispatch(const Invocation& call) {
  if (!call.operands().empty())
    return usage("dispatch");
  printMenu(false);
  printMenu(true);
  CDotAPI::SetDebugMode(false);
  return 0;
}

Register dispatchCommand{{"dispatch",
                          "",
                          "the code-path menu in the release and debug configurations",
                          {},
                          runDispatch,
                          "Shows the processor code paths (CDotAPI) the library offers in each "
                          "configuration\nand which one is in force.",
                          {}}};

// --- tour -------------------------------------------------------------

CTransient sample(std::int64_t pos, float energy) {
  CTransient transient;
  transient.pos = pos;
  transient.Energy = energy;
  transient.FreqHz = 100.0f * static_cast<float>(pos % 7 + 1);
  return transient;
}

void tourTransients() {
  CTransients transients{sample(300, 0.9f), sample(100, 0.2f), sample(200, 0.5f), sample(100, 0.7f),
                         sample(400, 0.1f)};
  std::cout << "A transient is an onset found in analysed audio (a drum hit, a plucked note):\n"
               "its position, energy (strength), visible weight and frequency.\n"
               "Five transients, positions 300 100 200 100 400 (one position twice):\n";
  bbTraceIndentBegin("tour", "", 2);
  for (const auto& transient : transients) {
    IndentToCout();
    std::cout << transient << "\n";
  }
  CTransients unique = transients;
  unique.SortAndMakeUniquePos();
  std::cout << "SortAndMakeUniquePos -> " << unique.size()
            << " left, unique and sorted: " << std::boolalpha << unique.AreUniqueAndSortedByPos()
            << "\n";
  CTransients thin = transients;
  thin.ThinOutToSizeAndSortByPos(2);
  std::cout << "ThinOutToSizeAndSortByPos(2) keeps the two weakest, in position order:\n";
  for (const auto& transient : thin) {
    IndentToCout();
    std::cout << transient << "\n";
  }
  bbTraceIndentEnd();
  // TraceStr ends its brief form with the trace stream's address, written
  // straight after the last number ("FreqHz 7000x7ffc..."); the two are
  // shown apart here.
  const std::string traced = transients[0].TraceStr();
  const std::size_t address = traced.rfind("0x");
  std::cout << "TraceStr of the first gives the brief form followed directly by the address of\n"
               "the stream it was written to (a check that the stream is still good):\n  "
            << traced.substr(0, address) << "\n  then " << traced.substr(address) << "\n";
  VTEv_AssessDeviations deviations{3, -2};
  std::cout << "A deviation-assessment record: " << deviations << "\n";
}

void tourStoredBlock() {
  std::vector<unsigned char> block(1024 + 36);
  CTransient transient = sample(0x0102030405, 0.75f);
  std::memcpy(block.data() + 1024, &transient, sizeof transient);
  auto hex = [&](std::size_t from, std::size_t count) {
    return hexBytes(std::string_view(reinterpret_cast<const char*>(block.data() + from), count));
  };

  std::cout << "Applications store transient lists in files as blocks: 1024 header bytes,\n"
               "then 36-byte records. Big-endian and little-endian are the two byte orders:\n"
               "most significant byte first, or last (Intel processors).\n"
            << "pos and Energy of the record, little-endian:  " << hex(1024, 12) << "\n";
  SwapTransientCallback(block.data(), block.size(), true);
  std::cout << "after SwapTransientCallback (big-endian):     " << hex(1024, 12) << "\n";
  SwapTransientCallback(block.data(), block.size(), false);
  std::cout << "and once more, back where it was:             " << hex(1024, 12) << "\n"
            << "Try: vtcore transients --make 5 t.blk && vtcore transients --swap t.blk\n";
}

void tourChannels() {
  std::cout << "A surround format (1 mono to 8 7.1 SDDS) names its channels; a layout tag\n"
               "(layout/channel count) says in which order a file or device carries them.\n"
               "Angles are in degrees, 0 in front, negative to the left.\n";
  printFormat(5);
  std::uint32_t order[8] = {};
  const std::uint32_t tag = vtcore::makeChannelLayoutTag(121, 6);
  const std::uint32_t format = FindFormatForAudioChannelLayoutTag(tag, order);
  std::cout << "FindFormatForAudioChannelLayoutTag(121/6) -> format " << format << ", order "
            << channelList(order, 6) << "\n"
            << "Try: vtcore channels 7 --svg 7.1.svg (the speakers drawn on a circle)\n";
}

void tourMidi() {
  std::cout << "KWMIDIFormatter shows a MIDI value (0 to 127: a note, a velocity, a\n"
               "controller) in one of four note styles; middle C (60) is C3.\n";
  KWMIDIFormatter formatter;
  const int values[] = {0, 9, 16, 60, 61, 127, -5};
  const char* styles[] = {"decimal", "signed", "hexadecimal", "note name"};
  std::cout << std::left << std::setw(12) << "value";
  for (int v : values)
    std::cout << std::setw(8) << v;
  std::cout << "\n";
  for (int style = 0; style < 4; ++style) {
    formatter.setNoteStyle(style);
    std::cout << std::setw(12) << styles[style];
    for (int v : values) {
      const icu::UnicodeString shown = formatter.stringForObjectValue(v);
      std::string text;
      shown.toUTF8String(text);
      // Pad by characters, not bytes: the plus-minus sign is two bytes.
      std::cout << text
                << std::string(static_cast<std::size_t>(std::max(1, 8 - shown.length())), ' ');
    }
    std::cout << "\n";
  }
  formatter.setNoteStyle(2);
  std::string fifteen;
  formatter.stringForObjectValue(15).toUTF8String(fifteen);
  std::cout << std::right << "Style 2 pads only values below 15 with a zero: 15 is \"" << fifteen
            << "\", with a blank, as\nthe formatter has always written it.\n";
}

void tourContext() {
  std::cout << "A musical context describes the music at a position (tempo, metre); the\n"
               "application can install the function that fills it.\n";
  CMusicalContext context(44100, 0, nullptr);
  std::cout << "CMusicalContext at 44100 with the built-in default: tempo " << context.tempo
            << " (thousandths of bpm), metre " << context.metreNumerator << "/"
            << context.metreDenominator << ", results " << context.result1 << ", "
            << context.result2 << ", " << context.result3 << "\n";
  KwTimeMarker marker;
  volatile double sink = 0;
  for (int i = 0; i < 200000; ++i)
    sink = sink + std::sqrt(static_cast<double>(i));
  std::cout << "KwTimeMarker: a short loop took " << marker.secondsSinceMarker() << " s\n";
}

void tourDispatch() {
  std::cout << "Code paths are the variants of the processing loops for different processor\n"
               "features (SSE, SSE3, none); the menu lets a user pick one, and interleave is\n"
               "how many blocks a loop handles at once.\n";
  printMenu(false);
  CDotAPI::SetSelection(1);
  std::cout << "after choosing menu entry 1: path " << CDotAPI::ID() << ", interleave "
            << CDotAPI::Interleave() << "\n";
  CDotAPI::Override(CDotAPI::ProcessorID());
  printMenu(true);
  CDotAPI::SetDebugMode(false);
}

TourStep transientsStep{60, "Transients", tourTransients};
TourStep blockStep{61, "Stored transient blocks", tourStoredBlock};
TourStep channelsStep{62, "Channel layouts", tourChannels};
TourStep midiStep{63, "MIDI value formatting", tourMidi};
TourStep contextStep{64, "Musical context and time marker", tourContext};
TourStep dispatchStep{65, "Code-path settings", tourDispatch};

} // namespace
