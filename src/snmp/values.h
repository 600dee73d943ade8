// The value records of SNMP: byte strings, object identifiers, 64-bit counters, variable bindings
// and PDUs (RFC 3416, RFC 1157), and what is known about each value and PDU tag.
//
// All records are plain blocks from malloc. make_lib.h makes them, free_lib.h frees them and has
// the owners for C++ callers. A record has one owner; nothing here is shared or locked.
// The members `room` and `in_binding` are for the library alone.
#pragma once

#include <cstdint>

namespace tally {

// OctetString is one block: the header, then the bytes, where `octet_ptr` points. A caller may move
// it on within them, set it to null, or point it at another block from malloc, which is then freed
// with the record.
struct OctetString {
  unsigned char* octet_ptr;
  std::int32_t length;      // bytes
  std::int32_t room = 0;    // bytes in the block after the header
  bool in_binding = false;  // part of the block of a decoded binding
};

// OID is one block: the header, then the sub-identifiers. `oid_ptr` may be changed in the same
// ways.
struct OID {
  std::int32_t length;  // sub-identifiers
  std::uint32_t* oid_ptr;
  std::int32_t room = 0;    // sub-identifiers in the block after the header
  bool in_binding = false;  // part of the block of a decoded binding
};

struct UInt64 {
  std::uint32_t big_end;     // the more significant half
  std::uint32_t little_end;  // the less significant half
};

// as_number returns the counter as one number.
constexpr std::uint64_t as_number(const UInt64& value) {
  return std::uint64_t{value.big_end} << 32 | value.little_end;
}

// BER tags of values, and of the SEQUENCE around a binding. 0x45 and 0x47 are illegal everywhere.
inline constexpr std::int16_t INTEGER_TYPE = 0x02;
inline constexpr std::int16_t OCTET_STRING_TYPE = 0x04;
inline constexpr std::int16_t NULL_TYPE = 0x05;
inline constexpr std::int16_t OBJECT_ID_TYPE = 0x06;
inline constexpr std::int16_t SEQUENCE_TYPE = 0x30;
inline constexpr std::int16_t IP_ADDR_PRIM_TYPE = 0x40;
inline constexpr std::int16_t COUNTER_32_TYPE = 0x41;
inline constexpr std::int16_t GAUGE_32_TYPE = 0x42;  // Unsigned32 as well
inline constexpr std::int16_t TIME_TICKS_TYPE = 0x43;
inline constexpr std::int16_t OPAQUE_TYPE = 0x44;
inline constexpr std::int16_t COUNTER_64_TYPE = 0x46;
inline constexpr std::int16_t NO_SUCH_OBJECT_TYPE = 0x80;
inline constexpr std::int16_t NO_SUCH_INSTANCE_TYPE = 0x81;
inline constexpr std::int16_t END_OF_MIB_VIEW_TYPE = 0x82;

// BER tags of PDUs.
inline constexpr std::int16_t GET_REQUEST_PDU = 0xA0;
inline constexpr std::int16_t GET_NEXT_REQUEST_PDU = 0xA1;
inline constexpr std::int16_t RESPONSE_PDU = 0xA2;
inline constexpr std::int16_t SET_REQUEST_PDU = 0xA3;
inline constexpr std::int16_t TRAP_PDU = 0xA4;  // the SNMPv1 form
inline constexpr std::int16_t GET_BULK_REQUEST_PDU = 0xA5;
inline constexpr std::int16_t INFORM_REQUEST_PDU = 0xA6;
inline constexpr std::int16_t SNMPV2_TRAP_PDU = 0xA7;
inline constexpr std::int16_t REPORT_PDU = 0xA8;

// VarBind is one name with its value. The sizes are those of whole encoded elements (tag, length
// field and content); BuildPdu brings them up to date. The name of a decoded binding, and an octet
// string that is its value, may be part of the binding's block and end with it: clone what is to
// outlive it.
struct VarBind {
  std::int32_t data_length;  // name_size + value_size: the content of the binding's SEQUENCE
  OID* name;                 // owned
  std::int16_t name_size;
  std::int16_t type;  // tag of the value
  union {
    std::uint32_t ul_value;  // Counter32, Gauge32, TimeTicks
    std::int32_t sl_value;   // INTEGER
    OID* oid_value;          // owned
    OctetString* os_value;   // owned: OCTET STRING, IpAddress, Opaque
    UInt64* uint64_value;    // owned: Counter64
  } value;
  std::int16_t value_size;
  VarBind* next_var;
};

// Pdu is a PDU in the request form or, for TRAP_PDU alone, in the trap form: `type` says which
// member of each union counts. In a GetBulk, non-repeaters travel in `error_status` and
// max-repetitions in `error_index`.
struct Pdu {
  OctetString* packlet;  // owned: the encoded PDU once BuildPdu has made it, else null
  std::int16_t type;
  std::int32_t num_varbinds;  // counted by the decoder only
  union {
    std::int32_t request_id;
    OID* enterprise;  // owned
  };
  union {
    std::int32_t error_status;
    OctetString* agent_addr;  // owned, 4 bytes
  };
  union {
    std::int32_t error_index;
    std::int32_t generic_trap;
  };
  std::int32_t specific_trap;
  std::uint32_t time_ticks;
  VarBind* var_bind_list;  // owned, with all that follow it
  VarBind* var_bind_end_ptr;
};

// ValueKind says which member of VarBind's union a value type uses, and so how it is encoded.
enum class ValueKind { illegal, integer, unsigned32, unsigned64, octets, oid, empty };

// value_kind returns the kind of value that a tag stands for, or `illegal`.
constexpr ValueKind value_kind(int type) {
  switch (type) {
    case INTEGER_TYPE:
      return ValueKind::integer;
    case COUNTER_32_TYPE:
    case GAUGE_32_TYPE:
    case TIME_TICKS_TYPE:
      return ValueKind::unsigned32;
    case COUNTER_64_TYPE:
      return ValueKind::unsigned64;
    case OCTET_STRING_TYPE:
    case IP_ADDR_PRIM_TYPE:
    case OPAQUE_TYPE:
      return ValueKind::octets;
    case OBJECT_ID_TYPE:
      return ValueKind::oid;
    case NULL_TYPE:
    case NO_SUCH_OBJECT_TYPE:
    case NO_SUCH_INSTANCE_TYPE:
    case END_OF_MIB_VIEW_TYPE:
      return ValueKind::empty;
    default:
      return ValueKind::illegal;
  }
}

enum class PduForm { illegal, request, trap };

// pdu_form returns the form of PDU that a tag stands for, or `illegal`.
constexpr PduForm pdu_form(int type) {
  if (type < GET_REQUEST_PDU || type > REPORT_PDU) return PduForm::illegal;
  return type == TRAP_PDU ? PduForm::trap : PduForm::request;
}

// No OID has more sub-identifiers (RFC 2578, section 3.5).
inline constexpr std::int32_t kMaxSubIds = 128;

}  // namespace tally
