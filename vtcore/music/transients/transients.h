// Transients: detected onsets in analysed audio, their ordered collection,
// and the byte-order callback for stored transient blocks.
#pragma once

#include <vtcore/core/diagnostics/trace/VTTrace.h>
#include <vtcore/export.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

// Stored blocks are written by existing applications: the record stays packed
// to 4 bytes even though it holds a 64-bit field, so arrays of it have a
// 36-byte stride on every processor.
#pragma pack(push, 4)

/// One transient: where it lies, how strong it is, how visible it should be
/// and at what frequency it was found. A plain copyable record whose layout is
/// a file format (36 bytes, no padding). Two transients are equal when their
/// positions are equal; no other field takes part.
///
/// Because of the packing, `pos` of an array element may sit on a 4-byte
/// boundary: read and write it by value; binding a reference or a pointer to
/// it (`const auto& p = t.pos`, or passing it to a function that takes
/// `const std::int64_t&`) is undefined behaviour.
struct VTCORE_EXPORT CTransient {
  std::int64_t pos = 0;        ///< position on the time axis of the analysed audio
  float Energy = 1.0f;         ///< strength
  std::uint32_t reserved1 = 0; ///< carried and swapped, never read by the library
  float visibleweight = 1.0f;  ///< weight with which the transient is shown
  std::uint32_t reserved2 = 0; ///< as reserved1
  std::uint32_t reserved3 = 0; ///< as reserved1
  std::uint32_t reserved4 = 0; ///< as reserved1
  float FreqHz = 0.0f;         ///< frequency in hertz

  /// Equal when the positions are equal; the other fields are ignored.
  bool operator==(const CTransient& other) const { return pos == other.pos; }

  /// Writes the full form to standard output, then the stream-state pointer:
  /// the address of std::cout while it is neither failed nor bad, else a null
  /// pointer. No line end.
  void Trace() const;
  /// Writes the brief form (without visibleweight) to standard output, then
  /// the stream-state pointer. No line end.
  void TraceBrief() const;
  /// The brief form followed by the address of the string stream it was
  /// built in, cut to 254 characters, in a static 256-byte buffer of this
  /// function that the next call overwrites. Not thread-safe.
  const char* TraceStr() const;
};

#pragma pack(pop)

static_assert(sizeof(CTransient) == 36, "stored transient records are 36 bytes");
static_assert(alignof(CTransient) == 4, "stored transient records are packed to 4 bytes");
static_assert(offsetof(CTransient, pos) == 0);
static_assert(offsetof(CTransient, Energy) == 8);
static_assert(offsetof(CTransient, reserved1) == 12);
static_assert(offsetof(CTransient, visibleweight) == 16);
static_assert(offsetof(CTransient, reserved2) == 20);
static_assert(offsetof(CTransient, reserved3) == 24);
static_assert(offsetof(CTransient, reserved4) == 28);
static_assert(offsetof(CTransient, FreqHz) == 32);

/// Full form: "CTransient: pos <pos>, Energy <e>, visibleweight <w>, FreqHz <f>"
/// with the stream's default number formatting; no line end. Returns `stream`.
VTCORE_EXPORT std::ostream& TraceStream(std::ostream& stream, const CTransient& transient);
/// The trace module's brief hook: the same text as TraceStream. (The record's
/// own TraceBrief and TraceStr use the shorter form without visibleweight.)
VTCORE_EXPORT std::ostream& TraceStreamBrief(std::ostream& stream, const CTransient& transient);
/// Writes the full form (TraceStream).
VTCORE_EXPORT std::ostream& operator<<(std::ostream& stream, const CTransient& transient);

/// Position order: a.pos < b.pos (signed).
struct VTCORE_EXPORT SortFunctor_CTransient_Pos {
  /// Whether `a` comes before `b`.
  bool operator()(const CTransient& a, const CTransient& b) const { return a.pos < b.pos; }
};

/// Energy order, weakest first, position breaking ties: a.Energy < b.Energy,
/// or equal energies and a.pos < b.pos. A NaN energy is neither less nor
/// equal, so this is no strict weak order when NaNs are present; the
/// collection's sorts guard against that themselves.
struct VTCORE_EXPORT SortFunctor_CTransient_EnergyAndPos {
  /// Whether `a` comes before `b`.
  bool operator()(const CTransient& a, const CTransient& b) const {
    return a.Energy < b.Energy || (a.Energy == b.Energy && a.pos < b.pos);
  }
};

/// An ordered collection of transients with value semantics: the standard
/// vector of CTransient plus the operations below. Element order is exactly
/// what the last operation left. Use from one thread at a time.
class VTCORE_EXPORT CTransients : public std::vector<CTransient> {
public:
  using std::vector<CTransient>::vector;

  /// Sorts by position (unstable: equal positions end in no defined order).
  void SortByPos();
  /// Sorts by energy, weakest first, then by position (unstable). Transients
  /// with a NaN energy, which have no place in that order, are put after all
  /// others, by position among themselves.
  void SortByEnergyAndPos();
  /// When more than `size` elements are held, keeps the `size` weakest ones
  /// (smallest energies; among equal energies the smaller positions; those
  /// with a NaN energy are dropped first), then sorts by position in every
  /// case. 0 empties the collection.
  void ThinOutToSizeAndSortByPos(unsigned long size);
  /// Sorts by position and keeps one element of each run of equal positions
  /// (which one depends on the unstable sort; energy plays no part).
  void SortAndMakeUniquePos();
  /// True when the positions never decrease (always for 0 or 1 element).
  bool AreSortedByPos() const;
  /// True when the positions strictly increase (always for 0 or 1 element).
  bool AreUniqueAndSortedByPos() const;

  /// Writes the container listing (operator<<) to standard output, then the
  /// stream-state pointer of std::cout. The indentation of the trace module
  /// precedes each element; elements are not separated by line ends.
  void Trace() const;
  /// Writes "CTransients: size  <count>" to standard output, then the
  /// stream-state pointer.
  void TraceBrief() const;
  /// The size line followed by the string stream's address, cut to 254
  /// characters, in a static 256-byte buffer of this function. Not
  /// thread-safe.
  const char* TraceStr() const;
  /// Always the empty text, in a static 256-byte buffer of this function.
  const char* TraceAsPushBackList() const;
};

/// Container listing: each element's full form through TraceOutContainer,
/// preceded by IndentToCout (which writes to standard output whatever
/// `stream` is). Works on a copy of the collection. Returns `stream`.
VTCORE_EXPORT std::ostream& TraceStream(std::ostream& stream, const CTransients& transients);
/// The same text as TraceStream.
VTCORE_EXPORT std::ostream& TraceStreamBrief(std::ostream& stream, const CTransients& transients);
/// Writes the container listing (TraceStream).
VTCORE_EXPORT std::ostream& operator<<(std::ostream& stream, const CTransients& transients);

VTCORE_EXTERN_C_BEGIN

/// Converts a stored block of transients between big- and little-endian
/// order in place: the four 32-bit header words at offsets 0 to 12, then
/// (byteCount - 1024) / 36 records from offset 1024 (pos as one 64-bit value,
/// the seven 32-bit words each). Header bytes 16 to 1023 and trailing bytes
/// that make no whole record are left alone. Reversing is its own inverse, so
/// `direction` changes nothing. Requires `byteCount` >= 1024; a smaller count
/// or a null `data` does nothing.
VTCORE_EXPORT void SwapTransientCallback(void* data, std::size_t byteCount, bool direction);

VTCORE_EXTERN_C_END
