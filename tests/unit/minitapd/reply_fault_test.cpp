#include "minitapd/reply_fault.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "frames.h"
#include "minitapd/delayed_output.h"

namespace minitapd {
namespace {

using std::chrono::milliseconds;

std::string text(std::string_view hex) {
  const auto raw = testing::bytes(hex);
  return {raw.begin(), raw.end()};
}

constexpr std::string_view kHeader = "00000064 00000001 00000000 00000000 00000000 00000000";

struct ShapeCase {
  std::string_view label;
  Fault fault;
  std::string_view stream;  // hexadecimal, of the reply {header, 1, 2}
  bool of_record = true;
  std::size_t chunk = 0;
  bool closes = false;
};

TEST(ReplyFault, ShapesTheStream) {
  const std::string record = text(kHeader) + text("00000001 00000002");
  const std::string whole = text("80000020") + record;
  const std::string h(kHeader);
  const std::string foreign =
      "80000020 00000065 00000001 00000000 00000000 00000000 00000000 00000001 00000002";
  const std::string truncated = "8000001a " + h + " 0000";
  const std::string raw = "8000001b " + h + " aabbcc";
  const std::string fragments = "0000001e " + h + "00000001 0000 80000002 0002";
  const std::string status = "80000020 " + h + " ffffffff 00000002";
  const std::string unchanged = "80000020 " + h + "00000001 00000002";
  const std::string twice = foreign + foreign;
  const ShapeCase cases[] = {
      {"no answer", {.action = FaultAction::no_answer}, ""},
      {"close", {.action = FaultAction::close}, "", true, 0, true},
      {"truncate", {.action = FaultAction::truncate, .bytes = 26}, truncated},
      {"truncate to nothing", {.action = FaultAction::truncate, .bytes = 0}, "80000000"},
      {"truncate behind the end", {.action = FaultAction::truncate, .bytes = 99}, unchanged},
      {"cut in the mark", {.action = FaultAction::cut, .bytes = 3}, "800000", false, 0, true},
      {"cut behind the end", {.action = FaultAction::cut, .bytes = 99}, unchanged, false, 0, true},
      {"raw", {.action = FaultAction::raw, .data = text("aabbcc")}, raw},
      {"stream", {.action = FaultAction::stream, .data = text("ff00")}, "ff00"},
      {"drip", {.action = FaultAction::drip, .bytes = 5}, unchanged, false, 5},
      {"delay", {.action = FaultAction::delay}, unchanged, false},
      {"fragments", {.action = FaultAction::fragments, .bytes = 30}, fragments},
      {"one fragment", {.action = FaultAction::fragments, .bytes = 0}, unchanged},
      {"wrong xid", {.action = FaultAction::wrong_xid, .count = 2}, twice, true, 36},
      {"status", {.action = FaultAction::status, .value = 0xffffffffU}, status},
  };
  for (const ShapeCase& c : cases) {
    SCOPED_TRACE(c.label);
    const Delivery out = shape_reply(c.fault, whole);
    EXPECT_EQ(out.stream, text(c.stream));
    EXPECT_EQ(out.chunk, c.chunk);
    EXPECT_EQ(out.close_after, c.closes);
    // A long record comes from the library in several fragments; what is done to a record, as
    // opposed to a stream, does not depend on them.
    if (c.of_record) {
      EXPECT_EQ(shape_reply(c.fault, make_record(record, 7)).stream, out.stream);
    }
  }
  EXPECT_EQ(record_of(text("00000002")), "");  // a mark without its fragment
}

class DelayedOutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair.data()), 0);
    ours_ = UniqueFd(pair[0]);
    peer_ = UniqueFd(pair[1]);
  }
  // What the peer has received since; "<end>" when the connection has ended.
  std::string received() {
    std::string out;
    std::array<char, 4096> buffer{};
    for (;;) {
      const ssize_t n = ::read(peer_.get(), buffer.data(), buffer.size());
      if (n < 0) return out;
      if (n == 0) return out + "<end>";
      out.append(buffer.data(), static_cast<std::size_t>(n));
    }
  }
  UniqueFd ours_;
  UniqueFd peer_;
  DelayedOutput output_;
  DelayedOutput::Clock::time_point start_{};
};

TEST_F(DelayedOutputTest, KeepsTheTimetable) {
  output_.push(ours_.get(),
               {.stream = "abcdefg",
                .chunk = 3,
                .delay = milliseconds(50),
                .pause = milliseconds(100),
                .close_after = true},
               start_);
  EXPECT_EQ(received(), "");
  const std::pair<int, std::string> steps[] = {
      {49, ""}, {50, "abc"}, {149, ""}, {150, "def"}, {250, "g<end>"}};
  for (const auto& [at, expected] : steps) {
    SCOPED_TRACE(at);
    ASSERT_TRUE(output_.next_due().has_value());
    output_.run_due(start_ + milliseconds(at));
    EXPECT_EQ(received(), expected);
  }
  EXPECT_FALSE(output_.next_due().has_value());
}

TEST_F(DelayedOutputTest, WaitsForASlowPeerAndForgetsADeadOne) {
  const std::string big(4'000'000, 'x');
  output_.push(ours_.get(), {.stream = big}, start_);
  std::size_t got = 0;
  for (int step = 1; output_.next_due() && step < 10000; ++step) {
    got += received().size();
    output_.run_due(start_ + milliseconds(10 * step));
  }
  EXPECT_EQ(got + received().size(), big.size());
  output_.push(ours_.get(), {.stream = "ab", .chunk = 1, .pause = milliseconds(10)}, start_);
  peer_ = UniqueFd();
  output_.run_due(start_ + milliseconds(10));
  EXPECT_FALSE(output_.next_due().has_value());
}

}  // namespace
}  // namespace minitapd
