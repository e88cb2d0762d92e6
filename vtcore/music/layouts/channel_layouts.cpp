#include <vtcore/music/layouts/channel_layouts.h>

#include <algorithm>
#include <array>

using namespace vtcore;

namespace {

constexpr std::uint32_t L = kChannelL, R = kChannelR, Lm = kChannelLm, Rm = kChannelRm,
                        Ls = kChannelLs, Rs = kChannelRs, Cs = kChannelCs, C = kChannelC,
                        LFE = kChannelLFE, Lc = kChannelLc, Rc = kChannelRc;

constexpr std::uint32_t tag(std::uint32_t high, std::uint32_t low) {
  return makeChannelLayoutTag(high, low);
}

// Searched in this order and the first match wins: for formats 5 and 6 the
// row with LFE comes before the row without it, so asking for a format's own
// order (tag 0) gives the LFE variant. Unused order slots are 0.
constexpr std::array<ChannelLayoutRow, 30> kLayouts{{
    {1, 0, 1, {L}},
    {1, tag(100, 1), 1, {L}},
    {2, 0, 2, {L, R}},
    {2, tag(101, 2), 2, {L, R}},
    {3, 0, 4, {L, R, Ls, Rs}},
    {3, tag(108, 4), 4, {L, R, Ls, Rs}},
    {4, 0, 4, {L, R, Cs, C}},
    {4, tag(115, 4), 4, {L, R, C, Cs}},
    {4, tag(116, 4), 4, {C, L, R, Cs}},
    {5, 0, 6, {L, R, Ls, Rs, C, LFE}},
    {5, tag(121, 6), 6, {L, R, C, LFE, Ls, Rs}},
    {5, tag(122, 6), 6, {L, R, Ls, Rs, C, LFE}},
    {5, tag(123, 6), 6, {L, C, R, Ls, Rs, LFE}},
    {5, tag(124, 6), 6, {C, L, R, Ls, Rs, LFE}},
    {5, 0, 5, {L, R, Ls, Rs, C}},
    {5, tag(117, 5), 5, {L, R, C, Ls, Rs}},
    {5, tag(118, 5), 5, {L, R, Ls, Rs, C}},
    {5, tag(119, 5), 5, {L, C, R, Ls, Rs}},
    {5, tag(120, 5), 5, {C, L, R, Ls, Rs}},
    {6, 0, 7, {L, R, Ls, Rs, Cs, C, LFE}},
    {6, tag(125, 7), 7, {L, R, C, LFE, Ls, Rs, Cs}},
    {6, tag(142, 7), 7, {C, L, R, Ls, Rs, Cs, LFE}},
    {6, 0, 6, {L, R, Ls, Rs, Cs, C}},
    {6, tag(139, 6), 6, {L, R, Ls, Rs, C, Cs}},
    {6, tag(141, 6), 6, {C, L, R, Ls, Rs, Cs}},
    {7, 0, 8, {L, R, Lm, Rm, Ls, Rs, C, LFE}},
    {8, 0, 8, {L, R, Ls, Rs, C, LFE, Lc, Rc}},
    {8, tag(126, 8), 8, {L, R, C, LFE, Ls, Rs, Lc, Rc}},
    {8, tag(127, 8), 8, {C, Lc, Rc, L, R, Ls, Rs, LFE}},
    {8, tag(129, 8), 8, {L, R, Ls, Rs, C, LFE, Lc, Rc}},
}};

constexpr std::array<std::uint64_t, 9> kChannelMasks{
    0, 0x1, 0x3, 0x33, 0xC3, 0x1B3, 0x1F3, 0x1BF, 0x7B3,
};

struct LabelPair {
  std::uint32_t channelID;
  std::uint32_t label;
};

struct LabelRow {
  std::uint32_t format;
  std::uint32_t pairCount;
  LabelPair pairs[8];
};

// Host channel-label numbers.
constexpr std::uint32_t kLeft = 1, kRight = 2, kCentre = 3, kLFE = 4, kLeftSurround = 5,
                        kRightSurround = 6, kLeftCentre = 7, kRightCentre = 8, kCentreSurround = 9,
                        kMono = 42, kNone = kNoChannelLabel;

// Format 7 has no host layout, so none of its channels has a host label.
constexpr std::array<LabelRow, 8> kLabels{{
    {1, 1, {{L, kMono}}},
    {2, 2, {{L, kLeft}, {R, kRight}}},
    {3, 4, {{L, kLeft}, {R, kRight}, {Ls, kLeftSurround}, {Rs, kRightSurround}}},
    {4, 4, {{L, kLeft}, {R, kRight}, {C, kCentre}, {Cs, kCentreSurround}}},
    {5,
     6,
     {{C, kCentre},
      {L, kLeft},
      {R, kRight},
      {Ls, kLeftSurround},
      {Rs, kRightSurround},
      {LFE, kLFE}}},
    {6,
     7,
     {{C, kCentre},
      {L, kLeft},
      {R, kRight},
      {Ls, kLeftSurround},
      {Rs, kRightSurround},
      {Cs, kCentreSurround},
      {LFE, kLFE}}},
    {7,
     8,
     {{C, kNone},
      {L, kNone},
      {R, kNone},
      {Lm, kNone},
      {Rm, kNone},
      {Ls, kNone},
      {Rs, kNone},
      {LFE, kNone}}},
    {8,
     8,
     {{C, kCentre},
      {Lc, kLeftCentre},
      {Rc, kRightCentre},
      {L, kLeft},
      {R, kRight},
      {Ls, kLeftSurround},
      {Rs, kRightSurround},
      {LFE, kLFE}}},
}};

// Degrees by format (row) and channel ID (column, L R Lm Rm Ls Rs Cs C LFE
// Lc Rc); 0 where the format has no such channel. Formats 3 and 8 place their
// front pair at +-45 where the others use +-30, and LFE is directionless
// (1000) only from format 5 on: both are what the applications expect.
constexpr float D = kDirectionlessAngle;
constexpr float kAngles[9][kChannelIDCount] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {-30, 30, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {-45, 45, 0, 0, -135, 135, 0, 0, 0, 0, 0},
    {-30, 30, 0, 0, 0, 0, 180, 0, 0, 0, 0},
    {-30, 30, 0, 0, -110, 110, 0, 0, D, 0, 0},
    {-30, 30, 0, 0, -110, 110, 180, 0, D, 0, 0},
    {-30, 30, -70, 70, -110, 110, 0, 0, D, 0, 0},
    {-45, 45, 0, 0, -135, 135, 0, 0, D, -22.5f, 22.5f},
};

constexpr const char* kChannelNames[kChannelIDCount] = {"L",  "R", "Lm",  "Rm", "Ls", "Rs",
                                                        "Cs", "C", "LFE", "Lc", "Rc"};

// The writable angle table the applications fill; zero when loaded.
float gAngleTable[9 * 8];

void copyOrder(const ChannelLayoutRow& row, std::uint32_t* order) {
  std::copy(std::begin(row.order), std::end(row.order), order);
}

} // namespace

float GetAngleForChannel(std::uint32_t format, std::uint32_t channelID) {
  if (format > kSurroundFormatCount || channelID >= kChannelIDCount)
    return 0.0f;
  return kAngles[format][channelID];
}

const char* GetChannelLabel(std::uint32_t channelID) {
  return channelID < kChannelIDCount ? kChannelNames[channelID] : "";
}

std::uint64_t GetChannelIDBitMask(std::uint32_t format) {
  return format < kChannelMasks.size() ? kChannelMasks[format] : 0;
}

std::uint32_t FindFormatForAudioChannelLayoutTag(std::uint32_t tag, std::uint32_t* order) {
  // 0 stands for a format's own order in the table and 65536 is the host's
  // "use the channel bitmap" tag: neither names one layout.
  if (tag == 0 || tag == makeChannelLayoutTag(1, 0))
    return 0;
  for (const auto& row : kLayouts) {
    if (row.tag != tag)
      continue;
    if (order != nullptr)
      copyOrder(row, order);
    return row.format;
  }
  return 0;
}

int GetMappingForFormatAndAudioChannelLayoutTag(std::uint32_t format, std::uint32_t tag,
                                                std::uint32_t* order) {
  // Nowhere to put the order is a failed lookup, not a write through null.
  if (!order)
    return 0;
  for (const auto& row : kLayouts) {
    if (row.format == format && row.tag == tag) {
      copyOrder(row, order);
      return 1;
    }
  }
  return 0;
}

std::uint32_t GetLabelForChannelID(std::uint32_t format, std::uint32_t channelID) {
  if (format == 0 || format > kSurroundFormatCount)
    return kNoChannelLabel;
  for (const auto& row : kLabels) {
    if (row.format != format)
      continue;
    for (std::uint32_t i = 0; i < row.pairCount; ++i)
      if (row.pairs[i].channelID == channelID)
        return row.pairs[i].label;
  }
  return kNoChannelLabel;
}

float AngleForChannel(int format, int slot) {
  return gAngleTable[format * 8 + slot];
}

float* SetAngleForChannel(int format, int slot, float angle) {
  gAngleTable[format * 8 + slot] = angle;
  return gAngleTable;
}

float* AngleForChannelTab(int format) {
  return gAngleTable + format * 8;
}

std::span<const ChannelLayoutRow> vtcore::channelLayoutTable() {
  return kLayouts;
}
