// The vectors of tests/data/ber.txt, and SNMP values as the text that they use.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "snmp/zn_msg.h"

namespace tally {

using Bytes = std::vector<unsigned char>;

struct BerVector {
  std::string name;
  std::string read;
  std::string value = "refused";
  std::size_t rest = 0;
  Bytes bytes;
  std::optional<Bytes> write;
  std::vector<std::string> log;
};

// read_vectors reads the file. Throws on an attribute that it does not know or that stands
// twice, so that no line of the file is overlooked.
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

}  // namespace tally
