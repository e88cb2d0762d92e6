#include <vtcore/music/transients/transients.h>

#include <vtcore/music/transients/detail/trace_text.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <sstream>

namespace {

// The energy order of SortFunctor_CTransient_EnergyAndPos made total: a NaN
// energy is incomparable with everything, which breaks the strict weak order
// the standard sort relies on (it may then run past the ends of the range).
// NaNs go after every number, by position among themselves. For NaN-free
// data every comparison answers exactly as the public functor does, so the
// sort does exactly what it did with that functor.
struct EnergyAndPosNaNLast {
  bool operator()(const CTransient& a, const CTransient& b) const {
    const bool aIsNaN = std::isnan(a.Energy);
    const bool bIsNaN = std::isnan(b.Energy);
    if (aIsNaN || bIsNaN)
      return aIsNaN != bIsNaN ? bIsNaN : a.pos < b.pos;
    return SortFunctor_CTransient_EnergyAndPos()(a, b);
  }
};

void writeBriefForm(std::ostream& stream, const CTransient& transient) {
  stream << "CTransient: pos " << transient.pos << ", Energy "
         << static_cast<double>(transient.Energy) << ", FreqHz "
         << static_cast<double>(transient.FreqHz);
}

void writeSizeLine(std::ostream& stream, const CTransients& transients) {
  stream << "CTransients: size  " << static_cast<unsigned long>(transients.size());
}

// Stored records are big-endian on one side and little-endian on the other;
// each field is reversed on its own, so the record layout decides the work.
void reverse32(unsigned char* p) {
  std::uint32_t word;
  std::memcpy(&word, p, sizeof word);
  word = __builtin_bswap32(word);
  std::memcpy(p, &word, sizeof word);
}

void reverse64(unsigned char* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  word = __builtin_bswap64(word);
  std::memcpy(p, &word, sizeof word);
}

constexpr std::size_t kStoredHeaderBytes = 1024;
constexpr std::size_t kStoredHeaderWords = 4;

} // namespace

std::ostream& TraceStream(std::ostream& stream, const CTransient& transient) {
  return stream << "CTransient: pos " << transient.pos << ", Energy "
                << static_cast<double>(transient.Energy) << ", visibleweight "
                << static_cast<double>(transient.visibleweight) << ", FreqHz "
                << static_cast<double>(transient.FreqHz);
}

std::ostream& TraceStreamBrief(std::ostream& stream, const CTransient& transient) {
  return TraceStream(stream, transient);
}

std::ostream& operator<<(std::ostream& stream, const CTransient& transient) {
  return TraceStream(stream, transient);
}

void CTransient::Trace() const {
  TraceStream(std::cout, *this);
  vtcore::detail::writeStreamState(std::cout);
}

void CTransient::TraceBrief() const {
  writeBriefForm(std::cout, *this);
  vtcore::detail::writeStreamState(std::cout);
}

const char* CTransient::TraceStr() const {
  static char buffer[vtcore::detail::kTraceStrBufferSize];
  std::ostringstream text;
  writeBriefForm(text, *this);
  vtcore::detail::writeStreamState(text);
  return vtcore::detail::copyTraceText(buffer, text.str());
}

void CTransients::SortByPos() {
  std::sort(begin(), end(), SortFunctor_CTransient_Pos());
}

void CTransients::SortByEnergyAndPos() {
  std::sort(begin(), end(), EnergyAndPosNaNLast());
}

void CTransients::ThinOutToSizeAndSortByPos(unsigned long size) {
  if (this->size() > size) {
    // Ascending energy: the weakest transients are the ones kept. This is
    // what the applications rely on; it is not to be turned around.
    SortByEnergyAndPos();
    erase(begin() + static_cast<difference_type>(size), end());
  }
  SortByPos();
}

void CTransients::SortAndMakeUniquePos() {
  SortByPos();
  erase(std::unique(begin(), end()), end());
}

bool CTransients::AreSortedByPos() const {
  for (std::size_t i = 1; i < size(); ++i)
    if ((*this)[i].pos < (*this)[i - 1].pos)
      return false;
  return true;
}

bool CTransients::AreUniqueAndSortedByPos() const {
  for (std::size_t i = 1; i < size(); ++i)
    if ((*this)[i].pos <= (*this)[i - 1].pos)
      return false;
  return true;
}

void CTransients::Trace() const {
  TraceStream(std::cout, *this);
  vtcore::detail::writeStreamState(std::cout);
}

void CTransients::TraceBrief() const {
  writeSizeLine(std::cout, *this);
  vtcore::detail::writeStreamState(std::cout);
}

const char* CTransients::TraceStr() const {
  static char buffer[vtcore::detail::kTraceStrBufferSize];
  std::ostringstream text;
  writeSizeLine(text, *this);
  vtcore::detail::writeStreamState(text);
  return vtcore::detail::copyTraceText(buffer, text.str());
}

const char* CTransients::TraceAsPushBackList() const {
  // The list form was never filled in: the text stays empty, and callers
  // have come to expect exactly that.
  static char buffer[vtcore::detail::kTraceStrBufferSize];
  std::ostringstream text;
  vtcore::detail::copyTraceText(buffer, text.str());
  return buffer;
}

std::ostream& TraceStream(std::ostream& stream, const CTransients& transients) {
  return TraceOutContainer(stream, transients, "CTransients", 2);
}

std::ostream& TraceStreamBrief(std::ostream& stream, const CTransients& transients) {
  return TraceStream(stream, transients);
}

std::ostream& operator<<(std::ostream& stream, const CTransients& transients) {
  return TraceStream(stream, transients);
}

void SwapTransientCallback(void* data, std::size_t byteCount, bool /*direction*/) {
  // Callers always pass a whole header; a short block is refused rather than
  // written past its end.
  if (data == nullptr || byteCount < kStoredHeaderBytes)
    return;
  auto* bytes = static_cast<unsigned char*>(data);
  for (std::size_t word = 0; word < kStoredHeaderWords; ++word)
    reverse32(bytes + 4 * word);
  const std::size_t records = (byteCount - kStoredHeaderBytes) / sizeof(CTransient);
  unsigned char* record = bytes + kStoredHeaderBytes;
  for (std::size_t i = 0; i < records; ++i, record += sizeof(CTransient)) {
    reverse64(record + offsetof(CTransient, pos));
    for (std::size_t offset = offsetof(CTransient, Energy); offset < sizeof(CTransient);
         offset += 4)
      reverse32(record + offset);
  }
}
