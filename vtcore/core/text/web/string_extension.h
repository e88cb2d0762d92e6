// Web and XML conversions of host strings (icu::UnicodeString).
//
// These operations extend the host string: each is a static function of
// UnicodeStringExtension taking the receiving string first, and returns a new
// string (or the receiver unchanged) without ever failing loudly. Strings are
// measured in UTF-16 units; unpaired surrogates are accepted everywhere.
#pragma once

#include <vtcore/export.h>

#include <unicode/unistr.h>

/// The web and XML operations every host string answers.
struct VTCORE_EXPORT UnicodeStringExtension {
  /// `self` with every character of general category Cc or Cf removed (tab,
  /// line feed, zero-width joiner, byte-order mark...), then "&", "<", ">",
  /// "'" and "\"" replaced by "&amp;", "&lt;", "&gt;", "&apos;" and "&quot;"
  /// (the ampersand first, so entities are never escaped twice).
  static icu::UnicodeString stringByConvertingToXML(const icu::UnicodeString& self);

  /// `self` turned into a URL with a scheme. Empty text and text beginning
  /// with "mailto:" are returned as they are; an e-mail address (see
  /// stringLooksLikeValidEmailAddress) gains "mailto:"; a text without any
  /// ":" gains "http://". Then every "://" after the first one is deleted, so
  /// "http://host://b" becomes "http://hostb"; a text with ":" but no "://"
  /// is returned unchanged.
  static icu::UnicodeString stringByPrependingURLScheme(const icu::UnicodeString& self);

  /// stringByPrependingURLScheme, then percent-escaped in UTF-8: control
  /// characters, space, DEL, < > " { } | \ ^ [ ] ` and every non-ASCII
  /// character (an unpaired surrogate as U+FFFD) become "%XX" per byte; "%"
  /// and "#" stay. Finally every "%" not followed by two hexadecimal digits
  /// becomes "%25". Empty text is returned as it is.
  static icu::UnicodeString stringByConvertingToRFC2396(const icu::UnicodeString& self);

  /// `self` with the host of a URL "scheme://host..." converted to ASCII by
  /// IDNA (ICU uidna_IDNToASCII, default options): "http://bücher.de/x"
  /// gives "http://xn--bcher-kva.de/x". The host is the text after the "//"
  /// that follows the scheme up to the next "/", ":" or the end. Without a
  /// host, or when IDNA refuses it, `self` is returned unchanged.
  static icu::UnicodeString stringByConvertingToPunycode(const icu::UnicodeString& self);

  /// Whether the whole of `self` matches the ICU regular expression
  /// "^[a-zA-Z0-9\._-]+@(?:[a-zA-Z0-9\.-]+\.)+[a-zA-Z0-9\.-]{2,4}$": a.b@c.de
  /// passes, a domain without a dot or with a last label longer than four
  /// characters does not. False on any regular-expression error, including
  /// the engine's time limit on pathological texts.
  static bool stringLooksLikeValidEmailAddress(const icu::UnicodeString& self);

  /// Whether libxml2's URI parser (xmlParseURI) accepts the UTF-8 form of
  /// `self` (cut at a U+0000, as a C string is). False for the empty string.
  static bool stringLooksLikeValidURI(const icu::UnicodeString& self);

  /// True when `self` is exactly "YES" or "TRUE", or is "YES", "TRUE" or "Y"
  /// ignoring case, or its integer value (leading white space skipped, an
  /// optional sign, decimal digits as far as they go, 0 without digits) is
  /// not 0. So "yes", "y", "True", "1", "42" and " 7" are true; "no", "0",
  /// "" and "N" are false.
  static bool boolValue(const icu::UnicodeString& self);
};
