// How a run ends: by std::exit, or by the handler of whoever makes many runs in one process.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"

#include "Setup.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <utility>

namespace {

struct RunEnd {
  int status;
};

[[noreturn]] void throwEnd(int status) { throw RunEnd{status}; }

/// The ends of runs are thrown as long as the object lives.
class ThrownEnds {
 public:
  ThrownEnds() { setEndHandler(throwEnd); }
  ~ThrownEnds() { setEndHandler(nullptr); }
  ThrownEnds(const ThrownEnds&) = delete;
  ThrownEnds(ThrownEnds&&) = delete;
  ThrownEnds& operator=(const ThrownEnds&) = delete;
  ThrownEnds& operator=(ThrownEnds&&) = delete;
};

/// The status that a call ends the run with; -1 when it returns.
template <class Call>
int thrownStatus(Call call) {
  const ThrownEnds thrown;
  try {
    call();
  } catch (const RunEnd& end) {
    return end.status;
  }
  return -1;
}

TEST(Fatal, HandlerGetsStatusAfterMessageWasWritten) {
  std::ostringstream channel;
  EXPECT_EQ(thrownStatus([&] { fatal("ERROR: of a test\n", channel); }), 1);
  EXPECT_EQ(channel.str(), "ERROR: of a test\n");
}

TEST(Fatal, HelpEndsThroughTheHandlerWithItsOwnStatus) {
  EXPECT_EQ(thrownStatus([] { Setup::ShowHelp(0, "dravo"); }), 0);
  EXPECT_EQ(thrownStatus([] { Setup::ShowHelp(1, "dravo"); }), 1);
}

TEST(Fatal, UnwindingReleasesWhatTheRunHolds) {
  auto outside = std::make_shared<int>(0);
  const std::weak_ptr<int> seen = outside;
  std::ostringstream channel;
  thrownStatus([&] {
    const std::shared_ptr<int> held = std::move(outside);
    fatal("", channel);
  });
  EXPECT_TRUE(seen.expired());
}

TEST(FatalDeathTest, WithoutHandlerTheProcessExits) {
  EXPECT_EXIT(fatal("ERROR: of a test\n"), testing::ExitedWithCode(1), "^ERROR: of a test\n$");
  EXPECT_EXIT(endRun(0), testing::ExitedWithCode(0), "^$");
}

TEST(FatalDeathTest, NullRestoresTheExit) {
  EXPECT_EXIT(
      {
        setEndHandler(throwEnd);
        setEndHandler(nullptr);
        endRun(3);
      },
      testing::ExitedWithCode(3), "^$");
}

TEST(FatalDeathTest, HandlerThatReturnsDoesNotKeepTheRunAlive) {
  EXPECT_EXIT(
      {
        setEndHandler([](int) {});
        endRun(4);
      },
      testing::ExitedWithCode(4), "^$");
}

}  // namespace
