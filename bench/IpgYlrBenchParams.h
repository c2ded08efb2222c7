// The IPG YLR2 laser the benchmarks drive over TCP: the laser at `address` (port 10001), acknowledged diode
// current sets with a one-second time-out, replies checked.
#pragma once

#include "frame/LaserParams.h"

namespace bench {

inline devlaser::TLaserParams YlrOverTcpParams(const char* address) {
  devlaser::TLaserParams params;
  params.Model = "YLR";
  params.LaserMainType = devlaser::eltIPG;
  params.LaserSubType = 3;
  params.DefParams.DataTransType = devlaser::dttNetTcp;
  params.DefParams.Net.TcpHost = address;
  params.DefParams.DiodeSetTimeOut = 1000;
  params.DefParams.PWM.DiodeCurrent = 30;
  params.DefParams.Comm.IgnoreCommResult = false;
  return params;
}

}  // namespace bench
