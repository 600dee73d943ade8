// SNMP messages: a PDU with its version and its community around it (RFC 1901, RFC 1157).
//
// Which versions there are is the application's choice: it fills an SnmpVersionTable with a parse
// and a build function per version number and hands it to the routines here. v1_msg.h has the
// functions for community messages. Thread-safe as far as no log context is installed.
#pragma once

#include <cstdint>

#include "snmp/free_lib.h"
#include "snmp/values.h"

namespace tally {

// Values of SnmpMessage::status.
inline constexpr std::int32_t kParseSuccess = 0;
inline constexpr std::int32_t kParseAsn1Error =
    9;  // outer SEQUENCE, its length, version, community
inline constexpr std::int32_t kParseBadVersion = 10;  // not in the table
inline constexpr std::int32_t kParseNoPacklet = 13;   // the PDU's bytes could not be copied

struct SnmpMessage {
  OctetString* packlet;       // owned: built, the whole message; parsed, the bytes of the PDU alone
  std::int32_t status;        // of the parse
  void* context;              // as given at creation
  std::int32_t version;       // -1 until parsed; 0 SNMPv1, 1 SNMPv2c
  std::int32_t pdu_offset;    // of the PDU in the parsed packet
  std::int32_t max_pdu_size;  // room that a packet leaves for a reply PDU
  OctetString* community;     // owned

  // For version 2, whose messages name parties, and version 3, whose messages name users. Owned,
  // null here: an application that registers such a version fills them.
  OID* source_party;
  OID* destination_party;
  OID* party_context;
  OctetString* engine_id;
  OctetString* user_name;
  OctetString* context_name;

  // While a message is parsed: what comes next, one past the last byte that counts, and the end
  // of the outer SEQUENCE.
  const unsigned char* wptr;
  const unsigned char* end_ptr;
  const unsigned char* seq_end;
};

struct SnmpVersionTable;

// An SnmpParseFunction parses what follows the version, from `wptr` to `end_ptr`, into `packlet`
// and the version's own members, or sets `status`. `arg` is the row's, the others are passed on.
using SnmpParseFunction = void (*)(SnmpMessage* message, const SnmpVersionTable* table, void* arg,
                                   void* arg2, void* arg3, const unsigned char* bytes,
                                   std::int32_t length);

// An SnmpBuildFunction encodes the message with an encoded PDU into `packlet`, which is null.
// Returns 0 or -1.
using SnmpBuildFunction = int (*)(SnmpMessage* message, const Pdu* pdu, void* arg);

inline constexpr std::int32_t kMaxVersions = 4;

// SnmpVersionTable lists versions in its first `count` rows; the arrays are parallel.
struct SnmpVersionTable {
  std::int32_t count;
  std::int32_t version[kMaxVersions];
  void* arg[kMaxVersions];
  SnmpParseFunction parse[kMaxVersions];
  SnmpBuildFunction build[kMaxVersions];
};

// ZnBuildSnmpMessage encodes a message around a PDU that BuildPdu has encoded, into `packlet`,
// freeing what was there. Returns 0, or -1 (logs; `packlet` is null).
[[nodiscard]] int ZnBuildSnmpMessage(SnmpMessage* message, const Pdu* pdu,
                                     const SnmpVersionTable* table);

// ZnParseSnmpMessage parses a packet. The caller owns what it returns: a record for any bytes, or
// null when there is no memory for one (logs). Where the packet is not a message, `packlet` is null
// and `status` tells why. Bytes after the outer SEQUENCE are ignored. The message does not keep
// `bytes`, except in `wptr`, `end_ptr` and `seq_end`.
[[nodiscard]] SnmpMessage* ZnParseSnmpMessage(const SnmpVersionTable* table, void* arg2, void* arg3,
                                              const unsigned char* bytes, std::int32_t length);

// ZnFreeSnmpMessage frees a message and all that it owns; null is allowed.
void ZnFreeSnmpMessage(SnmpMessage* message);

using SnmpMessagePtr = std::unique_ptr<SnmpMessage, Freer<ZnFreeSnmpMessage>>;

}  // namespace tally
