// The own-brand laser's protocol description: the file "ZorunLaser.json" beside the host's executable, read through
// the host's JSON object. Its root holds "Lasers", an array with one element per laser model; the configured index
// picks the element, which gives the command templates, the reply patterns and the alarm bits.
//
// A file that is missing, is no JSON, has no element at the index or holds a template that can never produce a
// frame is refused as a whole with an ELaserError whose text names the file, the entry and the reason, so that
// the operator knows what to fix; the laser is then not built.
#pragma once

#include <map>
#include <string>

#include "host/AppSystem.h"
#include "host/SuperObject.h"
#include "zorun/ZorunProtocol.h"

namespace devlaser::zorun {

inline constexpr const char* kDescriptionFileName = "ZorunLaser.json";

// Settings of the laser element.
struct TZorunCfg {
  std::string CommSettings;  // serial settings, read only for a serial link
  std::string InstructionEncode;
  std::string LaserDesc;
  std::string Brand;
};

struct TZorunDescription {
  TZorunCfg Cfg;
  TEncoding Encoding = TEncoding::Unknown;
  std::map<TCmdType, TCommandData> Commands;  // of several with one type, the first
  std::map<TCmdType, TReplyData> Replies;     // of several with one type, the first
  std::map<int32_t, TAlarmData> Alarms;       // by bit; of several with one bit, the last
  // Entries left out (a type outside 0..7, a repeated type), for the log.
  std::vector<std::string> Skipped;
};

// The description file's path in the host's executable folder.
std::string DescriptionPath(nchost::TAppSystem& app);

// Reads element `laserIdx` of the file at `path`; `serial` says whether "CommSettings" is wanted. Throws
// ELaserError as described above.
TZorunDescription LoadDescription(nchost::TAppSystem& app, const std::string& path, int32_t laserIdx, bool serial);

// The same on parsed JSON; `path` only names the file in messages.
TZorunDescription ReadDescription(const nchost::ISuperObject& root, const std::string& path, int32_t laserIdx,
                                  bool serial);

}  // namespace devlaser::zorun
