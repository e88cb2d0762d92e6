#include <vtcore/music/transients/deviation.h>

#include <vtcore/music/transients/detail/trace_text.h>

#include <iostream>
#include <sstream>

std::ostream& TraceStream(std::ostream& stream, const VTEv_AssessDeviations& record) {
  return stream << "VTEv_AssessDeviations: ClockWrongDeviationPrevFrames "
                << static_cast<long long>(record.ClockWrongDeviationPrevFrames) << " ...NextFrames "
                << static_cast<long long>(record.ClockWrongDeviationNextFrames);
}

std::ostream& TraceStreamBrief(std::ostream& stream, const VTEv_AssessDeviations& record) {
  return TraceStream(stream, record);
}

std::ostream& operator<<(std::ostream& stream, const VTEv_AssessDeviations& record) {
  return TraceStream(stream, record);
}

void VTEv_AssessDeviations::Trace() const {
  TraceStream(std::cout, *this);
  vtcore::detail::writeStreamState(std::cout);
}

void VTEv_AssessDeviations::TraceBrief() const {
  TraceStreamBrief(std::cout, *this);
  vtcore::detail::writeStreamState(std::cout);
}

const char* VTEv_AssessDeviations::TraceStr() const {
  static char buffer[vtcore::detail::kTraceStrBufferSize];
  std::ostringstream text;
  TraceStream(text, *this);
  vtcore::detail::writeStreamState(text);
  return vtcore::detail::copyTraceText(buffer, text.str());
}
