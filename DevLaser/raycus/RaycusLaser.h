// The Raycus fiber laser on a serial line: emission and diode current go to the laser as ESC commands through the
// shared serial command thread, beside the hard-wired outputs of a fiber laser (an optional start output switched
// with emission, and the emission gate). Every operation only queues its command and returns; the thread alone
// talks to the laser. On the QCW sub-type, switching the laser on also sends the pulse settings.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "core/FiberLaser.h"
#include "registry/LaserLinks.h"
#include "serial/SerialCmdThread.h"

namespace devlaser {

class TRaycusLaser : public TFiberLaser {
 public:
  // The ESC commands run over a serial line.
  static constexpr uint8_t kProtocolLinks = llSerial;
  static constexpr const char* kThreadName = "Raycus";
  static constexpr const char* kFaultPrefix = "TRaycusLaser Exception:";
  static constexpr int32_t kQcwSubType = 2;

  TRaycusLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  ~TRaycusLaser() override;

  // Starts the serial thread when a serial port is configured; the laser owns it (stopped on shutdown).
  void Create() override;

  bool GetIsEmissionOn() override;
  void EmissionOn() override;
  void EmissionOff() override;
  void LaserOn() override;
  void PowerOn() override;
  // Queues the current, rounded to whole percent (halves to even), as the repeated diode command; false when the
  // laser has no serial line, so that the DA output carries it instead.
  bool SetDiodeCustom(double value) override;
  bool GetIsHardWire() override;

  bool GetIsRaycusQCW() const { return FParams.LaserSubType == kQcwSubType; }
  // The serial thread; null without a serial port. Once the laser is shut down it is stopped and takes nothing.
  TSerialCmdThread* SerialThread() const { return FSerialThread.get(); }

 private:
  bool HasSerial() const { return FSerialPortNo >= 1 && FSerialThread; }
  void QueueCmd(std::span<const uint8_t> bytes);
  // The output `port` when the IO extension has it.
  void SetOutputIfPresent(int32_t port, bool on);

  const int32_t FSerialPortNo;
  const int32_t FStartPort;
  const int32_t FGatePort;
  std::atomic<bool> FEmissionFlag{false};
  std::unique_ptr<TSerialCmdThread> FSerialThread;
};

}  // namespace devlaser
