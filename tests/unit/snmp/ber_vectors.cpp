#include "ber_vectors.h"

#include <cstdio>
#include <fstream>
#include <regex>
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

}  // namespace

std::vector<BerVector> read_vectors(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  const std::regex head("(.*) \\| (\\S+) ?(.*)");
  std::vector<BerVector> vectors;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == ' ') {
      std::string& outcome = vectors.at(vectors.size() - 1).outcome;
      if (!outcome.empty()) outcome += '|';
      outcome += unfold(line.substr(line.starts_with("  log ") ? 6 : 2));
      continue;
    }
    std::smatch parts;
    if (!std::regex_match(line, parts, head)) throw std::runtime_error("no parser: " + line);
    vectors.push_back({parts[1], parts[2], bytes_of(parts[3]), {}});
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
  std::string text = text_of(binding->name) + "=" + std::to_string(binding->type) + ":";
  const auto& value = binding->value;
  const ValueKind kind = value_kind(binding->type);
  if (kind == ValueKind::integer) text += std::to_string(value.sl_value);
  if (kind == ValueKind::unsigned32) text += std::to_string(value.ul_value);
  if (kind == ValueKind::unsigned64) text += text_of(value.uint64_value);
  if (kind == ValueKind::octets) text += text_of(value.os_value);
  if (kind == ValueKind::oid) text += text_of(value.oid_value);
  return text;
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

OidPtr oid(std::initializer_list<std::uint32_t> sids) {
  return OidPtr(MakeOID(std::data(sids), static_cast<std::int32_t>(sids.size())));
}

PduPtr every_type(std::int16_t pdu_type) {
  PduPtr pdu(MakePdu(pdu_type, 7, 0, 0, nullptr, nullptr, 0, 0, 0));
  const OidPtr object = oid({1, 3, 6});
  for (std::int16_t type = 0; type < 0x100; ++type) {
    const ValueKind kind = value_kind(type);
    if (kind == ValueKind::illegal) continue;
    std::uint32_t number = 0x80000001;
    void* value = &number;
    if (kind == ValueKind::octets) value = MakeOctetStringFromText("abcd");
    if (kind == ValueKind::oid) value = oid({1, 3, 4}).release();
    if (kind == ValueKind::unsigned64) value = MakeCounter64(1, 2);
    const OidPtr instance = oid({static_cast<std::uint32_t>(type)});
    LinkVarBind(pdu.get(), MakeVarBindWithValue(object.get(), instance.get(), type, value));
  }
  return BuildPdu(pdu.get()) == 0 ? std::move(pdu) : nullptr;
}

SnmpMessagePtr message_of(const Pdu& pdu, const std::string& community) {
  OctetStringPtr name(MakeOctetStringFromText(community.c_str()));
  SnmpMessagePtr message(name ? ZnCreateV2cSnmpMessage(name.get(), nullptr) : nullptr);
  if (message == nullptr) return nullptr;
  name.release();  // the message has adopted it
  return ZnBuildSnmpMessage(message.get(), &pdu, &kV2cOnly) == 0 ? std::move(message) : nullptr;
}

}  // namespace tally
