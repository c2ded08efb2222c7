#include "registry/LaserRegistrations.h"

#include "core/DefaultLaser.h"
#include "ecat/IpgEcatLaser.h"
#include "ipg/Ipg500Laser.h"
#include "ipg/IpgOtherLasers.h"
#include "ipg/IpgYlr2Laser.h"
#include "models/CO2Laser.h"
#include "models/HardWiredLasers.h"
#include "models/MaxLasers.h"
#include "models/SerialMakerLasers.h"
#include "raycus/RaycusLasers.h"
#include "zorun/ZorunLaser.h"

namespace devlaser {

#define DEVLASER_CLASS(T) LaserClassOf<T>(#T)

// The first registration of a family also enters its model key. The order decides which class serves a family
// and sub-type, and which key a model string finds first.
void RegisterBuiltInLasers(TNcLaserLib& lib, TLaserTypeDic& types) {
  lib.RegisterLaser(eltZorun, {0}, DEVLASER_CLASS(TZorunLaser), "Zorun", types);
  lib.RegisterLaser(eltCO2, {0}, DEVLASER_CLASS(TCO2Laser), "CO2", types);
  lib.RegisterLaser(eltIPG, {0, 1, 2}, DEVLASER_CLASS(TIPG500Laser), "IPG", types);
  lib.RegisterLaser(eltIPG, {4, 6}, DEVLASER_CLASS(TIPGYLSLaser));
  lib.RegisterLaser(eltIPG, {5, 7}, DEVLASER_CLASS(TIPG1000Laser));
  lib.RegisterLaser(eltIPG, {8}, DEVLASER_CLASS(TIPGYLPLaser));
  lib.RegisterLaser(eltIPG, {3}, DEVLASER_CLASS(TIPGYLR2Laser));
  lib.RegisterLaser(eltIPG, {9}, DEVLASER_CLASS(TIPGEcatLaser));
  lib.RegisterLaser(eltRay, {0, 1}, DEVLASER_CLASS(TRaycusLaser), "Raycus", types);
  lib.RegisterLaser(eltRay, {2}, DEVLASER_CLASS(TRayQCWLaser));
  lib.RegisterLaser(eltRay, {3}, DEVLASER_CLASS(TRaySMLaser));
  lib.RegisterLaser(eltRay, {4}, DEVLASER_CLASS(TRayMMLaser));
  lib.RegisterLaser(eltRay, {5}, DEVLASER_CLASS(TRaycusRFL));
  lib.RegisterLaser(eltTrumpf, {0}, DEVLASER_CLASS(TTrumpfLaser), "Trumpf", types);
  lib.RegisterLaser(eltSPI, {0, 1}, DEVLASER_CLASS(TSPILaser), "SPI", types);
  lib.RegisterLaser(eltSPI, {2}, DEVLASER_CLASS(TSPI1000Laser));
  lib.RegisterLaser(eltGSI, {0}, DEVLASER_CLASS(TJKLaser), "GSI", types);  // GSI shares JK's interface
  lib.RegisterLaser(eltJK, {0}, DEVLASER_CLASS(TJKLaser), "JK", types);
  lib.RegisterLaser(eltNLight, {0}, DEVLASER_CLASS(TNLightLaser), "NLight", types);
  lib.RegisterLaser(eltMeiMan, {0}, DEVLASER_CLASS(TMeimanLaser), "Meiman", types);
  lib.RegisterLaser(eltMaxSZ, {0, 1}, DEVLASER_CLASS(TMaxLaser), "MaxSZ", types);
  lib.RegisterLaser(eltMaxSZ, {2}, DEVLASER_CLASS(TMaxG3Laser));
  lib.RegisterLaser(eltMaxSZ, {3}, DEVLASER_CLASS(TMaxEcatLaser));
  lib.RegisterLaser(eltLPing, {0}, DEVLASER_CLASS(TLPINGLaser), "LPing", types);
  lib.RegisterLaser(eltRofin, {0}, DEVLASER_CLASS(TRofinLaser), "Rofin", types);
  lib.RegisterLaser(eltCAS, {0}, DEVLASER_CLASS(TCASLaser), "CAS", types);
  lib.RegisterLaser(eltMars, {0}, DEVLASER_CLASS(TMarsLaser), "Mars", types);
  lib.RegisterLaser(eltOVNT, {0}, DEVLASER_CLASS(TOpticalValleyLaser), "OVNT", types);
  lib.RegisterLaser(eltOther, {0}, DEVLASER_CLASS(TDefaultLaser), "Default", types);
}

#undef DEVLASER_CLASS

}  // namespace devlaser
