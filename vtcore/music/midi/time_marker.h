// KwTimeMarker: elapsed wall-clock time since a marker.
#pragma once

#include <vtcore/export.h>

#include <sys/time.h>

/// Measures wall-clock time (gettimeofday) from a marker. Being wall-clock
/// time, it jumps when the system clock is set.
class VTCORE_EXPORT KwTimeMarker {
public:
  /// Sets the marker (as init does).
  KwTimeMarker();

  /// Sets the marker to now and returns this marker.
  KwTimeMarker* init();
  /// Restarts the measurement: stores the current time as the marker.
  void setMarker();
  /// Seconds since the marker, in single precision: (seconds now - seconds
  /// then) + (microseconds now - microseconds then) x 0.000001.
  float secondsSinceMarker() const;

  struct timeval m_tLogTime {};
};
