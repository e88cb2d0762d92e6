// Audio channel layouts: surround formats, channel IDs, the host audio
// system's layout tags and channel labels, and speaker angles.
//
// A surround format (1 to 8; 0 means none) names a set of channels; a
// channel ID (0 to 10) names one speaker. All functions read constant tables
// except the angle-table accessors, which use one writable, process-wide
// table of 9 formats x 8 slots, zero at start and never filled by the
// library. Nothing here locks.
#pragma once

#include <vtcore/export.h>

#include <cstdint>
#include <span>

VTCORE_EXTERN_C_BEGIN

/// The listening angle of channel `channelID` in `format`, in degrees,
/// negative to the left: front pairs at +-30 (formats 2, 4 to 7) or +-45
/// (formats 3 and 8), 1000 for the directionless LFE of formats 5 to 8.
/// 0 for formats 0, 1 and above 8 and for any channel the format lacks.
VTCORE_EXPORT float GetAngleForChannel(std::uint32_t format, std::uint32_t channelID);

/// The short name of a channel ("L", "R", "Lm", "Rm", "Ls", "Rs", "Cs", "C",
/// "LFE", "Lc", "Rc" for 0 to 10); the empty string for any other ID.
VTCORE_EXPORT const char* GetChannelLabel(std::uint32_t channelID);

/// The channels of `format` as a mask (bit n set when channel ID n belongs
/// to it); 0 for any format outside 1 to 8.
VTCORE_EXPORT std::uint64_t GetChannelIDBitMask(std::uint32_t format);

/// The format of the first layout row carrying the host layout tag `tag`,
/// copying the row's 8 channel IDs into `order` when it is not null. Yields
/// 0 (and writes nothing) for the tags 0 and 65536 and for unknown tags.
VTCORE_EXPORT std::uint32_t FindFormatForAudioChannelLayoutTag(std::uint32_t tag,
                                                               std::uint32_t* order);

/// Finds the first layout row of `format` with the host layout tag `tag`
/// (0 asks for the format's own order, which includes LFE for formats 5 and
/// 6), copies its 8 channel IDs into `order` and yields 1; yields 0 and
/// leaves `order` untouched when there is no such row. `order` must point to
/// 8 writable IDs; a null `order` yields 0 and writes nothing.
VTCORE_EXPORT int GetMappingForFormatAndAudioChannelLayoutTag(std::uint32_t format,
                                                              std::uint32_t tag,
                                                              std::uint32_t* order);

/// The host channel-label number of `channelID` in `format` (1 left, 2
/// right, 3 centre, 4 LFE, 5/6 left/right surround, 7/8 left/right of
/// centre, 9 centre surround, 42 mono); 100 ("no label") when the format or
/// the channel is unknown, and for every channel of format 7.
VTCORE_EXPORT std::uint32_t GetLabelForChannelID(std::uint32_t format, std::uint32_t channelID);

/// Reads the writable angle table at `format` x 8 + `slot`. Unchecked: the
/// caller keeps `format` within 0 to 8 and `slot` within 0 to 7.
VTCORE_EXPORT float AngleForChannel(int format, int slot);

/// Stores `angle` at `format` x 8 + `slot` of the writable angle table and
/// returns the table's address. Unchecked, as AngleForChannel.
VTCORE_EXPORT float* SetAngleForChannel(int format, int slot, float angle);

/// The address of `format`'s row of 8 angles in the writable table.
/// Unchecked: the caller keeps `format` within 0 to 8.
VTCORE_EXPORT float* AngleForChannelTab(int format);

VTCORE_EXTERN_C_END

namespace vtcore {

/// Channel IDs by speaker.
enum ChannelID : std::uint32_t {
  kChannelL = 0,
  kChannelR = 1,
  kChannelLm = 2,
  kChannelRm = 3,
  kChannelLs = 4,
  kChannelRs = 5,
  kChannelCs = 6,
  kChannelC = 7,
  kChannelLFE = 8,
  kChannelLc = 9,
  kChannelRc = 10,
};

inline constexpr std::uint32_t kChannelIDCount = 11;
inline constexpr std::uint32_t kSurroundFormatCount = 8;
/// The host channel-label number meaning "no label".
inline constexpr std::uint32_t kNoChannelLabel = 100;
/// The angle that marks a channel without direction (LFE).
inline constexpr float kDirectionlessAngle = 1000.0f;

/// Makes a host layout tag from its high half and its low half (the channel
/// count).
constexpr std::uint32_t makeChannelLayoutTag(std::uint32_t high, std::uint32_t low) {
  return (high << 16) | low;
}

/// One row of the layout table: a format, a host layout tag (0 for the
/// format's own order), the number of channels and their order.
struct ChannelLayoutRow {
  std::uint32_t format;       ///< the channel format
  std::uint32_t tag;          ///< the host layout tag, 0 for the format's own order
  std::uint32_t channelCount; ///< how many entries of `order` count
  std::uint32_t order[8];     ///< the channels, in order
};

/// The layout table the lookup functions search, first row first.
VTCORE_EXPORT std::span<const ChannelLayoutRow> channelLayoutTable();

} // namespace vtcore
