#include "Session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "CommandRunner.h"
#include "ConfigFile.h"
#include "IoBackend.h"
#include "LocaleChoice.h"
#include "LogSinks.h"
#include "ParamsJson.h"
#include "SimTarget.h"
#include "WatchedTransports.h"
#include "host/HostDefs.h"
#include "refhost/IniLocaleResource.h"

namespace laserctl {
namespace {

constexpr const char* kCategory = "laserctl";

// A log file that cannot be opened is reported on standard error and the run goes on without it.
std::shared_ptr<refhost::TMessageSink> MakeSink(const TOptions& options) {
  std::string error;
  if (auto sink = MakeLaserctlSink(options.Json, options.Debug, options.LogFile, error)) return sink;
  std::fprintf(stderr, "%s laserctl: %s; logging to standard error only\n", WallClockStamp().c_str(), error.c_str());
  return MakeLaserctlSink(options.Json, options.Debug, "", error);
}

}  // namespace

TSession::TSession(TOptions options)
    : FOptions(std::move(options)), FPrinter(FOptions.Json), FSink(MakeSink(FOptions)), FApp(FSink) {}

TSession::~TSession() { TearDown(); }

void TSession::Report(int msgType, const std::string& text) { FApp.LogMsg(text, msgType, kCategory); }

bool TSession::OperatorReadsChinese() const { return EnvironmentAsksForChinese() && FOptions.LocaleFile.empty(); }

int TSession::Run() {
  // Every word is checked before anything is loaded or switched: one mistake and nothing runs.
  const TCommandList commands = ParseCommands(FOptions.Words);
  for (const auto& error : commands.Errors) Report(nchost::msgtype::kError, error.Text);
  if (!commands.Errors.empty()) return kExitSetupFailed;

  if (!SetUpHost() || !LoadPlugin()) return kExitSetupFailed;
  const int status = RunWithPlugin(commands);
  TearDown();
  return status;
}

bool TSession::SetUpHost() {
  FTransports = std::make_shared<refhost::TPosixTransports>(
      [this](const std::string& line) { FApp.LogMsg(line, nchost::msgtype::kCommLog, "Transport"); });
  for (const auto& assignment : FOptions.SerialPorts) {
    std::string error;
    if (!FTransports->SerialPorts().SetFromText(assignment, &error)) {
      Report(nchost::msgtype::kError, "--serial " + assignment + ": " + error);
      return false;
    }
  }
  TLinkWatch::TTrace trace;
  if (FOptions.TraceIo)
    trace = [this](const std::string& line) { FApp.LogMsg(line, nchost::msgtype::kCommLog, "Trace IO"); };
  FLinkWatch = std::make_shared<TLinkWatch>(std::move(trace));
  FApp.SetTransports(std::make_shared<TWatchedTransports>(FTransports, FLinkWatch));
  if (!FOptions.HostDir.empty()) FApp.SetExeDir(FOptions.HostDir);

  if (FOptions.Io != kSimIo) return SetUpModbusIo();
  FIO = std::make_shared<refhost::TSimCtrlExtIO>();
  FIO->SetPrintSink(FSink, "IO");
  for (const auto& input : FOptions.Inputs) {
    if (!FIO->GetInPortExist(input.Port)) {
      Report(nchost::msgtype::kError, "--input " + std::to_string(input.Port) +
                                          ": the simulated IO extension has no such input (it has inputs 1 to 64)");
      return false;
    }
    FIO->SetInput(input.Port, input.Value);
  }
  return true;
}

bool TSession::SetUpModbusIo() {
  if (!FOptions.Inputs.empty()) {
    Report(nchost::msgtype::kError,
           "--input sets inputs of the simulated IO extension; an IO module's inputs are "
           "read from the module");
    return false;
  }
  std::string error;
  FModbusIO = OpenModbusIo(FOptions.Io, FSink, FSink, error);
  if (!FModbusIO) {
    Report(nchost::msgtype::kError, error);
    return false;
  }
  Report(nchost::msgtype::kInformation, "IO extension: Modbus TCP IO module " + FModbusIO->Options().Address());
  return true;
}

std::shared_ptr<nchost::ICtrlExtIO> TSession::LaserIO() const {
  if (FModbusIO) return FModbusIO;
  return FIO;
}

bool TSession::LoadPlugin() {
  std::string error;
  const std::string path = TPluginLibrary::Locate(FOptions.LibFile, refhost::TRefApp::ExecutableDir(), error);
  if (path.empty()) {
    Report(nchost::msgtype::kError, error);
    return false;
  }
  FPlugin = TPluginLibrary::Open(path, error);
  if (!FPlugin) {
    Report(nchost::msgtype::kError, error);
    return false;
  }
  Report(nchost::msgtype::kTrace, "plug-in " + FPlugin->Path());
  if (!FPlugin->Api().Load(&FApp)) {
    Report(nchost::msgtype::kError, "the laser plug-in " + FPlugin->Path() + " could not start (see its log above)");
    return false;
  }
  FPluginLoaded = true;

  const std::string localeFile = ChooseLocaleFile(FOptions.LocaleFile, refhost::TRefApp::ExecutableDir());
  if (!localeFile.empty()) {
    auto locale = std::make_shared<refhost::TIniLocaleResource>();
    std::string localeError;
    if (locale->Load(localeFile, localeError))
      FApp.SetLocale(std::move(locale));  // runs the plug-in's locale procedure: its texts are reloaded
    else
      Report(nchost::msgtype::kWarning, localeError + "; operator messages keep their built-in texts");
  }
  return true;
}

int TSession::RunWithPlugin(const TCommandList& commands) {
  if (!PrepareLaserSource()) return kExitSetupFailed;
  if (FOptions.Sim && !StartSimulator()) return kExitSetupFailed;
  if (!FEcatSim && HasEcatSlaveSettings(FOptions))
    Report(nchost::msgtype::kWarning, "--ecat-alarm and --ecat-status need --sim and a laser on the EtherCAT bus");
  CreateLaser();
  if (!FLaser) {
    Report(nchost::msgtype::kError, "the plug-in created no laser");
    return kExitSetupFailed;
  }
  if (FOptions.Debug) Report(nchost::msgtype::kTrace, "parameters used: " + ParamsToJson(FUsedParams));
  if (FOptions.Sim) CheckSimulatorMatches();
  const bool fellBack = ReportModelFallback();
  if (!AwaitLink()) return FStop.Stopped() ? kExitInterrupted : kExitCommandFailed;
  FLaser->RegisterAlarms(FAlarms);
  const bool allRan = RunCommands(commands);
  if (FStop.Stopped()) return kExitInterrupted;
  return allRan && !fellBack ? kExitOk : kExitCommandFailed;
}

bool TSession::PrepareLaserSource() {
  const devlaser::TDevLaserApi& api = FPlugin->Api();
  if (!FOptions.ConfigFile.empty()) {
    FConfig = std::unique_ptr<nchost::TXmlSubConfig, TConfigDeleter>(api.NewConfig(), TConfigDeleter{&api});
    if (!FConfig) {
      Report(nchost::msgtype::kError, "the plug-in gave no configuration tree");
      return false;
    }
    if (!LoadConfigFile(*FConfig, FOptions.ConfigFile, refhost::ReportToApp(FApp, "Config"))) return false;
    if (FOptions.Debug) FConfig->SetBool("DebugMode", true);
    return true;
  }
  if (!FOptions.ParamsFile.empty()) {
    FParams = std::make_unique<devlaser::TLaserParams>();
    if (!LoadParamsJson(FOptions.ParamsFile, *FParams, refhost::ReportToApp(FApp, "Params"))) return false;
  } else if (FOptions.Debug) {
    // What the plug-in makes of no configuration, with its debug traces on.
    FParams = std::make_unique<devlaser::TLaserParams>();
    FParams->Model = "Default";
  }
  if (FParams && FOptions.Debug) FParams->DefParams.DebugMode = true;
  return true;
}

bool TSession::StartSimulator() {
  TSimTarget target;
  if (FConfig)
    target = SimTargetFromConfig(*FConfig);
  else if (FParams)
    target = SimTargetFromParams(*FParams);
  if (!target.HasSimulator) return true;  // said after creation, when the laser's link is known
  target.HostDir = FApp.ExeDir();
  if (target.Link == TSimLink::Ethercat) {
    TEcatSlaveSettings settings;
    std::string error;
    if (!EcatSlaveSettingsFrom(FOptions, settings, error)) {
      Report(nchost::msgtype::kError, error);
      return false;
    }
    FEcatSim = std::make_unique<TEcatBusSim>(target, settings, FApp, FSink);
    Report(nchost::msgtype::kInformation, FEcatSim->Description());
    return true;
  }

  FSimulator = std::make_unique<TLaserSimulator>();
  if (FOptions.Debug)
    FSimulator->SetTrace([this](const std::string& line) { FApp.LogMsg(line, nchost::msgtype::kTrace, "Sim"); });
  std::string error;
  if (!FSimulator->Start(target, error)) {
    Report(nchost::msgtype::kError, error);
    FSimulator.reset();
    return false;
  }
  if (target.Link == TSimLink::Serial) {
    if (!FOptions.SerialPorts.empty() && !FTransports->SerialPorts().PathFor(target.SerialPort).empty())
      Report(nchost::msgtype::kTrace, "serial port " + std::to_string(target.SerialPort) + " now opens the simulator");
    FTransports->SerialPorts().Set(target.SerialPort, FSimulator->SerialPath());
    Report(nchost::msgtype::kInformation, "simulated " + target.Family + " laser on serial port " +
                                              std::to_string(target.SerialPort) + " (" + FSimulator->SerialPath() +
                                              ")");
    return true;
  }
  if (FSimulator->TcpHost() != target.Host) {
    Report(nchost::msgtype::kWarning, "cannot listen on the configured address " + target.Host +
                                          "; the laser is pointed at the simulator on " + FSimulator->TcpHost());
    if (FConfig) RedirectTcpHost(*FConfig, FSimulator->TcpHost());
    if (FParams) RedirectTcpHost(*FParams, FSimulator->TcpHost());
  }
  Report(nchost::msgtype::kInformation, "simulated " + target.Family + " laser listening on " + FSimulator->TcpHost() +
                                            ":" + std::to_string(target.Port));
  return true;
}

void TSession::CreateLaser() {
  const devlaser::TDevLaserApi& api = FPlugin->Api();
  if (FParams) {
    FLaser = api.CreateLaserFromParams(*FParams, LaserIO());
    FUsedParams = *FParams;
  } else {
    FLaser = api.CreateLaserFromConfig(FConfig.get(), LaserIO(), &FUsedParams);
  }
}

void TSession::CheckSimulatorMatches() {
  const TSimTarget actual = SimTargetFromParams(FUsedParams);
  if (actual.Link == TSimLink::None) return;  // a hard-wired laser: there is nothing to simulate
  if (!FSimulator && !FEcatSim) {
    Report(nchost::msgtype::kWarning, "there is no simulator for " + actual.Family + " lasers over " +
                                          SimLinkName(actual.Link) + " yet; the laser talks to its configured link");
  } else if (!actual.HasSimulator) {
    Report(nchost::msgtype::kWarning, "the simulator runs, but the plug-in built a " + actual.Family + " laser over " +
                                          SimLinkName(actual.Link) + ", which does not talk to it");
  }
}

bool TSession::ReportModelFallback() {
  // The plug-in finds a family by the first model key that contains the configured model; a model that none
  // contains, with no family set, gets the default laser, which is rarely what the operator meant.
  const devlaser::TDevLaserQuery* query = FPlugin->Query();
  const std::string& model = FUsedParams.Model;
  if (query == nullptr || model.empty() || FUsedParams.LaserMainType != devlaser::eltNone) return false;
  for (const auto& registration : query->Registrations())
    if (!registration.ModelKey.empty() && registration.ModelKey.find(model) != std::string::npos) return false;
  Report(nchost::msgtype::kWarning,
         OperatorReadsChinese()
             ? "未知的激光器型号 \"" + model + "\"，使用默认激光器（laserctl --list-models 列出所有型号）"
             : "unknown laser model \"" + model +
                   "\": the default laser is used instead (laserctl --list-models lists the models)");
  return true;
}

bool TSession::AwaitLink() {
  if (!FLinkWatch->HasLinks() || FOptions.LinkWaitSeconds <= 0) return true;
  const auto start = std::chrono::steady_clock::now();
  const auto deadline = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                    std::chrono::duration<double>(FOptions.LinkWaitSeconds));
  // Stop signals are taken between short waits: the link's first answer ends the wait at once, Ctrl-C within
  // a tenth of a second.
  while (!FLinkWatch->Up()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    if (FLinkWatch->WaitUp(std::min(left, std::chrono::milliseconds(100)))) break;
    if (FStop.Poll()) {
      Report(nchost::msgtype::kInformation, "stopped by a signal; the laser is switched off and destroyed");
      return false;
    }
  }
  if (FLinkWatch->Up()) {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    Report(nchost::msgtype::kTrace, "the laser answered on its link after " + std::to_string(ms.count()) + " ms");
    return true;
  }
  // Named in the operator's language; the reasons are the system's own texts.
  const bool chinese = OperatorReadsChinese();
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%g", FOptions.LinkWaitSeconds);
  std::string text;
  for (const auto& link : FLinkWatch->Links()) {
    const std::string why = !link.Failure.empty() ? link.Failure
                            : chinese             ? "已打开，但激光器无应答"
                                                  : "open, but the laser never answered";
    text += (text.empty() ? "" : "; ") +
            (chinese ? "激光器的通信链路 " + link.Name + " 在 " + seconds + " 秒内未建立（" + why + "）"
                     : "the laser's link " + link.Name + " never came up within " + seconds + " s (" + why + ")");
  }
  Report(nchost::msgtype::kError,
         text + (chinese ? "；命令未执行，激光器已关闭" : "; no command ran, the laser is switched off"));
  return false;
}

bool TSession::RunCommands(const TCommandList& commands) {
  TCommandRunner runner(FPlugin->Api(), *FLaser, FAlarms, FPrinter, FStop,
                        [this](int msgType, const std::string& text) { Report(msgType, text); });
  FPrinter.StartClock();
  bool allRan = true;
  for (const auto& command : commands.Commands) {
    if (FStop.Poll()) break;
    if (!runner.Run(command)) allRan = false;
  }
  if (FStop.Stopped()) {
    Report(nchost::msgtype::kInformation, "stopped by a signal; the laser is switched off and destroyed");
    return false;
  }
  return allRan;
}

void TSession::TearDown() {
  if (!FPlugin) return;
  // The laser first: the library switches it off and joins its threads while the simulator still answers.
  FLaser.reset();
  if (FPluginLoaded) FPlugin->Api().DestroyLaser();
  if (FSimulator) FSimulator->Stop();
  if (FModbusIO) FModbusIO->Stop();  // every mapped output off on the module
  FEcatSim.reset();
  FConfig.reset();
  if (FPluginLoaded) FPlugin->Api().Unload();
  FPluginLoaded = false;
  FPlugin.reset();
}

}  // namespace laserctl
