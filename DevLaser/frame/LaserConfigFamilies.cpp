#include "frame/LaserConfigFamilies.h"

#include <algorithm>
#include <charconv>

namespace devlaser {

// Every constructor declares its keys through its own class's Initialize (a qualified call: no virtual dispatch
// happens during construction), so keys and defaults are written down once, in the key lists of the header.

// ---- analogue and PWM outputs ------------------------------------------------------------------------------------

TLaserDAConfig::TLaserDAConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TLaserDAConfig::Initialize();
}

void TLaserDAConfig::Initialize(){DEVLASER_CONFIG_DEFINES(DEVLASER_DA_KEYS)}

TLaserPwmConfig::TLaserPwmConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TLaserPwmConfig::Initialize();
}

void TLaserPwmConfig::Initialize() {
  DefineKey("DynamicPwm", false, /*xmlAttribute=*/true);
  DEVLASER_CONFIG_DEFINES(DEVLASER_PWM_KEYS)
}

// ---- serial families ---------------------------------------------------------------------------------------------

TLaserCommConfig::TLaserCommConfig(nchost::TXmlSubConfig* parent, std::string nodeName, std::string defaultCommSettings)
    : TLaserConfigNode(parent, std::move(nodeName)), FDefaultCommSettings(std::move(defaultCommSettings)) {
  TLaserCommConfig::Initialize();
}

void TLaserCommConfig::Initialize() { DEVLASER_CONFIG_DEFINES(DEVLASER_COMM_KEYS) }

namespace {
std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}
}  // namespace

int32_t TLaserCommConfig::GetBaudrate() const {
  const std::string settings = CommSettings();
  std::string_view field = Trim(std::string_view(settings).substr(0, settings.find(',')));
  int32_t baudrate = 0;
  auto [end, ec] = std::from_chars(field.data(), field.data() + field.size(), baudrate);
  if (ec != std::errc() || end != field.data() + field.size()) return 0;
  return baudrate;
}

void TLaserCommConfig::SetBaudrate(int32_t baudrate) {
  const std::string settings = CommSettings();
  const size_t comma = settings.find(',');
  const std::string rest = comma == std::string::npos ? std::string() : settings.substr(comma);
  SetCommSettings(std::to_string(baudrate) + rest);
}

TIPGYLS2000Config::TIPGYLS2000Config(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TIPGYLS2000Config::Initialize();
}

void TIPGYLS2000Config::Initialize(){DEVLASER_CONFIG_DEFINES(DEVLASER_IPG_YLS2000_KEYS)}

TLaserIPGConfig::TLaserIPGConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "57600,n,8,1"),
      FYLS2000(AddSubConfig<TIPGYLS2000Config>(kYLS2000Node)) {
  TLaserIPGConfig::Initialize();
}

void TLaserIPGConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DEVLASER_CONFIG_DEFINES(DEVLASER_IPG_KEYS)
  FYLS2000->Initialize();
}

bool TLaserIPGConfig::IsYLR() const { return Model().find("YLR") != std::string::npos; }
bool TLaserIPGConfig::IsYLS() const { return Model().find("YLS") != std::string::npos; }

bool TLaserIPGConfig::UseComm() const {
  if (!UseTcp() && CommPort() < 1) return false;
  return IsYLR();
}

TRaycusLaserConfig::TRaycusLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "9600,n,8,1") {
  TRaycusLaserConfig::Initialize();
}

void TRaycusLaserConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DefineKey("Type", std::string(), /*xmlAttribute=*/true);
  DEVLASER_CONFIG_DEFINES(DEVLASER_RAYCUS_KEYS)
}

TSPILaserConfig::TSPILaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "19200,e,8,1") {
  TSPILaserConfig::Initialize();
}

void TSPILaserConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DEVLASER_CONFIG_DEFINES(DEVLASER_MODEL_KEYS)
}

TMaxLaserConfig::TMaxLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "115200,n,8,1") {
  TMaxLaserConfig::Initialize();
}

void TMaxLaserConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DEVLASER_CONFIG_DEFINES(DEVLASER_MODEL_KEYS)
}

TGSILaserConfig::TGSILaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "9600,n,8,1") {
  TGSILaserConfig::Initialize();
}

void TGSILaserConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DefineKey<int32_t>("Address", 0);
}

uint8_t TGSILaserConfig::Address() const {
  return static_cast<uint8_t>(std::clamp<int32_t>(Value<int32_t>("Address"), 0, 255));
}

TQYLaserConfig::TQYLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "38400,n,8,1") {
  TQYLaserConfig::Initialize();
}

void TQYLaserConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DEVLASER_CONFIG_DEFINES(DEVLASER_DAPORT_KEYS)
}

TQingHuaLaserConfig::TQingHuaLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "57600,n,8,1") {
  TQingHuaLaserConfig::Initialize();
}

void TQingHuaLaserConfig::Initialize() {
  TLaserCommConfig::Initialize();
  DEVLASER_CONFIG_DEFINES(DEVLASER_DAPORT_KEYS)
}

TMarsLaserConfig::TMarsLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "9600,n,8,1") {}

TNLightLaserConfig::TNLightLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "9600,n,8,1") {}

TCASLaserConfig::TCASLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserCommConfig(parent, std::move(nodeName), "9600,n,8,1") {}

// ---- hard-wired and network families -----------------------------------------------------------------------------

TRofinLaserConfig::TRofinLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TRofinLaserConfig::Initialize();
}

void TRofinLaserConfig::Initialize(){DEVLASER_CONFIG_DEFINES(DEVLASER_ROFIN_KEYS)}

TCO2LaserConfig::TCO2LaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TCO2LaserConfig::Initialize();
}

void TCO2LaserConfig::Initialize(){DEVLASER_CONFIG_DEFINES(DEVLASER_CO2_KEYS)}

TMeimanLaserConfig::TMeimanLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TMeimanLaserConfig::Initialize();
}

void TMeimanLaserConfig::Initialize(){DEVLASER_CONFIG_DEFINES(DEVLASER_MEIMAN_KEYS)}

TZorunLaserConfig::TZorunLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)) {
  TZorunLaserConfig::Initialize();
}

void TZorunLaserConfig::Initialize() { DEVLASER_CONFIG_DEFINES(DEVLASER_ZORUN_KEYS) }

}  // namespace devlaser
