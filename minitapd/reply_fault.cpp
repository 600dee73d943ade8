#include "minitapd/reply_fault.h"

#include <algorithm>
#include <array>
#include <utility>

namespace minitapd {

namespace {

constexpr std::uint32_t kLastFragment = 0x80000000U;
constexpr std::size_t kWord = 4;
// xid, message type, reply state, verifier flavour and length, accept state: six XDR words.
constexpr std::size_t kReplyHeader = 6 * kWord;

constexpr std::array<std::pair<std::string_view, FaultAction>, 17> kActions = {{
    {"no_answer", FaultAction::no_answer},
    {"close", FaultAction::close},
    {"exit", FaultAction::exit},
    {"system_err", FaultAction::system_err},
    {"decode_err", FaultAction::decode_err},
    {"no_proc", FaultAction::no_proc},
    {"no_prog", FaultAction::no_prog},
    {"weak_auth", FaultAction::weak_auth},
    {"truncate", FaultAction::truncate},
    {"cut", FaultAction::cut},
    {"raw", FaultAction::raw},
    {"stream", FaultAction::stream},
    {"drip", FaultAction::drip},
    {"delay", FaultAction::delay},
    {"fragments", FaultAction::fragments},
    {"wrong_xid", FaultAction::wrong_xid},
    {"status", FaultAction::status},
}};

std::string word(std::uint32_t value) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xffU);
  return out;
}

std::uint32_t read_word(std::string_view bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < kWord; ++i) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

void replace_word(std::string& record, std::size_t offset, std::uint32_t value) {
  if (record.size() >= offset + kWord) record.replace(offset, kWord, word(value));
}

}  // namespace

std::optional<FaultAction> fault_action(std::string_view name) {
  const auto* it =
      std::ranges::find(kActions, name, &std::pair<std::string_view, FaultAction>::first);
  if (it == kActions.end()) return std::nullopt;
  return it->second;
}

std::string make_record(std::string_view record, std::size_t fragment) {
  if (fragment == 0) fragment = std::max<std::size_t>(record.size(), 1);
  std::string stream;
  do {
    const std::string_view part = record.substr(0, fragment);
    record.remove_prefix(part.size());
    const auto length = static_cast<std::uint32_t>(part.size());
    stream += word(record.empty() ? length | kLastFragment : length);
    stream += part;
  } while (!record.empty());
  return stream;
}

std::string record_of(std::string_view stream) {
  std::string record;
  while (stream.size() >= kWord) {
    const std::uint32_t mark = read_word(stream);
    const std::string_view part = stream.substr(kWord, mark & ~kLastFragment);
    record += part;
    stream.remove_prefix(kWord + part.size());
    if ((mark & kLastFragment) != 0) break;
  }
  return record;
}

Delivery shape_reply(const Fault& fault, std::string_view stream) {
  Delivery out{.stream = std::string(stream)};
  switch (fault.action) {
    case FaultAction::no_answer:
      out.stream.clear();
      break;
    case FaultAction::close:
      out.stream.clear();
      out.close_after = true;
      break;
    case FaultAction::truncate:
      out.stream = make_record(record_of(stream).substr(0, fault.bytes));
      break;
    case FaultAction::cut:
      out.stream.resize(std::min(fault.bytes, stream.size()));
      out.close_after = true;
      break;
    case FaultAction::raw:
      out.stream = make_record(record_of(stream).substr(0, kReplyHeader) + fault.data);
      break;
    case FaultAction::stream:
      out.stream = fault.data;
      break;
    case FaultAction::drip:
      out.chunk = fault.bytes;
      out.pause = fault.pause;
      break;
    case FaultAction::delay:
      out.delay = fault.pause;
      break;
    case FaultAction::fragments:
      out.stream = make_record(record_of(stream), fault.bytes);
      break;
    case FaultAction::wrong_xid: {
      std::string record = record_of(stream);
      replace_word(record, 0, read_word(record) + 1);
      const std::string copy = make_record(record);
      out.stream.clear();
      for (std::size_t i = 0; i < fault.count; ++i) out.stream += copy;
      out.chunk = copy.size();
      out.pause = fault.pause;
      break;
    }
    case FaultAction::status: {
      std::string record = record_of(stream);
      replace_word(record, kReplyHeader, fault.value);
      out.stream = make_record(record);
      break;
    }
    case FaultAction::exit:
    case FaultAction::system_err:
    case FaultAction::decode_err:
    case FaultAction::no_proc:
    case FaultAction::no_prog:
    case FaultAction::weak_auth:
      break;
  }
  return out;
}

}  // namespace minitapd
