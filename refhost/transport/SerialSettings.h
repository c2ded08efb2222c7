// Serial line settings in the text form the laser configuration uses: "baud,parity,data bits,stop bits", for
// example "57600,n,8,1".
#pragma once

#include <termios.h>

#include <optional>
#include <string>
#include <string_view>

namespace refhost {

struct TSerialSettings {
  int Baud = 9600;
  // 'n' none, 'e' even, 'o' odd, 'm' mark (always 1), 's' space (always 0).
  char Parity = 'n';
  int DataBits = 8;
  int StopBits = 1;

  // The canonical text, such as "57600,n,8,1".
  std::string ToString() const;
  bool operator==(const TSerialSettings&) const = default;
};

// Parses a settings text. Fields may be surrounded by blanks and the parity letter may be upper case. On a
// malformed text returns nothing and, when `error` is given, says which field is wrong and why.
std::optional<TSerialSettings> ParseSerialSettings(std::string_view text, std::string* error = nullptr);

// The termios speed constant of a baud rate, or B0 when the rate is not one the terminal interface knows.
speed_t BaudToSpeed(int baud);

}  // namespace refhost
