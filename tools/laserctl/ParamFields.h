// Every field of the laser parameter record under its path of field names ("DefParams.PWM.Frequency"): the one
// place that knows the record's layout, used to read a record from JSON and to print one.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "frame/LaserParams.h"

namespace laserctl {

using TFieldRef = std::variant<bool*, int32_t*, double*, std::string*, uint8_t*, devlaser::TEnumLaserType*,
                               devlaser::TDataTransType*>;

struct TParamField {
  std::string_view Path;
  TFieldRef (*Get)(devlaser::TLaserParams& params);
};

// All fields, in declaration order.
std::span<const TParamField> ParamFields();
// The field at `path`, or null.
const TParamField* FindParamField(std::string_view path);
// True when `path` names a sub-record ("DefParams", "CfgIPG.YLS.Wire", also the empty "CfgSPI").
bool IsParamRecord(std::string_view path);

}  // namespace laserctl
