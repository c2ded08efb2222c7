// Description files of the own-brand laser for tests: the frames of the shipped example (function code per
// command, CRC over the first five bytes) with the pieces a test wants changed.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

struct TZorunDescriptionText {
  std::string Desc = "ZR test laser";
  std::string Encoding = "Hex";
  bool Checked = true;  // every template but the diode set's
  int DiodeLevel = 2;
  int DiodeMax = 1000;
  bool DiodeChecked = true;
  int DiodeParamIdx = 4;
  std::string InitCommand = "5A A5 01 10";
  int InitCheckEnd = 4;
  std::vector<std::pair<int, std::string>> Alarms = {{0, ": over temperature"}, {3, ": back reflection"}};

  std::string Text() const {
    auto fixed = [this](int type, const std::string& command, const std::string& extra = "", int checkEnd = 4) {
      return "{\"CmdType\": " + std::to_string(type) + ", \"CmdDesc\": \"type " + std::to_string(type) +
             "\", \"Command\": \"" + command +
             "\", \"CmdTotalLen\": 5, \"CmdNeedCheck\": " + (Checked ? "true" : "false") +
             ", \"CheckBeginIdx\": 0, \"CheckEndIdx\": " + std::to_string(checkEnd) + extra + "}";
    };
    std::string alarms;
    for (const auto& [id, text] : Alarms)
      alarms += std::string(alarms.empty() ? "" : ", ") + "{\"AlarmID\": " + std::to_string(id) +
                ", \"AlarmDesc\": \"" + text + "\"}";
    return "{\"Lasers\": [{\"Desc\": \"" + Desc + "\", \"InstructionEnCode\": \"" + Encoding +
           "\", \"Instructions\": [" + fixed(0, InitCommand, "", InitCheckEnd) + ", " + fixed(1, "5A A5 01 11 01") +
           ", " + fixed(2, "5A A5 01 11 00") +
           ", {\"CmdType\": 3, \"CmdDesc\": \"diode\", \"Command\": \"5A A5 01 12\", \"ParamIdx\": " +
           std::to_string(DiodeParamIdx) +
           ", \"ParamLen\": 2, \"ParamMin\": 0, \"ParamMax\": " + std::to_string(DiodeMax) +
           ", \"CmdLv\": " + std::to_string(DiodeLevel) + ", \"CmdNeedCheck\": " + (DiodeChecked ? "true" : "false") +
           ", \"CheckBeginIdx\": 0, \"CheckEndIdx\": 5}, " + fixed(4, "5A A5 01 14 00") + ", " +
           fixed(5, "5A A5 01 15 00", ", \"CmdNeedReply\": true") + ", " + fixed(6, "5A A5 01 16 01") + ", " +
           fixed(7, "5A A5 01 16 00") +
           "], \"Replys\": [{\"CmdType\": 4, \"Reply\": \"5A A5 95 01 00\", \"ReplyFlagIdx\": 4, \"CheckEndIdx\": 4, "
           "\"CheckLen\": 2}], \"Alarms\": [" +
           alarms + "]}]}";
  }
};

}  // namespace testsupport
