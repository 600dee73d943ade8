// Constructors and copies of the value records (values.h).
//
// Every constructor returns a record that the caller owns and frees with its Free routine
// (free_lib.h), or null after it has logged and freed what it had built. On failure nothing is
// adopted: what the caller handed over by pointer stays the caller's. Thread-safe as far as
// `zn_pkt_size` is left alone and no log context is installed.
#pragma once

#include <cstdint>

#include "snmp/values.h"

namespace tally {

// The largest packet, in bytes, that is sent, received or built. Octet strings above
// kMaxOctets are possible only up to this size, and only when it exceeds kMaxOctets.
extern std::int32_t zn_pkt_size;
inline constexpr std::int32_t kMaxOctets = 2048;

// MakeOctetString copies `length` bytes, or makes as many zeros when `bytes` is null.
[[nodiscard]] OctetString* MakeOctetString(const unsigned char* bytes, std::int32_t length);

// MakeOctetString2 does the same and keeps six more zero bytes, not counted, behind the bytes, so
// that what reads the string as text finds its end.
[[nodiscard]] OctetString* MakeOctetString2(const unsigned char* bytes, std::int32_t length);

// MakeOctetStringFromText copies a text (null is empty). \n, \r and \t become line feed, carriage
// return and tab, a backslash before any other character vanishes; a last lone one stays.
[[nodiscard]] OctetString* MakeOctetStringFromText(const char* text);

// MakeOctetStringFromHex makes the bytes that a text of pairs of hex digits spells: "00:1b:21",
// "00 1b 21", "00-1b-21" or "001b21", also behind "0x". Any other text is refused.
[[nodiscard]] OctetString* MakeOctetStringFromHex(const char* text);

[[nodiscard]] OctetString* CloneOctetString(const OctetString* string);

// MakeOID copies `length` (0 to 128) sub-identifiers, or makes as many zeros when `sids` is null.
[[nodiscard]] OID* MakeOID(const std::uint32_t* sids, std::int32_t length);

// MakeCounter64 makes a 64-bit counter from its halves.
[[nodiscard]] UInt64* MakeCounter64(std::uint32_t big_end, std::uint32_t little_end);
[[nodiscard]] UInt64* CloneUInt64(const UInt64* value);

// MakeVarBindWithValue makes a binding named `object`, with the sub-identifiers of `instance`
// (may be null) behind it. `value` is
//   for 0x41 to 0x43   a pointer to std::uint32_t, read
//   for 0x02           a pointer to std::int32_t, read
//   for 0x06           an OID, adopted
//   for 0x04 0x40 0x44 an OctetString, adopted
//   for 0x46           a UInt64, adopted
//   for 0x05 0x80-0x82 ignored.
// Any other type is refused, a null value where one is needed too.
[[nodiscard]] VarBind* MakeVarBindWithValue(const OID* object, const OID* instance,
                                            std::int16_t type, void* value);

// MakeVarBindWithNull makes a binding with a NULL value, as Get and GetNext carry it.
[[nodiscard]] VarBind* MakeVarBindWithNull(const OID* object, const OID* instance);

// CloneVarBind copies one binding, deeply; the copy is linked to nothing. CloneVarBindList copies
// a whole chain in its order.
[[nodiscard]] VarBind* CloneVarBind(const VarBind* binding);
[[nodiscard]] VarBind* CloneVarBindList(const VarBind* list);

// MakePdu makes a PDU without bindings. A TRAP_PDU takes the last five arguments and adopts
// `enterprise` and `agent_addr`, both of which it needs; every other type takes the three request
// words and leaves those pointers to the caller.
[[nodiscard]] Pdu* MakePdu(std::int16_t type, std::int32_t request_id, std::int32_t error_status,
                           std::int32_t error_index, OID* enterprise, OctetString* agent_addr,
                           std::int32_t generic_trap, std::int32_t specific_trap,
                           std::uint32_t time_ticks);

// LinkVarBind puts a binding (with what is chained to it) behind those that the PDU has; the PDU
// owns it then. Returns 0, or -1 when the binding is null (logs).
int LinkVarBind(Pdu* pdu, VarBind* binding);

// MakeReqId returns a request id: the time in seconds modulo 32768. Two calls within a second
// return the same.
[[nodiscard]] std::int32_t MakeReqId();

}  // namespace tally
