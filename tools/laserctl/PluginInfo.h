// laserctl's questions to the plug-in that create no laser: --version and --list-models.
#pragma once

#include "CommandLine.h"

namespace laserctl {

// Answers --version or --list-models on standard output; returns the exit status.
int RunPluginInfo(const TOptions& options);

}  // namespace laserctl
