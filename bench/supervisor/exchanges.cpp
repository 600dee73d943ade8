#include "bench/supervisor/exchanges.h"

#include <stdexcept>

#include "daemon/base/paths.h"
#include "snmp/bld_pkt.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally::bench {
namespace {

using Sids = std::vector<std::uint32_t>;

const Sids kSysUpTime{1, 3, 6, 1, 2, 1, 1, 3};
const Sids kEtherStats{1, 3, 6, 1, 2, 1, 16, 1, 1, 1};
const Sids kEtherOverflows{1, 3, 6, 1, 2, 1, 16, 1, 7, 1};
const Sids kIfEntry{1, 3, 6, 1, 2, 1, 2, 2, 1};
const Sids kIfXEntry{1, 3, 6, 1, 2, 1, 31, 1, 1, 1};

constexpr std::uint32_t kIfIndex = 1;  // columns of ifEntry
constexpr std::uint32_t kIfSpeed = 5;
constexpr std::uint32_t kIfOperStatus = 8;
constexpr std::uint32_t kIfLastChange = 9;
constexpr std::uint32_t kIfName = 1;  // column of ifXEntry

Sids operator+(Sids front, std::uint32_t last) {
  front.push_back(last);
  return front;
}

Column state_column(std::uint32_t column) {
  return {kIfEntry + column,
          column == kIfOperStatus   ? Content::oper_status
          : column == kIfLastChange ? Content::last_change
                                    : Content::speed,
          0};
}

// The overflow column of a column of etherStatsEntry, 0 where there is none.
std::uint32_t overflow_column(std::uint32_t column) {
  if (column == 4) return 3;                       // octets
  if (column == 5) return 1;                       // packets
  return column < 14 ? 0 : 5 + 2 * (column - 14);  // packets by size
}

RequestShape ether_counters() {
  RequestShape shape{false, {{kSysUpTime, Content::up_time, 0}}};
  for (std::uint32_t column = 3; column <= 19; ++column) {
    shape.columns.push_back({kEtherStats + column, Content::counter32, column});
    const std::uint32_t overflow = overflow_column(column);
    if (overflow != 0) {
      shape.columns.push_back({kEtherOverflows + overflow, Content::overflow, column});
    }
  }
  shape.columns.push_back(state_column(kIfSpeed));
  shape.columns.push_back(state_column(kIfLastChange));
  return shape;
}

RequestShape if_counters() {
  RequestShape shape{false, {state_column(kIfSpeed)}};
  for (std::uint32_t column = 6; column <= 13; ++column) {
    shape.columns.push_back({kIfXEntry + column, Content::counter64, column});
  }
  for (const std::uint32_t column : {13U, 14U, 19U, 20U}) {
    shape.columns.push_back({kIfEntry + column, Content::counter32, column});
  }
  return shape;
}

VarBind* with_octets(const OID& name, const std::string& text) {
  return MakeVarBindWithValue(&name, nullptr, OCTET_STRING_TYPE,
                              MakeOctetStringFromText(text.c_str()));
}

VarBind* with_number(const OID& name, std::int16_t type, std::uint32_t number) {
  return MakeVarBindWithValue(&name, nullptr, type, &number);
}

VarBind* with_value(const OID& name, const Column& column, bool of_interface, std::uint32_t row,
                    const SupervisorState& state) {
  const auto counter = (of_interface ? if_counter : ether_counter)(row, column.field, state.epoch);
  const auto low = static_cast<std::uint32_t>(counter);
  const auto high = static_cast<std::uint32_t>(counter >> 32);
  switch (column.content) {
    case Content::up_time:
      return with_number(name, TIME_TICKS_TYPE, (state.epoch + 1) * kTicksPerEpoch);
    case Content::index:
      return with_number(name, INTEGER_TYPE, row);
    case Content::owner:
      return with_octets(name, kRmonOwner);
    case Content::status:
      return with_number(name, INTEGER_TYPE, 1);  // valid
    case Content::data_source: {
      const Sids source = kIfEntry + kIfIndex + row;
      return MakeVarBindWithValue(&name, nullptr, OBJECT_ID_TYPE,
                                  MakeOID(source.data(), static_cast<std::int32_t>(source.size())));
    }
    case Content::name:
      return with_octets(name, if_name(row));
    case Content::oper_status:
      return with_number(name, INTEGER_TYPE, state.idle ? 2 : 1);
    case Content::last_change:
      return with_number(name, TIME_TICKS_TYPE, row);
    case Content::speed:
      return with_number(name, GAUGE_32_TYPE, kSpeed);
    case Content::counter32:
      return with_number(name, COUNTER_32_TYPE, low);
    case Content::overflow:
      return with_number(name, COUNTER_32_TYPE, high);
    case Content::counter64:
      return MakeVarBindWithValue(&name, nullptr, COUNTER_64_TYPE, MakeCounter64(high, low));
  }
  return nullptr;
}

// Encodes a PDU with one binding for each column and takes its head off.
template <class MakeBinding>
std::vector<std::uint8_t> encoded(RequestKind kind, std::uint32_t row, MakeBinding binding) {
  const PduPtr pdu(MakePdu(RESPONSE_PDU, 0, 0, 0, nullptr, nullptr, 0, 0, 0));
  for (const Column& column : request_shape(kind).columns) {
    const Sids sids = column.object + (column.content == Content::up_time ? 0 : row);
    const OidPtr name(MakeOID(sids.data(), static_cast<std::int32_t>(sids.size())));
    LinkVarBind(pdu.get(), binding(*name, column));
  }
  if (BuildPdu(pdu.get()) != 0) throw std::runtime_error("a canned PDU cannot be encoded");
  const OctetString& packet = *pdu->packlet;
  const int length_bytes = packet.octet_ptr[1] < 0x80 ? 1 : packet.octet_ptr[1] - 0x7F;
  constexpr int kTag = 1;
  constexpr int kRequestId = 3;  // the number 0
  return {packet.octet_ptr + kTag + length_bytes + kRequestId, packet.octet_ptr + packet.length};
}

}  // namespace

const RequestShape& request_shape(RequestKind kind) {
  static const Column name{kIfXEntry + kIfName, Content::name, 0};
  static const RequestShape shapes[kRequestKinds] = {
      {true,
       {{kEtherStats + 1, Content::index, 0},
        {kEtherStats + 20, Content::owner, 0},
        {kEtherStats + 21, Content::status, 0},
        {kEtherStats + 2, Content::data_source, 0}}},
      {false, {name, state_column(kIfOperStatus), state_column(kIfLastChange)}},
      {false, {state_column(kIfOperStatus), state_column(kIfLastChange)}},
      ether_counters(),
      {true, {name, state_column(kIfOperStatus)}},
      if_counters(),
  };
  return shapes[static_cast<std::size_t>(kind)];
}

// A column without an overflow column starts where it does not overflow for long, the others where
// they have overflowed already.
std::uint64_t ether_counter(std::uint32_t row, std::uint32_t column, std::uint32_t epoch) {
  const std::uint64_t start = overflow_column(column) == 0 ? 0x1000'0000 : 0x1'F000'0000;
  return start + row * 1009 + std::uint64_t{epoch} * (1 + (row * 31 + column * 17) % 997);
}

std::uint64_t if_counter(std::uint32_t row, std::uint32_t column, std::uint32_t epoch) {
  const std::uint64_t start = 0x100'1000'0000;  // the lower half is the 32-bit column's
  return start + row * 1013 + std::uint64_t{epoch} * (1 + (row * 37 + column * 19) % 991);
}

std::string if_name(std::uint32_t row) {
  return std::to_string(1 + row / 48) + "/" + std::to_string(1 + row % 48);
}

std::vector<std::uint8_t> encoded_request(RequestKind kind, std::uint32_t row) {
  return encoded(kind, row, [](const OID& name, const Column& /*column*/) {
    return MakeVarBindWithNull(&name, nullptr);
  });
}

// Behind the last row the view ends; the names are then those of the request.
std::vector<std::uint8_t> encoded_answer(RequestKind kind, std::uint32_t row,
                                         const SupervisorState& state) {
  const bool walks = request_shape(kind).walks;
  if (walks && row == state.rows) {
    return encoded(kind, row, [](const OID& name, const Column& /*column*/) {
      return MakeVarBindWithValue(&name, nullptr, END_OF_MIB_VIEW_TYPE, nullptr);
    });
  }
  const std::uint32_t found = walks ? row + 1 : row;
  return encoded(kind, found, [&](const OID& name, const Column& column) {
    return with_value(name, column, kind == RequestKind::if_counters, found, state);
  });
}

}  // namespace tally::bench
