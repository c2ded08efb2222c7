// The host's application object: operator messages, log lines, locale, threads, transports and other services
// that a plug-in reaches the outside world through.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Ecat.h"
#include "HostDefs.h"
#include "Locale.h"
#include "Logger.h"
#include "SuperObject.h"
#include "Transports.h"

namespace nchost {

class NCHOST_API TAppSystem {
 public:
  virtual ~TAppSystem() = default;

  // An operator message (message type 2 information, 5 warning, 7 error), with an optional display colour.
  virtual void ShowMsg(const std::string& msg, int msgType, uint32_t color = 0) = 0;
  // A log line with its message type and category.
  virtual void LogMsg(const std::string& msg, int msgType, const std::string& category) = 0;

  // Registers a procedure that the host runs whenever the user's language is set or changed. The returned
  // handle unregisters it; a plug-in unregisters before it is unloaded.
  virtual int RegisterLocaleProc(std::function<void()> proc) = 0;
  virtual void UnregisterLocaleProc(int handle) = 0;
  // The current locale resource, or null when none is loaded.
  virtual const TVqLocaleResource* Locale() const = 0;

  // The folder of the host's executable (description files are found there), ending without a separator.
  virtual std::string ExeDir() const = 0;
  // When true, lasers report the states they commanded instead of what the laser last reported.
  virtual bool TrustCachedLaserStates() const = 0;

  // Names the calling thread for debuggers and process listings.
  virtual void SetThreadName(const std::string& name) = 0;

  // The host's own logger (null when there is none), and a new logger of the given category.
  virtual TCodeSiteLogger* CSLog() = 0;
  virtual std::unique_ptr<TCodeSiteLogger> CreateLogger(const std::string& category) = 0;

  // The IO-extension port of device `index` of a kind (1 is PWM), and the host's text for a port.
  virtual uint8_t DeviceToPort(int32_t index, int32_t kind) = 0;
  virtual std::string PortToStr(uint8_t port) = 0;

  // Communication clients.
  virtual std::unique_ptr<TCommCtrl> CreateCommCtrl() = 0;
  virtual std::unique_ptr<TVqTcpClient> CreateTcpClient() = 0;
  virtual std::unique_ptr<TUDPClient> CreateUdpClient() = 0;
  virtual std::unique_ptr<TIcmpClient> CreateIcmpClient() = 0;

  // JSON: an empty object, or the parsed text (null, with `error` set, when it is not valid JSON).
  virtual std::shared_ptr<ISuperObject> CreateJsonObject() = 0;
  virtual std::shared_ptr<ISuperObject> ParseJson(const std::string& text, std::string& error) = 0;

  // The EtherCAT real-time system, or null when the controller has none.
  virtual IEcatSystem* EcatSystem() = 0;
};

}  // namespace nchost
