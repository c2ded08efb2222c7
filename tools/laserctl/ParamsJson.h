// A laser parameter record as JSON: field names of the record, sub-records as nested objects, enumerations by name
// ("eltIPG", "dttNetTcp") or by ordinal. Reading starts from the record it is given, so missing fields keep their
// values.
#pragma once

#include <string>

#include "frame/LaserParams.h"
#include "refhost/ConfigStore.h"

namespace laserctl {

// Reads the file into `params`. A file that cannot be read or is not JSON is refused (message type 7, naming the
// file and the position) and `params` stays as it was. Unknown fields and values of the wrong type or out of range
// are reported as warnings (type 5) with the file and the field path, and leave that field as it was.
bool LoadParamsJson(const std::string& path, devlaser::TLaserParams& params, const refhost::TConfigReport& report);
// The same for text in memory; `sourceName` stands for the file name in reports.
bool LoadParamsJsonText(const std::string& text, const std::string& sourceName, devlaser::TLaserParams& params,
                        const refhost::TConfigReport& report);

// The whole record as compact JSON in the form that LoadParamsJson reads.
std::string ParamsToJson(const devlaser::TLaserParams& params);

}  // namespace laserctl
