// Operator log messages: how a log handle's text is built, and its rate
// limit.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Log.h"

namespace {

struct Line {
  std::string id, text;
};

class LogTest : public testing::Test {
 protected:
  void SetUp() override {
    Kel::logSinkIs([this](const Kel::LogHandle& h, const Kel::String8& text) {
      lines.push_back({h.id().str(), text.str()});
    });
  }
  void TearDown() override { Kel::logSinkIs(Kel::LogSink()); }
  std::vector<Line> lines;
};

const Kel::LogHandle moved("TEST_VM_MOVED", Kel::logInformational, "VM %s moved from %s to %s.",
                           "A VM moved.", Kel::NoActionRequired, 0.0, 1.0, 0);
const Kel::LogHandle lost("TEST_LOST", Kel::logError, "Connection lost.", "Lost.",
                          Kel::CallSupportIfPersists, 0.0, 1.0, 0);

TEST_F(LogTest, ArgumentsFillTheFormatInOrder) {
  Kel::log(moved, "vm-1", Kel::String8("host-1"), std::string("host-2"));
  Kel::log(moved, "vm-2");  // missing ones stay empty
  Kel::log(moved, "a", "b", "c", "surplus");
  Kel::log(lost);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].id, "TEST_VM_MOVED");
  EXPECT_EQ(lines[0].text, "VM vm-1 moved from host-1 to host-2.");
  EXPECT_EQ(lines[1].text, "VM vm-2 moved from  to .");
  EXPECT_EQ(lines[2].text, "VM a moved from b to c.");
  EXPECT_EQ(lines[3].text, "Connection lost.");
}

TEST_F(LogTest, RateLimitCountsPerDistinctText) {
  const Kel::LogHandle limited("TEST_LIMITED", Kel::logWarning, "Port %s: %s", "", "", 3600.0, 2.0, 1);
  for (int i = 0; i < 5; ++i) Kel::log(limited, "p1", std::to_string(i));
  Kel::log(limited, "p2", "x");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].text, "Port p1: 0");
  EXPECT_EQ(lines[1].text, "Port p1: 1");
  EXPECT_EQ(lines[2].text, "Port p2: x");
}

}  // namespace
