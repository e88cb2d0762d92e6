#include <vtcore/music/layouts/channel_layouts.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <tuple>

using namespace vtcore;

namespace {

using Order = std::array<std::uint32_t, 8>;
constexpr std::uint32_t L = kChannelL, R = kChannelR, Lm = kChannelLm, Rm = kChannelRm,
                        Ls = kChannelLs, Rs = kChannelRs, Cs = kChannelCs, C = kChannelC,
                        LFE = kChannelLFE, Lc = kChannelLc, Rc = kChannelRc;
constexpr Order unwritten{99, 99, 99, 99, 99, 99, 99, 99};

} // namespace

// Each layout row's channels belong to its format, and a host tag's low half
// is the row's channel count.
TEST(ChannelLayouts, NamesMasksAndTableConsistency) {
  const char* names[] = {"L", "R", "Lm", "Rm", "Ls", "Rs", "Cs", "C", "LFE", "Lc", "Rc", ""};
  for (std::uint32_t id = 0; id < 12; ++id)
    EXPECT_STREQ(GetChannelLabel(id), names[id]);
  const std::uint64_t masks[] = {0, 0x1, 0x3, 0x33, 0xC3, 0x1B3, 0x1F3, 0x1BF, 0x7B3, 0};
  for (std::uint32_t format = 0; format <= 9; ++format)
    EXPECT_EQ(GetChannelIDBitMask(format), masks[format]) << format;

  const auto table = channelLayoutTable();
  ASSERT_EQ(table.size(), 30u);
  for (const auto& row : table) {
    std::uint64_t used = 0;
    for (std::uint32_t i = 0; i < row.channelCount; ++i)
      used |= std::uint64_t{1} << row.order[i];
    EXPECT_EQ(used & ~GetChannelIDBitMask(row.format), 0u) << "format " << row.format;
    EXPECT_EQ(std::popcount(used), static_cast<int>(row.channelCount));
    EXPECT_TRUE(row.tag == 0 || (row.tag & 0xFFFF) == row.channelCount);
  }
}

TEST(ChannelLayouts, FindFormatAndMappingForHostTags) {
  struct Case {
    std::uint32_t high, low, format;
    Order order;
  };
  const Case cases[] = {{100, 1, 1, {L}},
                        {108, 4, 3, {L, R, Ls, Rs}},
                        {116, 4, 4, {C, L, R, Cs}},
                        {121, 6, 5, {L, R, C, LFE, Ls, Rs}},
                        {119, 5, 5, {L, C, R, Ls, Rs}},
                        {142, 7, 6, {C, L, R, Ls, Rs, Cs, LFE}},
                        {127, 8, 8, {C, Lc, Rc, L, R, Ls, Rs, LFE}},
                        {129, 8, 8, {L, R, Ls, Rs, C, LFE, Lc, Rc}}};
  for (const auto& c : cases) {
    Order order = unwritten;
    const std::uint32_t tag = makeChannelLayoutTag(c.high, c.low);
    EXPECT_EQ(FindFormatForAudioChannelLayoutTag(tag, order.data()), c.format) << c.high;
    EXPECT_EQ(order, c.order) << c.high;
  }
  // Tags that name no layout (a wrong count, an unlisted layout) leave the order alone.
  Order order = unwritten;
  for (std::uint32_t tag : {0u, 65536u, makeChannelLayoutTag(121, 5), makeChannelLayoutTag(128, 8)})
    EXPECT_EQ(FindFormatForAudioChannelLayoutTag(tag, order.data()), 0u) << tag;
  EXPECT_EQ(
      GetMappingForFormatAndAudioChannelLayoutTag(7, makeChannelLayoutTag(125, 7), order.data()),
      0);
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(9, 0, order.data()), 0);
  EXPECT_EQ(order, unwritten);
  // No order to fill fails even for a row that exists, as a lookup, not a crash.
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(5, 0, nullptr), 0);
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(6, makeChannelLayoutTag(125, 7), nullptr),
            0);

  // Tag 0 asks for the format's own order, LFE included.
  const std::tuple<std::uint32_t, std::uint32_t, Order> mappings[] = {
      {5, 0, {L, R, Ls, Rs, C, LFE}},
      {6, 0, {L, R, Ls, Rs, Cs, C, LFE}},
      {7, 0, {L, R, Lm, Rm, Ls, Rs, C, LFE}},
      {6, makeChannelLayoutTag(125, 7), {L, R, C, LFE, Ls, Rs, Cs}}};
  for (const auto& [format, tag, expected] : mappings) {
    ASSERT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(format, tag, order.data()), 1);
    EXPECT_EQ(order, expected) << format << "/" << tag;
  }
}

TEST(ChannelLayouts, HostLabelsAndAngles) {
  // format, channel id, host label; 100 is the "no label" answer.
  const std::uint32_t labels[][3] = {{1, L, 42}, {1, R, 100}, {2, R, 2},   {3, C, 100},
                                     {4, Cs, 9}, {5, LFE, 4}, {7, L, 100}, {8, Lc, 7},
                                     {8, Rc, 8}, {0, L, 100}, {9, L, 100}, {2, 11, 100}};
  for (const auto& [format, id, label] : labels)
    EXPECT_EQ(GetLabelForChannelID(format, id), label) << format << "/" << id;

  struct Angle {
    std::uint32_t format, id;
    float degrees;
  };
  const Angle angles[] = {{1, L, 0},       {2, L, -30},    {3, Rs, 135}, {3, LFE, 0}, {4, Cs, 180},
                          {5, Ls, -110},   {5, LFE, 1000}, {7, Lm, -70}, {7, Cs, 0},  {8, L, -45},
                          {8, Lc, -22.5f}, {8, LFE, 1000}, {9, L, 0},    {5, 11, 0}};
  for (const auto& a : angles)
    EXPECT_EQ(GetAngleForChannel(a.format, a.id), a.degrees) << a.format << "/" << a.id;

  // The writable table is separate from the fixed angles above.
  float* table = SetAngleForChannel(3, 2, -12.5f);
  EXPECT_EQ(AngleForChannelTab(3), table + 24);
  EXPECT_EQ(AngleForChannel(3, 2), -12.5f);
  EXPECT_EQ(GetAngleForChannel(3, Lm), 0.0f);
  SetAngleForChannel(3, 2, 0.0f);
}
