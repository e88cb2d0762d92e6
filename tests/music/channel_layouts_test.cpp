#include <vtcore/music/channel_layouts.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <set>
#include <string>
#include <tuple>

using namespace vtcore;

namespace {

using Order = std::array<std::uint32_t, 8>;
constexpr std::uint32_t L = kChannelL, R = kChannelR, Lm = kChannelLm, Rm = kChannelRm,
                        Ls = kChannelLs, Rs = kChannelRs, Cs = kChannelCs, C = kChannelC,
                        LFE = kChannelLFE, Lc = kChannelLc, Rc = kChannelRc;

} // namespace

TEST(ChannelLayouts, NamesAndMasks) {
  const char* names[] = {"L", "R", "Lm", "Rm", "Ls", "Rs", "Cs", "C", "LFE", "Lc", "Rc"};
  for (std::uint32_t id = 0; id < 11; ++id)
    EXPECT_STREQ(GetChannelLabel(id), names[id]);
  EXPECT_STREQ(GetChannelLabel(11), "");
  EXPECT_STREQ(GetChannelLabel(0xFFFFFFFF), "");

  const std::uint64_t masks[] = {0, 0x1, 0x3, 0x33, 0xC3, 0x1B3, 0x1F3, 0x1BF, 0x7B3};
  for (std::uint32_t format = 0; format <= 8; ++format)
    EXPECT_EQ(GetChannelIDBitMask(format), masks[format]) << format;
  EXPECT_EQ(GetChannelIDBitMask(9), 0u);
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

struct TagCase {
  std::uint32_t high, low, format;
  Order order;
};

class FindFormatForTag : public testing::TestWithParam<TagCase> {};

TEST_P(FindFormatForTag, GivesFormatAndOrder) {
  const auto& c = GetParam();
  Order order;
  order.fill(99);
  EXPECT_EQ(FindFormatForAudioChannelLayoutTag(makeChannelLayoutTag(c.high, c.low), order.data()),
            c.format);
  EXPECT_EQ(order, c.order);
  EXPECT_EQ(FindFormatForAudioChannelLayoutTag(makeChannelLayoutTag(c.high, c.low), nullptr),
            c.format);
}

INSTANTIATE_TEST_SUITE_P(HostTags, FindFormatForTag,
                         testing::Values(TagCase{100, 1, 1, {L}}, TagCase{101, 2, 2, {L, R}},
                                         TagCase{108, 4, 3, {L, R, Ls, Rs}},
                                         TagCase{116, 4, 4, {C, L, R, Cs}},
                                         TagCase{121, 6, 5, {L, R, C, LFE, Ls, Rs}},
                                         TagCase{124, 6, 5, {C, L, R, Ls, Rs, LFE}},
                                         TagCase{119, 5, 5, {L, C, R, Ls, Rs}},
                                         TagCase{142, 7, 6, {C, L, R, Ls, Rs, Cs, LFE}},
                                         TagCase{139, 6, 6, {L, R, Ls, Rs, C, Cs}},
                                         TagCase{127, 8, 8, {C, Lc, Rc, L, R, Ls, Rs, LFE}},
                                         TagCase{129, 8, 8, {L, R, Ls, Rs, C, LFE, Lc, Rc}}));

TEST(ChannelLayouts, TagsThatNameNoLayout) {
  Order order;
  order.fill(99);
  for (std::uint32_t tag :
       {0u, 65536u, makeChannelLayoutTag(121, 5), makeChannelLayoutTag(128, 8), 0xFFFFFFFFu}) {
    EXPECT_EQ(FindFormatForAudioChannelLayoutTag(tag, order.data()), 0u) << tag;
    EXPECT_EQ(order[0], 99u);
  }
}

TEST(ChannelLayouts, MappingForFormatAndTag) {
  Order order{};
  ASSERT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(5, 0, order.data()), 1);
  EXPECT_EQ(order, (Order{L, R, Ls, Rs, C, LFE}));
  ASSERT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(6, 0, order.data()), 1);
  EXPECT_EQ(order, (Order{L, R, Ls, Rs, Cs, C, LFE}));
  ASSERT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(7, 0, order.data()), 1);
  EXPECT_EQ(order, (Order{L, R, Lm, Rm, Ls, Rs, C, LFE}));
  ASSERT_EQ(
      GetMappingForFormatAndAudioChannelLayoutTag(6, makeChannelLayoutTag(125, 7), order.data()),
      1);
  EXPECT_EQ(order, (Order{L, R, C, LFE, Ls, Rs, Cs}));
  ASSERT_EQ(
      GetMappingForFormatAndAudioChannelLayoutTag(4, makeChannelLayoutTag(115, 4), order.data()),
      1);
  EXPECT_EQ(order, (Order{L, R, C, Cs}));

  order.fill(99);
  EXPECT_EQ(
      GetMappingForFormatAndAudioChannelLayoutTag(7, makeChannelLayoutTag(125, 7), order.data()),
      0);
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(0, 0, order.data()), 0);
  EXPECT_EQ(GetMappingForFormatAndAudioChannelLayoutTag(9, 0, order.data()), 0);
  EXPECT_EQ(order[0], 99u);
}

using LabelCase = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>; // format, id, label

class LabelForChannel : public testing::TestWithParam<LabelCase> {};

TEST_P(LabelForChannel, MatchesTheHostLabel) {
  const auto [format, id, label] = GetParam();
  EXPECT_EQ(GetLabelForChannelID(format, id), label);
}

INSTANTIATE_TEST_SUITE_P(
    Labels, LabelForChannel,
    testing::Values(LabelCase{1, L, 42}, LabelCase{1, R, 100}, LabelCase{2, R, 2},
                    LabelCase{3, Rs, 6}, LabelCase{3, C, 100}, LabelCase{4, Cs, 9},
                    LabelCase{4, C, 3}, LabelCase{5, LFE, 4}, LabelCase{5, Cs, 100},
                    LabelCase{6, Cs, 9}, LabelCase{7, L, 100}, LabelCase{7, LFE, 100},
                    LabelCase{8, Lc, 7}, LabelCase{8, Rc, 8}, LabelCase{8, Ls, 5},
                    LabelCase{0, L, 100}, LabelCase{9, L, 100}, LabelCase{2, 11, 100}));

using AngleCase = std::tuple<std::uint32_t, std::uint32_t, float>; // format, id, degrees

class AngleOfChannel : public testing::TestWithParam<AngleCase> {};

TEST_P(AngleOfChannel, MatchesTheFixedTable) {
  const auto [format, id, degrees] = GetParam();
  EXPECT_EQ(GetAngleForChannel(format, id), degrees);
}

INSTANTIATE_TEST_SUITE_P(
    Angles, AngleOfChannel,
    testing::Values(AngleCase{1, L, 0}, AngleCase{2, L, -30}, AngleCase{2, R, 30},
                    AngleCase{3, L, -45}, AngleCase{3, Rs, 135}, AngleCase{3, LFE, 0},
                    AngleCase{4, Cs, 180}, AngleCase{4, LFE, 0}, AngleCase{5, Ls, -110},
                    AngleCase{5, LFE, 1000}, AngleCase{6, Cs, 180}, AngleCase{7, Lm, -70},
                    AngleCase{7, Rm, 70}, AngleCase{7, Cs, 0}, AngleCase{8, L, -45},
                    AngleCase{8, Lc, -22.5f}, AngleCase{8, Rc, 22.5f}, AngleCase{8, LFE, 1000},
                    AngleCase{0, L, 0}, AngleCase{9, L, 0}, AngleCase{5, 11, 0}));

TEST(ChannelLayouts, WritableAngleTable) {
  float* table = SetAngleForChannel(3, 2, -12.5f);
  EXPECT_EQ(table[3 * 8 + 2], -12.5f);
  EXPECT_EQ(AngleForChannel(3, 2), -12.5f);
  EXPECT_EQ(AngleForChannelTab(3), table + 24);
  EXPECT_EQ(AngleForChannelTab(0), table);
  EXPECT_EQ(SetAngleForChannel(8, 7, 99.0f), table);
  EXPECT_EQ(AngleForChannelTab(8)[7], 99.0f);
  EXPECT_EQ(AngleForChannel(4, 0), 0.0f); // untouched entries stay zero
  // The fixed angles are a separate table.
  EXPECT_EQ(GetAngleForChannel(3, Lm), 0.0f);
  SetAngleForChannel(3, 2, 0.0f);
  SetAngleForChannel(8, 7, 0.0f);
}
