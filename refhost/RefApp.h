// The reference host's application object: where a plug-in's operator messages and log lines go, its locale,
// thread names, loggers, JSON objects, communication clients and the EtherCAT system.
//
// Port mapping: device `index` (counted from 0) of any kind is IO-extension port index + 1, so PWM channel 0 is
// PWM port 1; an index outside 0..254 has no port (0). A port's text is its decimal number ("5").
//
// Locale procedures run when SetLocale or RunLocaleProcs is called, on the calling thread, in the order they were
// registered; registering one does not run it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/AppSystem.h"
#include "refhost/MessageSink.h"
#include "refhost/RefLogger.h"
#include "refhost/TransportFactory.h"

namespace refhost {

class TRefApp : public nchost::TAppSystem {
 public:
  // Entries go to `sink`; by default to standard error as text lines.
  explicit TRefApp(std::shared_ptr<TMessageSink> sink = nullptr);

  // Configuration by the program -----------------------------------------------------------------------------
  void SetSink(std::shared_ptr<TMessageSink> sink);
  std::shared_ptr<TMessageSink> Sink() const { return FSink->Get(); }
  // Replaces the locale resource (null: none) and runs every registered locale procedure. The previous resource
  // is released here, so a pointer from Locale() is good until the next SetLocale: read it in a locale procedure.
  void SetLocale(std::shared_ptr<const nchost::TVqLocaleResource> locale);
  void RunLocaleProcs();
  size_t LocaleProcCount() const;
  // A trailing separator is dropped.
  void SetExeDir(std::string dir);
  void SetTrustCachedLaserStates(bool trust);
  void SetTransports(std::shared_ptr<ITransportFactory> transports);
  void SetEcatSystem(std::shared_ptr<nchost::IEcatSystem> ecat);
  // The host's own logger (category "Host"), enabled from the start.
  TRefLogger& HostLogger() { return FHostLogger; }

  // TAppSystem -------------------------------------------------------------------------------------------------
  void ShowMsg(const std::string& msg, int msgType, uint32_t color = 0) override;
  void LogMsg(const std::string& msg, int msgType, const std::string& category) override;
  int RegisterLocaleProc(std::function<void()> proc) override;
  void UnregisterLocaleProc(int handle) override;
  const nchost::TVqLocaleResource* Locale() const override;
  std::string ExeDir() const override;
  bool TrustCachedLaserStates() const override;
  // Names longer than the system's 15 bytes are cut at a character boundary.
  void SetThreadName(const std::string& name) override;
  nchost::TCodeSiteLogger* CSLog() override { return &FHostLogger; }
  std::unique_ptr<nchost::TCodeSiteLogger> CreateLogger(const std::string& category) override;
  uint8_t DeviceToPort(int32_t index, int32_t kind) override;
  std::string PortToStr(uint8_t port) override;
  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override;
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override;
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override;
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override;
  std::shared_ptr<nchost::ISuperObject> CreateJsonObject() override;
  std::shared_ptr<nchost::ISuperObject> ParseJson(const std::string& text, std::string& error) override;
  nchost::IEcatSystem* EcatSystem() override;

  // The folder of the running executable, from /proc/self/exe; empty when it cannot be read.
  static std::string ExecutableDir();

 private:
  std::shared_ptr<ITransportFactory> Transports(const char* client);

  const std::shared_ptr<TSinkSlot> FSink;
  TRefLogger FHostLogger;

  mutable std::mutex FMutex;
  std::map<int, std::function<void()>> FLocaleProcs;  // by handle, handles rising in registration order
  int FNextLocaleHandle = 1;
  std::shared_ptr<const nchost::TVqLocaleResource> FLocale;
  std::string FExeDir;
  bool FTrustCachedLaserStates = false;
  std::shared_ptr<ITransportFactory> FTransports;
  std::shared_ptr<nchost::IEcatSystem> FEcat;
};

}  // namespace refhost
