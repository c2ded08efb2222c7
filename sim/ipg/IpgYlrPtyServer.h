// The IPG YLR simulator on a serial line (see TPtyFeedServer); a restart may give it a new slave path, unless it is
// given a link path that survives a restart.
#pragma once

#include <string>
#include <utility>

#include "sim/common/PtyFeedServer.h"
#include "sim/ipg/IpgYlrEngine.h"

namespace lasersim {

class TIpgYlrPtyServer : public TPtyEngineServer<TIpgYlrEngine> {
 public:
  explicit TIpgYlrPtyServer(TIpgYlrEngine& engine, std::string linkPath = {})
      : TPtyEngineServer(engine, "IpgYlrPtySim", std::move(linkPath)) {}
};

}  // namespace lasersim
