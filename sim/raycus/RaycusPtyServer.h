// The Raycus ESC simulator on a serial line (see TPtyFeedServer), optionally under a fixed link path that survives
// a restart.
#pragma once

#include <string>

#include "sim/common/PtyFeedServer.h"
#include "sim/raycus/RaycusEscEngine.h"

namespace lasersim {

class TRaycusPtyServer : public TPtyEngineServer<TRaycusEscEngine> {
 public:
  explicit TRaycusPtyServer(TRaycusEscEngine& engine, std::string linkPath = {})
      : TPtyEngineServer(engine, "RaycusPtySim", std::move(linkPath)) {}
};

}  // namespace lasersim
