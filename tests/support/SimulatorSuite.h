// A suite of tests against one vCenter simulator, started for the suite
// and stopped after it; each test starts from a clean record of calls,
// without fault rules, port states, hints or options.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "peers/VcSim.h"
#include "SessionHarness.h"

namespace harness {

class SimulatorSuite : public testing::Test {
 protected:
  static void SetUpTestSuite() { sim = new vcsim::Simulator(kUser, kPassword); }
  static void TearDownTestSuite() {
    delete sim;
    sim = nullptr;
  }
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    sim->reset();
  }

  inline static vcsim::Simulator* sim = nullptr;
};

// A JSON text of the control port without its blanks and line breaks.
inline std::string compact(std::string json) {
  json.erase(std::remove_if(json.begin(), json.end(), [](char c) { return c == ' ' || c == '\n'; }), json.end());
  return json;
}

}  // namespace harness
