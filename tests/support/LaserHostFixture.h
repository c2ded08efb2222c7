// A fixture for laser tests: the reference host with a recording sink installed as the library's host, and a
// stateful simulated IO extension that records every write.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "frame/HostServices.h"
#include "frame/LaserParams.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"

namespace devlaser::testing {

class TLaserHostFixture : public ::testing::Test {
 protected:
  void SetUp() override { SetHost(&FApp); }
  void TearDown() override { SetHost(nullptr); }

  // The writes of one kind, in order.
  std::vector<refhost::TIOWrite> WritesOf(refhost::TIOOp op) const {
    std::vector<refhost::TIOWrite> out;
    for (const auto& w : FIO->Writes())
      if (w.Op == op) out.push_back(w);
    return out;
  }
  std::vector<std::string> WriteLines() const {
    std::vector<std::string> out;
    for (const auto& w : FIO->Writes()) out.push_back(w.Line());
    return out;
  }

  // Polls `holds` until it is true or `timeout` passes; generous time-outs keep a loaded machine from failing.
  static bool Eventually(const std::function<bool()>& holds,
                         std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!holds()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO = std::make_shared<refhost::TSimCtrlExtIO>();
  TLaserParams FParams;
};

}  // namespace devlaser::testing
