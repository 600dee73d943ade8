// The vectors of tests/data/ber.txt, SNMP values as the text that they use, and values that several
// tests need.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "snmp/snmp.h"

namespace tally {

using Bytes = std::vector<unsigned char>;

struct BerVector {
  std::string name;
  std::string parser;
  Bytes bytes;
  std::string outcome;  // the lines below it, a bar between them, without the word "log"
};

inline const SnmpVersionTable kV2cOnly = {
    1, {1}, {}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};

std::vector<BerVector> read_vectors(const std::string& path);

// bytes_of reads "0A ff 55*200"; text_of writes bytes in that way, without repetition.
Bytes bytes_of(const std::string& text);
std::string text_of(const unsigned char* bytes, std::size_t size);
std::string text_of(const OctetString* string);
std::string text_of(const OID* oid);
std::string text_of(const UInt64* value);
std::string text_of(const VarBind* binding);
std::string text_of(const Pdu* pdu);
std::string text_of(const SnmpMessage* message);

// oid makes an OID.
OidPtr oid(std::initializer_list<std::uint32_t> sids);

// every_type builds a PDU in the request form with request id 7 and one binding of every value
// type, in the order of the tags, each named 1.3.6.TAG. Null when it cannot be built.
PduPtr every_type(std::int16_t pdu_type);

// message_of builds a message of SNMPv2c around a built PDU. Null when it cannot be built.
SnmpMessagePtr message_of(const Pdu& pdu, const std::string& community);

}  // namespace tally
