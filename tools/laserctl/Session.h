// One run of laserctl: the reference host's services, the plug-in, the laser and, with --sim, its simulator,
// set up in order, the commands run, and everything taken down in reverse order: the laser is destroyed (switched
// off, its threads joined) before the simulator stops, and the plug-in is unloaded and closed last.
#pragma once

#include <memory>
#include <string>

#include "AlarmBook.h"
#include "CommandLine.h"
#include "Commands.h"
#include "EcatBusSim.h"
#include "LaserSimulator.h"
#include "LinkWatch.h"
#include "PluginLibrary.h"
#include "Printer.h"
#include "StopSignals.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/modbus/ModbusCtrlExtIO.h"
#include "refhost/transport/PosixTransports.h"

namespace laserctl {

class TSession {
 public:
  explicit TSession(TOptions options);
  ~TSession();
  TSession(const TSession&) = delete;
  TSession& operator=(const TSession&) = delete;

  // Runs everything; returns the exit status.
  int Run();

 private:
  struct TConfigDeleter {
    const devlaser::TDevLaserApi* Api;  // set whenever a tree is held
    void operator()(nchost::TXmlSubConfig* config) const { Api->FreeConfig(config); }
  };

  bool SetUpHost();
  bool SetUpModbusIo();
  std::shared_ptr<nchost::ICtrlExtIO> LaserIO() const;
  bool LoadPlugin();
  int RunWithPlugin(const TCommandList& commands);
  bool PrepareLaserSource();
  bool StartSimulator();
  void CreateLaser();
  void CheckSimulatorMatches();
  // Warns, and returns true, when the configured model selected no family and the default laser was built.
  bool ReportModelFallback();
  // Waits, within --link-wait, for the laser to answer on the link it opened; false (reported) when it never did
  // or a stop signal came. A laser that opened no link (hard-wired) passes at once, and so does any laser with
  // --link-wait 0.
  bool AwaitLink();
  bool RunCommands(const TCommandList& commands);
  void TearDown();

  void Report(int msgType, const std::string& text);
  // laserctl's own operator messages are Chinese when the environment asks for it and no --locale decides.
  bool OperatorReadsChinese() const;

  const TOptions FOptions;
  TPrinter FPrinter;
  TStopSignals FStop;
  std::shared_ptr<refhost::TMessageSink> FSink;
  refhost::TRefApp FApp;
  std::shared_ptr<refhost::TPosixTransports> FTransports;
  std::shared_ptr<TLinkWatch> FLinkWatch;  // sees every link the laser opens through the host's transports
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO;
  std::shared_ptr<refhost::TModbusCtrlExtIO> FModbusIO;  // --io modbus-tcp://...: the laser's IO instead of FIO

  std::unique_ptr<TPluginLibrary> FPlugin;
  bool FPluginLoaded = false;  // Load succeeded, so Unload is owed
  std::unique_ptr<TLaserSimulator> FSimulator;
  std::unique_ptr<TEcatBusSim> FEcatSim;
  std::unique_ptr<nchost::TXmlSubConfig, TConfigDeleter> FConfig;
  std::unique_ptr<devlaser::TLaserParams> FParams;  // --params, or the default laser in debug mode
  devlaser::TLaserParams FUsedParams;
  std::shared_ptr<nchost::INcLaser30> FLaser;
  TAlarmBook FAlarms;
};

}  // namespace laserctl
