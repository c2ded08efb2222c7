#include "WatchedTransports.h"

#include <mutex>
#include <string>

#include "refhost/transport/PosixSerialPort.h"
#include "refhost/transport/PosixTcpClient.h"
#include "refhost/transport/PosixUdpClient.h"

namespace laserctl {
namespace {

// Why the wrapped client failed, when it is one of the reference host's own (other clients do not say).
template <class TPosix, class TClient>
std::string LastErrorOf(TClient& client, const char* otherwise) {
  if (auto* posix = dynamic_cast<TPosix*>(&client)) {
    std::string error = posix->LastError();
    if (!error.empty()) return error;
  }
  return otherwise;
}

// The name a link is reported by: "TCP 10.0.0.5:10001", "UDP 10.0.0.5:9000".
class TEndpoint {
 public:
  TEndpoint(TLinkWatch& watch, const char* kind) : FWatch(watch), FKind(kind), FLink(watch.Add(kind)) {}
  void Host(const std::string& host) {
    std::lock_guard lock(FMutex);
    FHost = host;
    FWatch.Rename(FLink, FKind + " " + FHost + ":" + FPort);
  }
  void Port(const std::string& port) {
    std::lock_guard lock(FMutex);
    FPort = port;
    FWatch.Rename(FLink, FKind + " " + FHost + ":" + FPort);
  }
  size_t Link() const { return FLink; }

 private:
  TLinkWatch& FWatch;
  const std::string FKind;
  const size_t FLink;
  std::mutex FMutex;
  std::string FHost, FPort;
};

class TWatchedSerial final : public nchost::TCommCtrl {
 public:
  TWatchedSerial(std::unique_ptr<nchost::TCommCtrl> inner, std::shared_ptr<TLinkWatch> watch)
      : FInner(std::move(inner)), FWatch(std::move(watch)), FLink(FWatch->Add("serial port")) {}

  void SetPort(int32_t port) override {
    FInner->SetPort(port);
    FWatch->Rename(FLink, Name(port));
  }
  void SetSettings(const std::string& settings) override { FInner->SetSettings(settings); }
  bool SetActive(bool active) override {
    const bool open = FInner->SetActive(active);
    if (active && !open)
      FWatch->Failed(FLink, LastErrorOf<refhost::TPosixSerialPort>(*FInner, "the port did not open"));
    return open;
  }
  bool GetActive() override { return FInner->GetActive(); }
  std::string Read(size_t maxBytes) override {
    std::string bytes = FInner->Read(maxBytes);
    FWatch->Received(FLink, bytes);
    return bytes;
  }
  int Write(const std::string& data) override {
    const int written = FInner->Write(data);
    if (written > 0) FWatch->Sent(FLink, data.substr(0, static_cast<size_t>(written)));
    if (written < 0) FWatch->Failed(FLink, LastErrorOf<refhost::TPosixSerialPort>(*FInner, "a write failed"));
    return written;
  }

 private:
  std::string Name(int32_t port) {
    std::string name = "serial port " + std::to_string(port);
    if (auto* posix = dynamic_cast<refhost::TPosixSerialPort*>(FInner.get())) {
      const std::string path = posix->DevicePath();
      name += path.empty() ? " (mapped to no device)" : " (" + path + ")";
    }
    return name;
  }

  const std::unique_ptr<nchost::TCommCtrl> FInner;
  const std::shared_ptr<TLinkWatch> FWatch;
  const size_t FLink;
};

class TWatchedTcp final : public nchost::TVqTcpClient {
 public:
  TWatchedTcp(std::unique_ptr<nchost::TVqTcpClient> inner, std::shared_ptr<TLinkWatch> watch)
      : FInner(std::move(inner)), FWatch(std::move(watch)), FEndpoint(*FWatch, "TCP") {}

  void SetRemoteHost(const std::string& host) override {
    FInner->SetRemoteHost(host);
    FEndpoint.Host(host);
  }
  void SetRemotePort(const std::string& port) override {
    FInner->SetRemotePort(port);
    FEndpoint.Port(port);
  }
  bool Connect(int32_t timeoutMs) override {
    const bool connected = FInner->Connect(timeoutMs);
    if (!connected)
      FWatch->Failed(FEndpoint.Link(), LastErrorOf<refhost::TPosixTcpClient>(*FInner, "the connection failed"));
    return connected;
  }
  void Disconnect() override { FInner->Disconnect(); }
  bool Connected() override { return FInner->Connected(); }
  bool WaitForData(int32_t timeoutMs) override { return FInner->WaitForData(timeoutMs); }
  std::string Receive(size_t maxBytes) override {
    std::string bytes = FInner->Receive(maxBytes);
    FWatch->Received(FEndpoint.Link(), bytes);
    return bytes;
  }
  int Send(const std::string& data) override {
    const int sent = FInner->Send(data);
    if (sent > 0) FWatch->Sent(FEndpoint.Link(), data.substr(0, static_cast<size_t>(sent)));
    if (sent < 0) FWatch->Failed(FEndpoint.Link(), LastErrorOf<refhost::TPosixTcpClient>(*FInner, "not connected"));
    return sent;
  }

 private:
  const std::unique_ptr<nchost::TVqTcpClient> FInner;
  const std::shared_ptr<TLinkWatch> FWatch;
  TEndpoint FEndpoint;
};

class TWatchedUdp final : public nchost::TUDPClient {
 public:
  TWatchedUdp(std::unique_ptr<nchost::TUDPClient> inner, std::shared_ptr<TLinkWatch> watch)
      : FInner(std::move(inner)), FWatch(std::move(watch)), FEndpoint(*FWatch, "UDP") {}

  void SetRemoteHost(const std::string& host) override {
    FInner->SetRemoteHost(host);
    FEndpoint.Host(host);
  }
  void SetRemotePort(int32_t port) override {
    FInner->SetRemotePort(port);
    FEndpoint.Port(std::to_string(port));
  }
  bool Open() override {
    const bool open = FInner->Open();
    if (!open)
      FWatch->Failed(FEndpoint.Link(), LastErrorOf<refhost::TPosixUdpClient>(*FInner, "the socket did not open"));
    return open;
  }
  void Close() override { FInner->Close(); }
  bool Active() override { return FInner->Active(); }
  int Send(const std::string& datagram) override {
    const int sent = FInner->Send(datagram);
    if (sent > 0) FWatch->Sent(FEndpoint.Link(), datagram.substr(0, static_cast<size_t>(sent)));
    if (sent < 0) FWatch->Failed(FEndpoint.Link(), LastErrorOf<refhost::TPosixUdpClient>(*FInner, "a send failed"));
    return sent;
  }
  std::string Receive(int32_t timeoutMs) override {
    std::string datagram = FInner->Receive(timeoutMs);
    FWatch->Received(FEndpoint.Link(), datagram);
    return datagram;
  }

 private:
  const std::unique_ptr<nchost::TUDPClient> FInner;
  const std::shared_ptr<TLinkWatch> FWatch;
  TEndpoint FEndpoint;
};

}  // namespace

std::unique_ptr<nchost::TCommCtrl> TWatchedTransports::CreateCommCtrl() {
  auto inner = FInner->CreateCommCtrl();
  if (!inner) return nullptr;
  return std::make_unique<TWatchedSerial>(std::move(inner), FWatch);
}

std::unique_ptr<nchost::TVqTcpClient> TWatchedTransports::CreateTcpClient() {
  auto inner = FInner->CreateTcpClient();
  if (!inner) return nullptr;
  return std::make_unique<TWatchedTcp>(std::move(inner), FWatch);
}

std::unique_ptr<nchost::TUDPClient> TWatchedTransports::CreateUdpClient() {
  auto inner = FInner->CreateUdpClient();
  if (!inner) return nullptr;
  return std::make_unique<TWatchedUdp>(std::move(inner), FWatch);
}

}  // namespace laserctl
