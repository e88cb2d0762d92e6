// Owning handles for the ICU objects the library opens, and the one place
// that opens the converter of the 8-bit Roman character set.
#pragma once

#include <memory>
#include <unicode/ucnv.h>

namespace vtcore {

/// Closes an ICU converter; for `std::unique_ptr`.
struct IcuConverterCloser {
  /// Closes `converter` (null is allowed).
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};

/// An ICU converter with one owner, closed on every path.
using IcuConverter = std::unique_ptr<UConverter, IcuConverterCloser>;

/// Opens ICU's converter of the 8-bit Roman character set (the classic Mac
/// Roman set, ICU's "macintosh"), which writes the byte `substitute` for a
/// character the set lacks. Returns null when ICU cannot open it.
inline IcuConverter openRomanConverter(char substitute) noexcept {
  UErrorCode status = U_ZERO_ERROR;
  IcuConverter converter(ucnv_open("macintosh", &status));
  if (U_FAILURE(status))
    return nullptr;
  ucnv_setSubstChars(converter.get(), &substitute, 1, &status);
  return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

} // namespace vtcore
