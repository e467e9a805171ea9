#pragma once

/// @file
/// Writes strings as text tokens and reads them back.
///
/// Encoders turn any string into a token that a line-oriented reader can tell from what follows it;
/// `decodeIdentifier()` recognises the form of a token by its first byte and gives the string back.
///
/// @code
/// #include <cassert>
/// #include <tolvane/StreamString.hpp>
///
/// void roundTrip() {
///   using Pelko::StreamString;
///   const std::string specials = StreamString::non_identifier_characters;
///
///   const std::string file = StreamString::encodeIdentifier("time step", specials) + "=" +
///                            StreamString::encodeLength("any \n bytes") + "\n";
///
///   Pelko::input_string in(file);
///   const auto name = StreamString::decodeIdentifier(in, StreamString::ENQ, 0, specials, false);
///   in.get(); // the "="
///   const auto value = StreamString::decodeIdentifier(in, StreamString::ENQ, 0, specials, false);
///   assert(name.first && name.second == "time step");
///   assert(value.first && value.second == "any \n bytes");
/// }
/// @endcode
///
/// The four forms:
///
/// | form   | bytes                             | holds                               |
/// |--------|-----------------------------------|-------------------------------------|
/// | bare   | the string as it is               | no NUL and no terminator, see below |
/// | quoted | `"`, string, `"`                  | no double quote                     |
/// | framed | STX, string, ETX                  | STX and ETX only as nested pairs    |
/// | length | ENQ, 4 bytes of length, string    | anything                            |
///
/// A bare token is not empty and does not begin with a byte that opens another form: a double
/// quote, STX, ENQ, or one of "[", "{" and "(".

#include <tolvane/Api.hpp>
#include <tolvane/InputString.hpp>

#include <string>
#include <utility>

namespace Pelko {

/// The token encoders and their reader. There are no objects of this class.
///
/// @par Thread safety
/// All functions may be called from any thread; a reader's `input_string` belongs to one of them.
class TOLVANE_API StreamString {
public:
  StreamString() = delete;

  /// The cursor that tokens are read from.
  using input_string = Pelko::input_string;

  static constexpr char STX = 2;  ///< Opens a framed token.
  static constexpr char ETX = 3;  ///< Closes a framed token.
  static constexpr char ENQ = 5;  ///< Opens a length token.
  static constexpr char DLE = 16; ///< Opens a two-byte escape.

  /// The thirteen characters that usually may not stand in a bare token: `=#<>@?,`, blank, `!`,
  /// carriage return, tab, line feed and double quote; a NUL follows them. The usual `specials` of
  /// `encodeIdentifier()` and `terminators` of `decodeIdentifier()`.
  static const char non_identifier_characters[14];

  /// Writes `s` as a length token, which takes any bytes.
  ///
  /// The reader needs at least one more byte after the token, for instance a line feed.
  /// @throw std::length_error when `s` is longer than 32 bits can say
  static std::string encodeLength(const std::string& s);

  /// Writes `s` as a framed token. It comes back whole when every ETX in `s` has an STX before it
  /// that it closes, and every STX its ETX.
  static std::string encodeCtrlChar(const std::string& s);

  /// Writes `s` in the plainest form that suits it: two double quotes when it is empty, bare when
  /// none of `specials` is in it (or there are none), framed when a tab, line feed, carriage return
  /// or double quote is in it, and quoted otherwise.
  ///
  /// Nothing else is looked at: a string that holds a NUL or begins with a bracket, STX, ENQ or,
  /// where `specials` has none, a double quote may be written bare, and the reader takes it for
  /// something else; one with an unpaired STX or ETX may be framed. `encodeLength()` is the form
  /// for any bytes.
  static std::string encodeIdentifier(const std::string& s, const std::string& specials);

  /// Makes `s` usable as a bare name, at a price.
  ///
  /// DLE and a second byte stand for "-" (second byte "_"), blank (DLE), "," (byte 17) and "."
  /// (byte 18). "=", ">", "(" and ")" become "_" and are lost. A blank before one of these or
  /// before a "_" does not come back either, and a DLE in `s` not always.
  static std::string encodeEscaped(const std::string& s);

  /// Undoes `encodeEscaped()` as far as it can be undone: over the whole string first DLE "_"
  /// becomes "-", then DLE DLE a blank, then DLE byte 17 ",", then DLE byte 18 ".".
  static std::string decodeEscaped(const std::string& s);

  /// Reads one token.
  ///
  /// With `open` = ENQ the first byte says the form: "[", "{" or "(" a token delimited by that
  /// bracket and its partner, ENQ a length token, STX a framed and a double quote a quoted one;
  /// anything else begins a bare token. With any other `open` the first byte, whatever it is, is
  /// taken for the opening delimiter of a token that `close` ends, unless it is ENQ, which begins a
  /// length token here too.
  ///
  /// - Delimited and framed tokens nest: an inner pair of delimiters (of STX and ETX) is part of
  ///   the token. Their own delimiters and quotes are consumed and not returned.
  /// - A bare token ends before the first of `terminators`, before a NUL, or at the end. What ends
  ///   it is left for the next read, so that after every form the position is on the byte that
  ///   follows the token. Only when the read *begins* on such a byte is it consumed, and the token
  ///   is empty: a loop of reads always moves on and ends.
  /// - A length token that reaches the end of the text, because it is cut off or because nothing
  ///   follows it, is not found, and the position is then at the end. An announced length costs no
  ///   memory by itself.
  /// - Any other token that is cut off gives what there was of it.
  ///
  /// @param in the text; it is advanced over the token
  /// @param open the opening delimiter, or ENQ to let the token say its form
  /// @param close the closing delimiter, used only when `open` is not ENQ; when both are the same
  ///              character, tokens do not nest
  /// @param terminators what ends a bare token; a NUL does anyway
  /// @param flag whether the token goes through `decodeEscaped()`. A length token never does; a
  ///             framed one does, because `encodeIdentifier()` chooses among bare, quoted and
  ///             framed by the content, which the reader need not know
  /// @return (true, token), or (false, empty) at the end of the text
  static std::pair<bool, std::string> decodeIdentifier(input_string& in, char open, char close,
                                                       const std::string& terminators, bool flag);
};

} // namespace Pelko
