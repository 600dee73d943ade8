#include "ber_vectors.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tally {
namespace {

// Repeats what stands before "*n" n times, with the blank or dot before it.
std::string unfold(const std::string& text) {
  std::string unfolded = " " + text;
  for (std::size_t star = 0; (star = unfolded.find('*')) != std::string::npos;) {
    const std::size_t start = unfolded.find_last_of(" .", star);
    const std::size_t end = unfolded.find_first_not_of("0123456789", star + 1);
    const std::string piece = unfolded.substr(start, star - start);
    std::string all;
    for (int times = std::stoi(unfolded.substr(star + 1)); times > 0; --times) all += piece;
    unfolded.replace(start, end == std::string::npos ? end : end - start, all);
  }
  return unfolded.substr(1);
}

// split cuts a text at the first blank.
std::pair<std::string, std::string> split(const std::string& text) {
  const std::size_t blank = text.find(' ');
  return {text.substr(0, blank), blank == std::string::npos ? "" : text.substr(blank + 1)};
}

BerVector begun(const std::string& line) {
  const std::size_t bar = line.find(" | ");
  if (bar == std::string::npos) throw std::runtime_error("no parser: " + line);
  BerVector vector;
  vector.name = line.substr(0, bar);
  const auto [parser, hex] = split(line.substr(bar + 3));
  vector.read = parser;
  vector.bytes = bytes_of(hex);
  return vector;
}

void set(BerVector& vector, const std::string& attribute, const std::string& text) {
  if (attribute == "log") {
    vector.log.push_back(text);
  } else if (attribute == "rest" && vector.rest == 0) {
    vector.rest = std::stoul(text);
  } else if (attribute == "write" && !vector.write) {
    vector.write = bytes_of(text);
  } else if ((attribute == "=" || attribute == "==") && vector.value == "refused") {
    vector.value = unfold(text);
    if (attribute == "==") vector.write = vector.bytes;
  } else {
    throw std::runtime_error("unknown or repeated: " + attribute + " " + text);
  }
}

}  // namespace

std::vector<BerVector> read_vectors(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::vector<BerVector> vectors;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] != ' ') {
      vectors.push_back(begun(line));
    } else {
      const auto [attribute, text] = split(line.substr(2));
      set(vectors.at(vectors.size() - 1), attribute, text);
    }
  }
  return vectors;
}

Bytes bytes_of(const std::string& text) {
  std::istringstream words(unfold(text));
  Bytes bytes;
  for (std::string word; words >> word;) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(word, nullptr, 16)));
  }
  return bytes;
}

std::string text_of(const unsigned char* bytes, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    char pair[8];
    std::snprintf(pair, sizeof pair, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += pair;
  }
  return text;
}

std::string text_of(const OctetString* string) {
  return text_of(string->octet_ptr, static_cast<std::size_t>(string->length));
}

std::string text_of(const OID* oid) {
  std::string text;
  for (std::int32_t i = 0; i < oid->length; ++i) {
    if (i > 0) text += '.';
    text += std::to_string(oid->oid_ptr[i]);
  }
  return text;
}

std::string text_of(const UInt64* value) {
  return std::to_string(as_number(*value));
}

std::string text_of(const VarBind* binding) {
  const std::string head = text_of(binding->name) + "=" + std::to_string(binding->type) + ":";
  switch (value_kind(binding->type)) {
    case ValueKind::integer:
      return head + std::to_string(binding->value.sl_value);
    case ValueKind::unsigned32:
      return head + std::to_string(binding->value.ul_value);
    case ValueKind::unsigned64:
      return head + text_of(binding->value.uint64_value);
    case ValueKind::octets:
      return head + text_of(binding->value.os_value);
    case ValueKind::oid:
      return head + text_of(binding->value.oid_value);
    case ValueKind::empty:
    case ValueKind::illegal:
      break;
  }
  return head;
}

std::string text_of(const Pdu* pdu) {
  std::ostringstream text;
  text << std::hex << std::uppercase << pdu->type << std::dec << ' ';
  if (pdu_form(pdu->type) == PduForm::trap) {
    text << text_of(pdu->enterprise) << ' ' << text_of(pdu->agent_addr) << ' ' << pdu->generic_trap
         << ' ' << pdu->specific_trap << ' ' << pdu->time_ticks;
  } else {
    text << pdu->request_id << ' ' << pdu->error_status << ' ' << pdu->error_index;
  }
  for (const VarBind* binding = pdu->var_bind_list; binding; binding = binding->next_var) {
    text << " [" << text_of(binding) << ']';
  }
  return text.str();
}

std::string text_of(const SnmpMessage* message) {
  std::ostringstream text;
  text << "status " << message->status << " version " << message->version;
  if (message->community != nullptr) {
    const std::string community = text_of(message->community);
    text << " community" << (community.empty() ? "" : " ") << community << " offset "
         << message->pdu_offset << " room " << message->max_pdu_size;
  }
  if (message->packlet != nullptr) {
    const std::string pdu = text_of(message->packlet);
    text << " pdu" << (pdu.empty() ? "" : " ") << pdu;
  }
  return text.str();
}

}  // namespace tally
