// The library's C++ API for hosts that link it directly instead of loading the plug-in: load and unload, the
// three creation forms, DestroyLaser and the information source of the current laser.
#pragma once

#include "frame/LaserConfig.h"
#include "frame/LaserParams.h"
#include "registry/LaserFactory.h"
