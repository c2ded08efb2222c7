#include "frame/LaserConfig.h"

#include "frame/TextCompare.h"

namespace devlaser {

TLaserConfig::TLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName)
    : TLaserConfigNode(parent, std::move(nodeName)),
      FDA(AddSubConfig<TLaserDAConfig>(kDANode)),
      FPwm(AddSubConfig<TLaserPwmConfig>(kPwmNode)) {
  TLaserConfig::Initialize();
}

void TLaserConfig::Initialize() {
  DEVLASER_CONFIG_DEFINES(DEVLASER_ROOT_KEYS)
  FDA->Initialize();
  FPwm->Initialize();
}

nchost::TXmlSubConfig* TLaserConfig::SubConfigForLoad(const std::string& name) {
  if (TXmlSubConfig* existing = FindSubConfig(name)) return existing;
  using TGetter = nchost::TXmlSubConfig& (*)(TLaserConfig&);
  static const std::pair<const char*, TGetter> kFamilies[] = {
      {"CO2", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetCO2Config(); }},
      {"IPG", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetIPGConfig(); }},
      {"GSI", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetGSIConfig(); }},
      {"MaxSZ", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetMaxSZConfig(); }},
      {"Meiman", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetMeimanConfig(); }},
      {"Qinghua", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetQingHuaConfig(); }},
      {"QYZ", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetQYZConfig(); }},
      {"Raycus", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetRaycusConfig(); }},
      {"Rofin", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetRofinConfig(); }},
      {"SPI", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetSPIConfig(); }},
      {"CAS", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetCASConfig(); }},
      {"MARS", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetMarsConfig(); }},
      {"NLight", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetNLightConfig(); }},
      {"Zorun", [](TLaserConfig& c) -> TXmlSubConfig& { return c.GetZorunConfig(); }},
  };
  for (const auto& [familyName, getter] : kFamilies)
    if (name == familyName) return &getter(*this);
  return nullptr;
}

bool TLaserConfig::IsCO2() const { return ContainsText(Model(), "CO2"); }
bool TLaserConfig::IsIPG() const { return ContainsText(Model(), "IPG"); }
bool TLaserConfig::IsYAG() const { return SameText(Model(), "YAG"); }

std::string TLaserConfig::GetBrand() const {
  const std::string brand = Brand();
  const std::string model = Model();
  // A laser configured as "Default" is a plain hard-wired source of whatever maker the brand names.
  if (!brand.empty() && (SameText(model, "Default") || ContainsText(model, brand))) return brand;
  return model.empty() ? "UnkownBrand" : model;
}

}  // namespace devlaser
