#include <vtcore/music/midi/time_marker.h>

KwTimeMarker::KwTimeMarker() {
  setMarker();
}

KwTimeMarker* KwTimeMarker::init() {
  setMarker();
  return this;
}

void KwTimeMarker::setMarker() {
  gettimeofday(&m_tLogTime, nullptr);
}

float KwTimeMarker::secondsSinceMarker() const {
  struct timeval now {};
  gettimeofday(&now, nullptr);
  // Single precision, as the callers have always received it.
  const float seconds = static_cast<float>(now.tv_sec - m_tLogTime.tv_sec);
  const float micros = static_cast<float>(now.tv_usec - m_tLogTime.tv_usec);
  return seconds + micros * 0.000001f;
}
