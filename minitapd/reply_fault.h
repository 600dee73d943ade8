// Misbehaviour on demand: what a scripted fault makes of a correct reply.
//
// A reply is captured as the complete stream that the RPC library would have sent (RFC 5531 record
// marking: a 4-byte mark of last-fragment bit and length before every fragment). shape_reply turns
// it into a Delivery: bytes and a timetable, which delayed_output.h then writes. Pure functions.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace minitapd {

enum class FaultAction : std::uint8_t {
  no_answer,   // nothing, and the connection stays
  close,       // nothing, and the connection is closed
  exit,        // the process ends at once
  system_err,  // the RPC layer's own refusals
  decode_err,
  no_proc,
  no_prog,
  weak_auth,
  truncate,   // the first `bytes` of the reply record, as a complete record
  cut,        // the first `bytes` of the reply stream, then the connection is closed
  raw,        // `hex` behind the header of an accepted reply, as the results
  stream,     // `hex` in place of the whole stream
  drip,       // the reply stream, `bytes` at a time with `seconds` between
  delay,      // the reply stream after `seconds`
  fragments,  // the reply record in fragments of `bytes`
  wrong_xid,  // `count` copies of the reply record with a foreign transaction id, `seconds` apart
  status,     // the reply with its first result word replaced by `value`
};

struct Fault {
  std::uint32_t procedure = 0;
  std::uint64_t call = 0;  // from 1; 0 = every call
  FaultAction action = FaultAction::no_answer;
  std::size_t bytes = 0;
  std::chrono::milliseconds pause{0};
  std::uint32_t value = 0;
  std::size_t count = 1;
  std::string data{};  // `hex`, decoded
};

// What goes out, and when: after `delay` the first `chunk` bytes, then a chunk after every `pause`.
struct Delivery {
  std::string stream;
  std::size_t chunk = 0;  // 0 = all at once
  std::chrono::milliseconds delay{0};
  std::chrono::milliseconds pause{0};
  bool close_after = false;
};

std::optional<FaultAction> fault_action(std::string_view name);

// shape_reply applies a fault to the correct reply stream. Actions that do not change bytes
// (exit and the refusals) leave it as it is.
Delivery shape_reply(const Fault& fault, std::string_view stream);

// make_record puts record marks before `record`: one fragment, or several of `fragment` bytes.
std::string make_record(std::string_view record, std::size_t fragment = 0);

// record_of takes the record marks out of a stream that holds one record.
std::string record_of(std::string_view stream);

}  // namespace minitapd
