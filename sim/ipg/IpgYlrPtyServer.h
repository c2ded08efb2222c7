// The IPG YLR simulator on a serial line (see TPtyFeedServer); a restart may give it a new slave path.
#pragma once

#include "sim/common/PtyFeedServer.h"
#include "sim/ipg/IpgYlrEngine.h"

namespace lasersim {

class TIpgYlrPtyServer : public TPtyEngineServer<TIpgYlrEngine> {
 public:
  explicit TIpgYlrPtyServer(TIpgYlrEngine& engine) : TPtyEngineServer(engine, "IpgYlrPtySim") {}
};

}  // namespace lasersim
