#include <vtcore/music/channel_layouts.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <set>

using namespace vtcore;

namespace {

using Order = std::array<std::uint32_t, 8>;
constexpr std::uint32_t L = kChannelL, R = kChannelR, Lm = kChannelLm, Rm = kChannelRm,
                        Ls = kChannelLs, Rs = kChannelRs, Cs = kChannelCs, C = kChannelC,
                        LFE = kChannelLFE, Lc = kChannelLc, Rc = kChannelRc;

} // namespace

TEST(ChannelLayouts, NamesAndMasks) {
  const char* names[] = {"L", "R", "Lm", "Rm", "Ls", "Rs", "Cs", "C", "LFE", "Lc", "Rc", ""};
  for (std::uint32_t id = 0; id < 12; ++id)
    EXPECT_STREQ(GetChannelLabel(id), names[id]);
  EXPECT_STREQ(GetChannelLabel(0xFFFFFFFF), "");

  const std::uint64_t masks[] = {0, 0x1, 0x3, 0x33, 0xC3, 0x1B3, 0x1F3, 0x1BF, 0x7B3, 0};
  for (std::uint32_t format = 0; format <= 9; ++format)
    EXPECT_EQ(GetChannelIDBitMask(format), masks[format]) << format;
  EXPECT_EQ(GetChannelIDBitMask(0xFFFFFFFF), 0u);
}

// The table's own consistency: each row's channels belong to its format, a
// row with a host tag carries its channel count in the tag's low half, and
// every format's first own-order row (tag 0) lists its whole mask.
TEST(ChannelLayouts, LayoutTableIsConsistent) {
  const auto table = channelLayoutTable();
  ASSERT_EQ(table.size(), 30u);
  std::set<std::uint32_t> formatsWithOwnOrder;
  for (const auto& row : table) {
    std::uint64_t used = 0;
    for (std::uint32_t i = 0; i < row.channelCount; ++i)
      used |= std::uint64_t{1} << row.order[i];
    EXPECT_EQ(used & ~GetChannelIDBitMask(row.format), 0u) << "format " << row.format;
    EXPECT_EQ(std::popcount(used), static_cast<int>(row.channelCount));
    for (std::uint32_t i = row.channelCount; i < 8; ++i)
      EXPECT_EQ(row.order[i], 0u);
    if (row.tag != 0) {
      EXPECT_EQ(row.tag & 0xFFFF, row.channelCount);
    } else if (formatsWithOwnOrder.insert(row.format).second) {
      EXPECT_EQ(used, GetChannelIDBitMask(row.format)) << "format " << row.format;
    }
  }
  EXPECT_EQ(formatsWithOwnOrder.size(), 8u);
}

TEST(ChannelLayouts, FindFormatForHostTags) {
  struct Case {
    std::uint32_t high, low, format;
    Order order;
  };
  const Case cases[] = {{100, 1, 1, {L}},
                        {101, 2, 2, {L, R}},
                        {108, 4, 3, {L, R, Ls, Rs}},
                        {116, 4, 4, {C, L, R, Cs}},
                        {121, 6, 5, {L, R, C, LFE, Ls, Rs}},
                        {124, 6, 5, {C, L, R, Ls, Rs, LFE}},
                        {119, 5, 5, {L, C, R, Ls, Rs}},
                        {142, 7, 6, {C, L, R, Ls, Rs, Cs, LFE}},
                        {139, 6, 6, {L, R, Ls, Rs, C, Cs}},
                        {127, 8, 8, {C, Lc, Rc, L, R, Ls, Rs, LFE}},
                        {129, 8, 8, {L, R, Ls, Rs, C, LFE, Lc, Rc}}};
  for (const auto& c : cases) {
    const std::uint32_t tag = makeChannelLayoutTag(c.high, c.low);
    Order order;
    order.fill(99);
    EXPECT_EQ(FindFormatForAudioChannelLayoutTag(tag, order.data()), c.format) << c.high;
    EXPECT_EQ(order, c.order) << c.high;
    EXPECT_EQ(FindFormatForAudioChannelLayoutTag(tag, nullptr), c.format) << c.high;
  }
  // Tags that name no layout (a wrong count, an unlisted layout) leave the order alone.
  Order order;
  order.fill(99);
  for (std::uint32_t tag :
       {0u, 65536u, makeChannelLayoutTag(121, 5), makeChannelLayoutTag(128, 8), 0xFFFFFFFFu}) {
    EXPECT_EQ(FindFormatForAudioChannelLayoutTag(tag, order.data()), 0u) << tag;
    EXPECT_EQ(order[0], 99u);
  }
}

TEST(ChannelLayouts, MappingForFormatAndTag) {
  struct Case {
    std::uint32_t format, tag;
    Order order;
  };
  const Case found[] = {{5, 0, {L, R, Ls, Rs, C, LFE}},
                        {6, 0, {L, R, Ls, Rs, Cs, C, LFE}},
                        {7, 0, {L, R, Lm, Rm, Ls, Rs, C, LFE}},
                        {6, makeChannelLayoutTag(125, 7), {L, R, C, LFE, Ls, Rs, Cs}},
                        {4, makeChannelLayoutTag(115, 4), {L, R, C, Cs}}};
  for (const auto& c : found) {
    Order order{};
    ASSERT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(c.format, c.tag, order.data()), 1);
    EXPECT_EQ(order, c.order) << c.format;
  }
  Order order;
  order.fill(99);
  EXPECT_EQ(
      GetMappingForFormatAndAudioChannelLayoutTag(7, makeChannelLayoutTag(125, 7), order.data()),
      0);
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(0, 0, order.data()), 0);
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(9, 0, order.data()), 0);
  EXPECT_EQ(order[0], 99u);
}

TEST(ChannelLayouts, HostLabelsAndFixedAngles) {
  // format, channel id, host label; 100 is the "no label" answer.
  const std::uint32_t labels[][3] = {
      {1, L, 42}, {1, R, 100}, {2, R, 2},    {3, Rs, 6},  {3, C, 100}, {4, Cs, 9},
      {4, C, 3},  {5, LFE, 4}, {5, Cs, 100}, {6, Cs, 9},  {7, L, 100}, {7, LFE, 100},
      {8, Lc, 7}, {8, Rc, 8},  {8, Ls, 5},   {0, L, 100}, {9, L, 100}, {2, 11, 100}};
  for (const auto& [format, id, label] : labels)
    EXPECT_EQ(GetLabelForChannelID(format, id), label) << format << "/" << id;

  struct Angle {
    std::uint32_t format, id;
    float degrees;
  };
  const Angle angles[] = {
      {1, L, 0},    {2, L, -30}, {2, R, 30},    {3, L, -45},     {3, Rs, 135},   {3, LFE, 0},
      {4, Cs, 180}, {4, LFE, 0}, {5, Ls, -110}, {5, LFE, 1000},  {6, Cs, 180},   {7, Lm, -70},
      {7, Rm, 70},  {7, Cs, 0},  {8, L, -45},   {8, Lc, -22.5f}, {8, Rc, 22.5f}, {8, LFE, 1000},
      {0, L, 0},    {9, L, 0},   {5, 11, 0}};
  for (const auto& a : angles)
    EXPECT_EQ(GetAngleForChannel(a.format, a.id), a.degrees) << a.format << "/" << a.id;
}

TEST(ChannelLayouts, WritableAngleTable) {
  float* table = SetAngleForChannel(3, 2, -12.5f);
  EXPECT_EQ(table[3 * 8 + 2], -12.5f);
  EXPECT_EQ(AngleForChannel(3, 2), -12.5f);
  EXPECT_EQ(AngleForChannelTab(3), table + 24);
  EXPECT_EQ(SetAngleForChannel(8, 7, 99.0f), table);
  EXPECT_EQ(AngleForChannelTab(8)[7], 99.0f);
  EXPECT_EQ(AngleForChannel(4, 0), 0.0f);     // untouched entries stay zero
  EXPECT_EQ(GetAngleForChannel(3, Lm), 0.0f); // the fixed angles are a separate table
  SetAngleForChannel(3, 2, 0.0f);
  SetAngleForChannel(8, 7, 0.0f);
}
