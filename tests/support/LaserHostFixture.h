// A fixture for laser tests: the reference host with a recording sink installed as the library's host, and a
// stateful simulated IO extension that records every write.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "frame/HostServices.h"
#include "frame/LaserParams.h"
#include "host/XmlSubConfig.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"

namespace devlaser::testing {

// Sets keys of a configuration node by name, as a stored configuration would; a misspelt key or a value of another
// type fails the test instead of going unnoticed.
inline void SetKeys(nchost::TXmlSubConfig& node,
                    std::initializer_list<std::pair<const char*, nchost::TConfigValue>> keys) {
  for (const auto& [name, value] : keys) EXPECT_TRUE(node.SetProperty(name, value)) << node.NodeName() << "." << name;
}

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
