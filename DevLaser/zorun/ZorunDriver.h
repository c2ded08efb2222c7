// The driver of the maker's own fiber laser, whose protocol comes from its description file (ZorunDescription.h)
// rather than from code. Requests become frames built from the file's templates and wait in a queue; a send thread
// writes one per pass and queues a state query after each, so the laser is polled without pause; a receive thread
// collects what else the laser sends every 200 ms and keeps the link alive. Every reply is searched for the alarm
// byte, whose bits are the file's alarms, and acknowledged with an alarm reply.
//
// Host calls never wait for the link: queueing takes only the short queue lock, never the link lock that a reply
// window holds for 20 ms. Stop() (also run by the destructor) joins both threads, sends what is queued of emission
// and aiming switch-offs, and closes the link; after it the driver puts no byte on any link.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Fifo.h"
#include "frame/LaserComm.h"
#include "frame/LaserParams.h"
#include "frame/LaserThread.h"
#include "zorun/ZorunDescription.h"
#include "zorun/ZorunLink.h"
#include "zorun/ZorunProtocol.h"

namespace devlaser {

class TZorunDriver {
 public:
  static constexpr const char* kRecvThreadName = "ZorunLaser.RecvThread";
  static constexpr const char* kSendThreadName = "ZorunLaser.SendThread";
  static constexpr int32_t kRecvGapMs = 200;
  static constexpr int32_t kSendGapMs = 1;
  static constexpr int32_t kReplyWindowMs = 20;

  // Loads the description file from the host's executable folder (the laser element at CfgZorun.LaserIdx), opens
  // the configured link, starts both threads when there is a link, and queues the init command. Throws
  // ELaserError, naming the file, the entry and the reason, when the file cannot serve the laser or the transport
  // is none of none, serial, TCP and UDP.
  // The link's clients come from `ports` (the laser's, closed when it shuts down), or from ports of the driver's
  // own when none are given.
  explicit TZorunDriver(const TLaserParams& params, TLaserPorts* ports = nullptr);
  ~TZorunDriver();
  TZorunDriver(const TZorunDriver&) = delete;
  TZorunDriver& operator=(const TZorunDriver&) = delete;

  // Joins both threads, sends the queued switch-offs of emission and aiming, closes the link. Idempotent.
  void Stop();
  bool Stopped() const { return FStopped.load(); }

  // ---- commands ----
  // Queues a command of `type` carrying `value`, unless CheckAllowCmd refuses it or the value is out of range.
  void AddCmd(zorun::TCmdType type, double value);
  // False when more commands of `type` wait than its template's CmdLv allows (one at least may always wait).
  bool CheckAllowCmd(zorun::TCmdType type) const;
  // Checks the range (an operator message), ignores a change below 0.1, and queues CmdLv + 1 diode sets.
  void SetDiodeCurrent(double value);
  double GetDiodeCurrent() const { return FDiodeCurrent.load(); }

  // ---- one pass of the threads (public for tests) ----
  // Sends the oldest queued command and, when it wants one, reads the reply. A command without bytes stays at the
  // head and holds up the queue. Returns whether a command left the queue.
  bool SendFifoCmd();
  // Collects what arrives within `timeoutMs` and analyses it.
  zorun::TBytes ReceiveResponse(int32_t timeoutMs);
  // Takes the alarm byte from received bytes, when there is one, and queues its acknowledgement.
  void AnalyzeResponse(const zorun::TBytes& data);
  void UpdateAlarmCode(int32_t code);
  bool CheckConnection();

  // ---- state for the laser ----
  bool CheckAlarm(int32_t id) const;
  // The alarm's text while it is active, otherwise empty.
  std::string GetAlarmDesc(int32_t id) const;
  std::vector<int32_t> AlarmIds() const;
  const std::string& GetLaserDesc() const { return FDescription.Cfg.LaserDesc; }
  const zorun::TZorunDescription& Description() const { return FDescription; }
  const std::string& DescriptionFile() const { return FDescriptionFile; }
  // True once the laser has answered on the current link.
  bool IsConnected() const { return FConnected.load(); }

  // The frames waiting to be sent, oldest first.
  std::vector<zorun::TBytes> QueuedFrames() const;
  std::vector<zorun::TCmdType> QueuedTypes() const;

 private:
  using TCommand = zorun::TCommandData;

  void OpenLink();
  void StartThreads();
  void SendLoop(TLaserThread& thread);
  void RecvLoop(TLaserThread& thread);
  void IcmpTimeout();
  // The head command, when it can be sent now.
  bool HeadSendable();
  void SendFrame(const TCommand& cmd);
  zorun::TBytes ReceiveResponse(int32_t timeoutMs, bool trace);
  void Unlist(const TCommand* cmd);
  void FlushSwitchOffs();

  const TLaserParams FDefLaserCfg;
  std::unique_ptr<TLaserPorts> FOwnPorts;  // only when the driver was given none
  std::string FDescriptionFile;
  zorun::TZorunDescription FDescription;
  // Frames of the commands without parameter, built once: the polling commands cost no building.
  std::map<zorun::TCmdType, zorun::TBytes> FFixedFrames;

  // Commands queued and not yet sent, in queue order; the queue itself holds and owns them.
  mutable std::mutex FListLock;
  std::deque<const TCommand*> FCmdList;
  TObjectFifo<TCommand> FCmdFifo{true};

  // Serialises every use of the link: a send, a reply window, a probe.
  std::mutex FLinkLock;
  std::unique_ptr<zorun::TZorunLink> FLink;

  mutable std::mutex FAlarmLock;
  std::map<int32_t, zorun::TAlarmData> FAlarmDict;
  int32_t FLastAlarmCode = -1;

  std::atomic<bool> FConnected{false};
  std::atomic<bool> FLastSendFailed{false};  // the last send found the link down
  std::atomic<double> FDiodeCurrent{0.0};
  std::atomic<bool> FStopped{false};
  std::mutex FStopLock;
  TLaserConnCheck FLaserConnet;

  TLaserThread FRecvThread{kRecvThreadName};
  TLaserThread FSendThread{kSendThreadName};
};

}  // namespace devlaser
