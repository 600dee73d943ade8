#include "bench/canned_supervisor.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "daemon/base/paths.h"
#include "snmp/bld_pkt.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/prse_pkt.h"

namespace tally::bench {
namespace {

constexpr std::size_t kHeadRoom = 320;  // bytes; for a community of up to 255

const SubIds kSysUpTime{1, 3, 6, 1, 2, 1, 1, 3};
const SubIds kEtherStats{1, 3, 6, 1, 2, 1, 16, 1, 1, 1};
const SubIds kEtherOverflows{1, 3, 6, 1, 2, 1, 16, 1, 7, 1};
const SubIds kIfEntry{1, 3, 6, 1, 2, 1, 2, 2, 1};
const SubIds kIfXEntry{1, 3, 6, 1, 2, 1, 31, 1, 1, 1};

constexpr std::uint32_t kSpeed = 1'000'000'000;  // bits per second
constexpr std::uint32_t kTicksPerEpoch = 6000;   // of the up-time

void must(bool done) {
  if (!done) throw std::runtime_error("a message that the canned supervisor does not know");
}

// Takes an element off the front and returns its content.
Bytes take_element(Bytes& bytes, std::uint8_t tag) {
  must(bytes.size() >= 2 && bytes[0] == tag);
  std::size_t length = bytes[1];
  std::size_t head = 2;
  if (length > 0x80) {
    head += length - 0x80;
    must(head <= 4 && bytes.size() >= head);
    length = 0;
    for (std::size_t i = 2; i < head; ++i) length = length << 8 | bytes[i];
  }
  must(bytes.size() >= head + length);
  const Bytes content = bytes.subspan(head, length);
  bytes = bytes.subspan(head + length);
  return content;
}

struct Pieces {
  Bytes opening;  // version and community
  Bytes pdu;
  Bytes id;
  Bytes rest;  // of the PDU, behind the id
};

Pieces take_apart(Bytes message) {
  const Bytes content = take_element(message, SEQUENCE_TYPE);
  Bytes left = content;
  (void)take_element(left, INTEGER_TYPE);  // the version stays where it is
  must(take_element(left, OCTET_STRING_TYPE).size() < 256 && !left.empty());
  Pieces pieces{content.first(content.size() - left.size()), left, {}, {}};
  const Bytes pdu = take_element(left, left[0]);
  pieces.rest = pdu;
  (void)take_element(pieces.rest, INTEGER_TYPE);  // likewise the id
  pieces.id = pdu.first(pdu.size() - pieces.rest.size());
  return pieces;
}

std::string text_of(Bytes bytes) {
  return {bytes.begin(), bytes.end()};
}

VarBind* with_number(const OID& name, std::int16_t type, std::uint32_t number) {
  return MakeVarBindWithValue(&name, nullptr, type, &number);
}
VarBind* with_octets(const OID& name, const std::string& text) {
  return MakeVarBindWithValue(&name, nullptr, OCTET_STRING_TYPE,
                              MakeOctetStringFromText(text.c_str()));
}

OidPtr oid_of(const SubIds& sub_ids) {
  return OidPtr(MakeOID(sub_ids.data(), static_cast<std::int32_t>(sub_ids.size())));
}

// Makes the binding of an object that exists.
VarBind* binding_of(const SubIds& sub_ids, std::uint32_t epoch) {
  const OidPtr name = oid_of(sub_ids);
  const std::uint32_t row = sub_ids.back();
  const std::uint32_t column = sub_ids[sub_ids.size() - 2];
  const SubIds entry(sub_ids.begin(), sub_ids.end() - 2);
  const std::uint32_t counter = 0x1000'0000 + row * 1009 + epoch * row_step(row);
  if (SubIds(sub_ids.begin(), sub_ids.end() - 1) == kSysUpTime) {
    return with_number(*name, TIME_TICKS_TYPE, (epoch + 1) * kTicksPerEpoch);
  }
  if (entry == kEtherStats) {
    if (column == 1) return with_number(*name, INTEGER_TYPE, row);
    if (column == 20) return with_octets(*name, kRmonOwner);
    if (column == 21) return with_number(*name, INTEGER_TYPE, 1);  // valid
    if (column != 2) return with_number(*name, COUNTER_32_TYPE, counter);
    SubIds source = kIfEntry;
    source.insert(source.end(), {1, row});
    return MakeVarBindWithValue(name.get(), nullptr, OBJECT_ID_TYPE, oid_of(source).release());
  }
  if (entry == kEtherOverflows) return with_number(*name, COUNTER_32_TYPE, 0);
  if (entry == kIfEntry) {
    if (column == 5) return with_number(*name, GAUGE_32_TYPE, kSpeed);
    if (column == 8) return with_number(*name, INTEGER_TYPE, 1);  // up
    if (column == 9) return with_number(*name, TIME_TICKS_TYPE, row);
    return with_number(*name, COUNTER_32_TYPE, counter);
  }
  must(entry == kIfXEntry);
  if (column == 1)
    return with_octets(*name, std::to_string(1 + row / 48) + "/" + std::to_string(1 + row % 48));
  return MakeVarBindWithValue(name.get(), nullptr, COUNTER_64_TYPE, MakeCounter64(256, counter));
}

// Puts an element's head with a length of two bytes in front of `to`.
std::uint8_t* put_head(std::uint8_t* to, std::uint8_t tag, std::size_t length) {
  const std::uint8_t head[] = {tag, 0x82, static_cast<std::uint8_t>(length >> 8),
                               static_cast<std::uint8_t>(length)};
  return static_cast<std::uint8_t*>(std::memcpy(to - sizeof head, head, sizeof head));
}
std::uint8_t* put_bytes(std::uint8_t* to, Bytes bytes) {
  return std::copy_backward(bytes.begin(), bytes.end(), to);
}

class Supervisor {
 public:
  explicit Supervisor(std::uint32_t rows) : rows_(rows) {}

  // answer returns what to send back. It stands until the next call.
  Bytes answer(Bytes message) {
    const Pieces pieces = take_apart(message);
    const std::string asked = static_cast<char>(pieces.pdu[0]) + text_of(pieces.rest);
    auto [known, is_new] = exchanges_.try_emplace(asked);
    if (is_new) {
      known->second.request = read_request(message);
      make_answer(known->second);
    }
    served_.push_back(text_of(message));
    std::string& bytes = known->second.answer;
    auto* const begin = reinterpret_cast<std::uint8_t*>(bytes.data());
    std::uint8_t* const end = begin + bytes.size();
    std::uint8_t* to = put_bytes(begin + kHeadRoom, pieces.id);
    to = put_head(to, RESPONSE_PDU, static_cast<std::size_t>(end - to));
    to = put_bytes(to, pieces.opening);
    to = put_head(to, SEQUENCE_TYPE, static_cast<std::size_t>(end - to));
    return {to, end};
  }

  // advance returns how many requests were served in the epoch that ends.
  std::uint32_t advance() {
    ++epoch_;
    for (auto& [asked, exchange] : exchanges_) make_answer(exchange);
    return static_cast<std::uint32_t>(std::exchange(served_, {}).size());
  }
  std::string take_served() {
    if (served_.empty()) return {};
    std::string message = std::move(served_.front());
    served_.pop_front();
    return message;
  }

 private:
  struct Exchange {
    Request request;
    std::string answer;  // what stands behind the id, with kHeadRoom in front
  };

  void make_answer(Exchange& exchange) const {
    const PduPtr pdu(MakePdu(RESPONSE_PDU, 0, 0, 0, nullptr, nullptr, 0, 0, 0));
    for (SubIds name : exchange.request.names) {
      const bool walks = exchange.request.type == GET_NEXT_REQUEST_PDU;
      if (walks && name.back() >= rows_) {  // the view ends
        LinkVarBind(pdu.get(), MakeVarBindWithValue(oid_of(name).get(), nullptr,
                                                    END_OF_MIB_VIEW_TYPE, nullptr));
        continue;
      }
      if (walks) ++name.back();
      LinkVarBind(pdu.get(), binding_of(name, epoch_));
    }
    must(BuildPdu(pdu.get()) == 0);
    Bytes encoded(pdu->packlet->octet_ptr, static_cast<std::size_t>(pdu->packlet->length));
    constexpr std::size_t kRequestId = 3;  // bytes; the number 0
    exchange.answer = std::string(kHeadRoom, '\0') +
                      text_of(take_element(encoded, RESPONSE_PDU).subspan(kRequestId));
  }

  std::uint32_t rows_;
  std::uint32_t epoch_ = 0;
  std::unordered_map<std::string, Exchange> exchanges_;
  std::deque<std::string> served_;
};

}  // namespace

Request read_request(Bytes message) {
  const Pieces pieces = take_apart(message);
  const PduPtr pdu(ZnParsePdu(pieces.pdu.data(), static_cast<std::int32_t>(pieces.pdu.size())));
  must(pdu != nullptr);
  Request request{pdu->type, {}};
  for (const VarBind* binding = pdu->var_bind_list; binding; binding = binding->next_var) {
    const OID& name = *binding->name;
    must(name.length > 2);
    request.names.emplace_back(name.oid_ptr, name.oid_ptr + name.length);
  }
  return request;
}

void serve_snmp(int socket, std::uint32_t rows) {
  Supervisor supervisor(rows);
  std::array<std::uint8_t, 2048> buffer;
  for (;;) {
    sockaddr_in client{};
    socklen_t length = sizeof client;
    const auto send = [&](const void* bytes, std::size_t size) {
      // A client that is gone does not matter.
      (void)sendto(socket, bytes, size, 0, reinterpret_cast<sockaddr*>(&client), length);
    };
    const ssize_t got = recvfrom(socket, buffer.data(), buffer.size(), 0,
                                 reinterpret_cast<sockaddr*>(&client), &length);
    if (got <= 0) {
      if (got == 0 || errno == EINTR || errno == ECONNREFUSED) continue;
      throw std::system_error(errno, std::generic_category(), "the canned supervisor receives");
    }
    if (got > 1) {
      const Bytes answer = supervisor.answer(Bytes(buffer).first(static_cast<std::size_t>(got)));
      send(answer.data(), answer.size());
      continue;
    }
    if (buffer[0] == kReport) {
      const std::string message = supervisor.take_served();
      send(message.data(), message.size());
    } else {
      const std::uint32_t count = supervisor.advance();
      send(&count, sizeof count);
    }
  }
}

}  // namespace tally::bench
