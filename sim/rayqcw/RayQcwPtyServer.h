// The Raycus QCW simulator on a serial line (see TPtyFeedServer), optionally under a fixed link path that survives
// a restart.
#pragma once

#include <string>

#include "sim/common/PtyFeedServer.h"
#include "sim/rayqcw/RayQcwEngine.h"

namespace lasersim {

class TRayQcwPtyServer : public TPtyEngineServer<TRayQcwEngine> {
 public:
  explicit TRayQcwPtyServer(TRayQcwEngine& engine, std::string linkPath = {})
      : TPtyEngineServer(engine, "RayQcwPtySim", std::move(linkPath)) {}
};

}  // namespace lasersim
