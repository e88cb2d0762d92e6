// The result record of a clock-deviation assessment and its trace output.
#pragma once

#include <vtcore/core/diagnostics/trace/VTTrace.h>
#include <vtcore/export.h>

#include <cstdint>
#include <ostream>

/// How many frames before and after an assessed point the clock was found to
/// deviate wrongly. The applications fill and read it; the library only
/// prints it.
struct VTCORE_EXPORT VTEv_AssessDeviations {
  std::int64_t ClockWrongDeviationPrevFrames = 0; ///< frames before the point
  std::int64_t ClockWrongDeviationNextFrames = 0; ///< frames after the point

  /// Writes the record's text to standard output, then the stream-state
  /// pointer (the address of std::cout while it is neither failed nor bad,
  /// else a null pointer). No line end.
  void Trace() const;
  /// The same as Trace.
  void TraceBrief() const;
  /// The text followed by the string stream's address, cut to 254
  /// characters, in a static 256-byte buffer of this function that the next
  /// call overwrites. Not thread-safe.
  const char* TraceStr() const;
};

/// Writes "VTEv_AssessDeviations: ClockWrongDeviationPrevFrames <prev>
/// ...NextFrames <next>" (one line of text, no line end) and returns `stream`.
VTCORE_EXPORT std::ostream& TraceStream(std::ostream& stream, const VTEv_AssessDeviations& record);
/// The same text as TraceStream.
VTCORE_EXPORT std::ostream& TraceStreamBrief(std::ostream& stream,
                                             const VTEv_AssessDeviations& record);
/// Writes the record's text (TraceStream).
VTCORE_EXPORT std::ostream& operator<<(std::ostream& stream, const VTEv_AssessDeviations& record);
