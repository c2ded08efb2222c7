// The simulated lasers that lifecycle tests put at the far end of a laser class's link, one entry per family.
// A family that gains a simulator adds one entry to LinkSimulatorFamilies(): the registry names of the classes it
// serves, the links it speaks, and how to make one. The suite then runs every listed class over every listed link.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/LaserParams.h"
#include "refhost/SimEcatSystem.h"
#include "refhost/transport/SerialPortMap.h"

namespace testsupport {

enum class TLink { None, Tcp, Udp, Serial, Ethercat };
const char* LinkName(TLink link);

// What the far end of a link can do wrong while it stays reachable: never answer, answer junk, answer in pieces of
// one byte, or answer late.
enum class TPeerFault { None, Silent, Garbage, BytePieces, SlowFirstByte };
const char* PeerFaultName(TPeerFault fault);

// Where a simulator serves, chosen by the test so that parallel tests never share an address or a port number.
struct TSimSlot {
  std::string Address;     // a loopback address (127.0.0.N) for TCP and UDP
  int32_t SerialPort = 0;  // the port number the laser is given for the pseudo-terminal
  std::shared_ptr<refhost::TSerialPortMap> SerialPorts;
  std::shared_ptr<refhost::TSimEcatSystem> Bus;  // the host's EtherCAT system, for a laser slave
};

class TLinkSimulator {
 public:
  virtual ~TLinkSimulator() = default;
  // Starts serving on `link` in `slot` and points the laser's parameters at it; false with `error` set on failure.
  virtual bool Start(TLink link, const TSimSlot& slot, devlaser::TLaserParams& params, std::string& error) = 0;
  // Ends serving (peers see the laser vanish); the laser's state survives for the next Start.
  virtual void Stop() = 0;
  // Commands (or frames) received since construction: the simulator's log, which stops growing once no laser
  // talks to it any more.
  virtual size_t Received() const = 0;
  // Whether `command` arrives (again) within `timeout`; frames of binary protocols may match on their name.
  virtual bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times = 1) const = 0;

  // ---- fault injection (a simulator without it keeps these defaults) ----
  // Before the first Start on a serial line: the pseudo-terminal is also reachable under `path`, which a restart
  // keeps, and the laser's port number maps to it (a serial adapter unplugged and plugged in again). Without it a
  // restart makes a new device, to which the port number is pointed again.
  virtual void SetSerialLinkPath(const std::string& path) { FSerialLinkPath = path; }
  // Switches `fault` on at the far end (None: back to normal); false when this simulator cannot show it on `link`.
  virtual bool SetPeerFault(TLink /*link*/, TPeerFault fault) { return fault == TPeerFault::None; }
  // The simulated laser is switched off and on again: emission off, its settings back to their defaults.
  virtual void PowerCycle() {}
  // Whether the simulated laser emits now.
  virtual bool Emitting() const { return false; }
  // The emission-on command as the log shows it, for WaitFor() and Count(); empty when unknown.
  virtual std::string EmissionOnCommand() const { return {}; }
  virtual std::string EmissionOffCommand() const { return {}; }
  // How often `command` has arrived since the log was last cleared.
  virtual size_t Count(const std::string& /*command*/) const { return 0; }
  // Forgets the commands received so far, so that a long run keeps its memory flat. Received() may count anew.
  virtual void ClearLog() {}

 protected:
  std::string FSerialLinkPath;
};

struct TSimFamily {
  std::vector<std::string> Classes;  // registry class names, e.g. "TIPGYLR2Laser"
  std::vector<TLink> Links;
  std::function<std::unique_ptr<TLinkSimulator>()> Make;
};

const std::vector<TSimFamily>& LinkSimulatorFamilies();
// The family that simulates `className`, or null for a class without a link.
const TSimFamily* SimFamilyOf(const std::string& className);

}  // namespace testsupport
