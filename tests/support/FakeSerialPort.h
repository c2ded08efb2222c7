// An in-memory serial line for the serial lasers' thread: the test keeps the peer (the laser's end) while the code
// under test owns the port. The peer records every write in order, hands out scripted chunks one per read, can
// refuse to open, lose writes (0 bytes written), throw from the next operation, and run a hook inside a write (on
// the thread that writes) to act at an exact point of the thread's cycle. Thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/Transports.h"
#include "refhost/TransportFactory.h"

namespace testsupport {

class TFakeSerialPeer {
 public:
  // Runs inside a write, on the writing thread, with the bytes and the 0-based index of the write.
  using TWriteHook = std::function<void(const std::string& bytes, size_t index)>;

  // What the port does, in order: "open", "read:<hex>", "write:<hex>", "close". Reads that return nothing are
  // not recorded.
  std::vector<std::string> Ops() const;
  std::vector<std::string> Writes() const;
  size_t WriteCount() const;
  // Waits until `count` writes were made, or `timeout` passed.
  bool WaitForWrites(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

  void SetOpenable(bool openable);
  // The next `count` writes report 0 bytes written (the bytes are not recorded).
  void LoseWrites(int count);
  // The next port operation throws std::runtime_error(`what`), `count` times.
  void ThrowNext(const std::string& what, int count = 1);
  void SetWriteHook(TWriteHook hook);
  // Chunks the port reads, one per Read.
  void Send(const std::string& chunk);
  bool IsOpen() const;
  // Settings and port number the port was given.
  std::string Settings() const;
  int32_t PortNumber() const;

  // ---- the port's side ----
  void Configure(int32_t port, const std::string& settings);
  bool Activate(bool active);
  bool Active();
  std::string Read(size_t maxBytes);
  int Write(const std::string& data);

 private:
  void MaybeThrowLocked();

  mutable std::mutex FMutex;
  mutable std::condition_variable FWritten;
  std::vector<std::string> FOps;
  std::vector<std::string> FWrites;
  std::deque<std::string> FIncoming;
  TWriteHook FHook;
  bool FOpenable = true;
  bool FOpen = false;
  int FLose = 0;
  int FThrow = 0;
  std::string FThrowWhat;
  std::string FSettings;
  int32_t FPort = 0;
};

class TFakeSerialPort : public nchost::TCommCtrl {
 public:
  explicit TFakeSerialPort(std::shared_ptr<TFakeSerialPeer> peer) : FPeer(std::move(peer)) {}
  void SetPort(int32_t port) override { FPeer->Configure(port, FSettings); }
  void SetSettings(const std::string& settings) override { FSettings = settings; }
  bool SetActive(bool active) override { return FPeer->Activate(active); }
  bool GetActive() override { return FPeer->Active(); }
  std::string Read(size_t maxBytes) override { return FPeer->Read(maxBytes); }
  int Write(const std::string& data) override { return FPeer->Write(data); }

 private:
  std::shared_ptr<TFakeSerialPeer> FPeer;
  std::string FSettings;
};

// Hands out serial ports bound to one peer, and nothing else.
class TFakeSerialFactory : public refhost::ITransportFactory {
 public:
  std::shared_ptr<TFakeSerialPeer> Peer = std::make_shared<TFakeSerialPeer>();
  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override { return std::make_unique<TFakeSerialPort>(Peer); }
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override { return nullptr; }
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override { return nullptr; }
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override { return nullptr; }
};

// "1B 43 50 26 0D" for the bytes, "" for none.
std::string Hex(const std::string& bytes);
// The bytes of a text such as "1B 43 50 26 0D".
std::string Bytes(const std::string& hex);

}  // namespace testsupport
