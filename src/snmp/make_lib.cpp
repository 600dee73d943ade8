#include "snmp/make_lib.h"

#include <cstring>
#include <ctime>
#include <utility>

#include "snmp/ber_size.h"
#include "snmp/debug.h"
#include "snmp/findlen.h"
#include "snmp/free_lib.h"
#include "snmp/oid_lib.h"
#include "snmp/record.h"

namespace tally {

std::int32_t zn_pkt_size = kMaxOctets;

namespace {

bool octets_fit(std::int32_t length) {
  if (length < 0) return false;
  return length <= kMaxOctets || (zn_pkt_size > kMaxOctets && length <= zn_pkt_size);
}

// Makes an octet string with `spare` zero bytes after it. Null on failure (logs).
OctetString* make_octets(const char* maker, const unsigned char* bytes, std::int32_t length,
                         std::size_t spare) {
  if (!octets_fit(length)) {
    ZN_LOG(APPACKET, "%s: Bad octetstring length: %d\n", maker, length);
    return nullptr;
  }
  const auto size = static_cast<std::size_t>(length);
  OctetString* const string = new_record<OctetString>(size + spare);
  if (string == nullptr) {
    ZN_LOG(APWARN, "%s, os_ptr malloc\n", maker);
    return nullptr;
  }
  *string = {own_bytes(string), length, static_cast<std::int32_t>(size + spare)};
  if (bytes != nullptr) {
    std::memcpy(string->octet_ptr, bytes, size);
    std::memset(string->octet_ptr + size, 0, spare);
  } else {
    std::memset(string->octet_ptr, 0, size + spare);
  }
  return string;
}

// Returns true, and logs, when there is nothing to clone.
bool missing(const void* value, const char* cloner) {
  if (value == nullptr) ZN_LOG(APWARN, "%s: value passed in is NULL\n", cloner);
  return value == nullptr;
}

// Value of a hex digit, or -1.
int hex_digit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

// Reads pairs of hex digits into `bytes`, or only counts them when that is null. Returns how many
// there are, or -1 when the text is malformed or longer than any octet string.
std::int32_t read_hex(const char* text, unsigned char* bytes) {
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
  std::int32_t count = 0;
  while (*text != '\0') {
    if (count > 0 && std::strchr(" :-", *text) != nullptr) ++text;
    const int high = hex_digit(text[0]);
    const int low = high < 0 ? -1 : hex_digit(text[1]);
    if (low < 0 || !octets_fit(count + 1)) return -1;
    if (bytes != nullptr) bytes[count] = static_cast<unsigned char>(high * 16 + low);
    ++count;
    text += 2;
  }
  return count;
}

// Makes a binding that has its name but no value yet. Null on failure (logs).
VarBindPtr named_binding(const OID* object, const OID* instance, const char* maker,
                         const char* no_memory) {
  if (object == nullptr) {
    ZN_LOG(APWARN, "%s: Null object OID.\n", maker);
    return nullptr;
  }
  VarBindPtr binding(new_record<VarBind>());
  if (binding == nullptr) {
    ZN_LOG(APWARN, "%s", no_memory);
    return nullptr;
  }
  binding->name = instance != nullptr ? CatOID(object, instance) : CloneOID(object);
  if (binding->name == nullptr) {
    ZN_LOG(APWARN, "%s: cannot malloc vb->name.\n", maker);
    return nullptr;
  }
  return binding;
}

// A part of a decoded binding cannot be adopted: a copy is.
template <typename Record>
Record* adopted(Record* record, Record* (*clone)(const Record*)) {
  return record != nullptr && record->in_binding ? clone(record) : record;
}

// Sets the sizes of a binding once it has its value. Returns null when name or value has no
// encoding (logs); `value`, if it was adopted, then stays the caller's.
VarBind* measured(VarBindPtr binding, const void* value) {
  binding->name_size = FindLenOID(binding->name);
  binding->value_size = value_size(*binding);
  if (binding->name_size < 0 || binding->value_size < 0) {
    if (binding->value.os_value == value) binding->type = NULL_TYPE;
    return nullptr;
  }
  binding->data_length = binding->name_size + binding->value_size;
  return binding.release();
}

// Copies the value of a binding by its type. False when memory is short or the value is missing.
bool clone_value(const VarBind& from, VarBind& to) {
  to.type = from.type;
  switch (value_kind(from.type)) {
    case ValueKind::oid:
      to.value.oid_value =
          from.value.oid_value == nullptr ? nullptr : CloneOID(from.value.oid_value);
      return to.value.oid_value != nullptr;
    case ValueKind::octets:
      to.value.os_value = CloneOctetString(from.value.os_value);
      return to.value.os_value != nullptr;
    case ValueKind::unsigned64:
      to.value.uint64_value = CloneUInt64(from.value.uint64_value);
      return to.value.uint64_value != nullptr;
    default:
      break;
  }
  to.value = from.value;
  return true;
}

}  // namespace

OctetString* MakeOctetString(const unsigned char* bytes, std::int32_t length) {
  return make_octets("MakeOctetString", bytes, length, 0);
}

OctetString* MakeOctetString2(const unsigned char* bytes, std::int32_t length) {
  return make_octets("MakeOctetString2", bytes, length, 6);
}

OctetString* MakeOctetStringFromText(const char* text) {
  if (text == nullptr) text = "";
  const std::size_t room = std::strlen(text);
  // A text beyond 2 GiB gets a length that is refused.
  OctetString* const string =
      MakeOctetString(nullptr, room > INT32_MAX ? -1 : static_cast<std::int32_t>(room));
  if (string == nullptr) return nullptr;
  unsigned char* next = string->octet_ptr;
  for (std::size_t i = 0; i < room; ++i) {
    char byte = text[i];
    if (byte == '\\' && i + 1 < room) {
      byte = text[++i];
      if (byte == 'n')
        byte = '\n';
      else if (byte == 'r')
        byte = '\r';
      else if (byte == 't')
        byte = '\t';
    }
    *next++ = static_cast<unsigned char>(byte);
  }
  string->length = static_cast<std::int32_t>(next - string->octet_ptr);
  return string;
}

OctetString* MakeOctetStringFromHex(const char* text) {
  if (text == nullptr) text = "";
  const std::int32_t length = read_hex(text, nullptr);
  if (length < 0) {
    ZN_LOG(APPACKET, "MakeOctetStringFromHex: Bad hex text: %s\n", text);
    return nullptr;
  }
  OctetString* const string = MakeOctetString(nullptr, length);
  if (string != nullptr) read_hex(text, string->octet_ptr);
  return string;
}

OctetString* CloneOctetString(const OctetString* string) {
  if (missing(string, "CloneOctetString")) return nullptr;
  return MakeOctetString(string->octet_ptr, string->length);
}

OID* MakeOID(const std::uint32_t* sids, std::int32_t length) {
  if (length < 0 || length > kMaxSubIds) {
    ZN_LOG(APPACKET, "MakeOID: Bad sid string length: %d\n", length);
    return nullptr;
  }
  const std::size_t size = static_cast<std::size_t>(length) * sizeof(std::uint32_t);
  OID* const oid = new_record<OID>(size);
  if (oid == nullptr) {
    ZN_LOG(APWARN, "MakeOID, oid malloc failed\n");
    return nullptr;
  }
  *oid = {length, own_sids(oid), length};
  if (sids != nullptr) {
    std::memcpy(oid->oid_ptr, sids, size);
  } else {
    std::memset(oid->oid_ptr, 0, size);
  }
  return oid;
}

UInt64* MakeCounter64(std::uint32_t big_end, std::uint32_t little_end) {
  auto* const counter = new_record<UInt64>();
  if (counter == nullptr) {
    ZN_LOG(APWARN, "MakeCounter64, counter64 malloc failed\n");
    return nullptr;
  }
  *counter = {big_end, little_end};
  return counter;
}

UInt64* CloneUInt64(const UInt64* value) {
  if (missing(value, "CloneUInt64")) return nullptr;
  auto* const copy = new_record<UInt64>();
  if (copy == nullptr) {
    ZN_LOG(APWARN, "CloneUInt64: Cannot malloc return_val\n");
    return nullptr;
  }
  *copy = *value;
  return copy;
}

VarBind* MakeVarBindWithValue(const OID* object, const OID* instance, std::int16_t type,
                              void* value) {
  VarBindPtr binding =
      named_binding(object, instance, "MakeVarBindWithValue", "MakeVarBindWithValue: vb malloc\n");
  if (binding == nullptr) return nullptr;

  // For every other kind the size routine refuses a null value.
  const ValueKind kind = value_kind(type);
  if (value == nullptr && (kind == ValueKind::integer || kind == ValueKind::unsigned32)) {
    ZN_LOG(APWARN, "%s: Null value.\n", "MakeVarBindWithValue");
    return nullptr;
  }
  switch (kind) {
    case ValueKind::integer:
      std::memcpy(&binding->value.sl_value, value, sizeof(std::int32_t));
      break;
    case ValueKind::unsigned32:
      std::memcpy(&binding->value.ul_value, value, sizeof(std::uint32_t));
      break;
    case ValueKind::unsigned64:
      binding->value.uint64_value = static_cast<UInt64*>(value);
      break;
    case ValueKind::octets:
      binding->value.os_value = adopted(static_cast<OctetString*>(value), CloneOctetString);
      break;
    case ValueKind::oid:
      binding->value.oid_value = adopted(static_cast<OID*>(value), CloneOID);
      break;
    case ValueKind::empty:
      break;
    case ValueKind::illegal:
      ZN_LOG(APPACKET, "%s: Illegal type: 0x%x\n", "MakeVarBindWithValue",
             static_cast<unsigned>(type));
      return nullptr;
  }
  binding->type = type;
  return measured(std::move(binding), value);
}

VarBind* MakeVarBindWithNull(const OID* object, const OID* instance) {
  VarBindPtr binding =
      named_binding(object, instance, "MakeVarBindWithNull", "MakeVarBindWithNull, vb malloc\n");
  if (binding == nullptr) return nullptr;
  binding->type = NULL_TYPE;
  return measured(std::move(binding), nullptr);
}

VarBind* CloneVarBind(const VarBind* binding) {
  if (missing(binding, "CloneVarBind")) return nullptr;
  VarBindPtr copy(new_record<VarBind>());
  if (copy == nullptr) {
    ZN_LOG(APWARN, "%s: vb malloc\n", "CloneVarBind");
    return nullptr;
  }
  copy->name = binding->name == nullptr ? nullptr : CloneOID(binding->name);
  if (copy->name == nullptr) {
    ZN_LOG(APWARN, "%s: Unable to clone vb->name\n", "CloneVarBind");
    return nullptr;
  }
  if (!clone_value(*binding, *copy)) {
    ZN_LOG(APWARN, "%s: Unable to clone vb->value\n", "CloneVarBind");
    return nullptr;
  }
  copy->name_size = binding->name_size;
  copy->value_size = binding->value_size;
  copy->data_length = binding->data_length;
  return copy.release();
}

VarBind* CloneVarBindList(const VarBind* list) {
  if (missing(list, "CloneVarBindList")) return nullptr;
  VarBindListPtr head;
  VarBind* tail = nullptr;
  for (; list != nullptr; list = list->next_var) {
    VarBind* const copy = CloneVarBind(list);
    if (copy == nullptr) return nullptr;
    if (tail == nullptr) {
      head.reset(copy);
    } else {
      tail->next_var = copy;
    }
    tail = copy;
  }
  return head.release();
}

Pdu* MakePdu(std::int16_t type, std::int32_t request_id, std::int32_t error_status,
             std::int32_t error_index, OID* enterprise, OctetString* agent_addr,
             std::int32_t generic_trap, std::int32_t specific_trap, std::uint32_t time_ticks) {
  PduPtr pdu(new_record<Pdu>());
  if (pdu == nullptr) {
    ZN_LOG(APWARN, "MakePdu, pdu_ptr malloc\n");
    return nullptr;
  }
  switch (pdu_form(type)) {
    case PduForm::request:
      pdu->request_id = request_id;
      pdu->error_status = error_status;
      pdu->error_index = error_index;
      break;
    case PduForm::trap:
      if (enterprise == nullptr) {
        ZN_LOG(APWARN, "MakePdu: Trap type but no Enterprise.\n");
        return nullptr;
      }
      if (agent_addr == nullptr) {
        ZN_LOG(APWARN, "MakePdu: Trap type but no Agent_addr.\n");
        return nullptr;
      }
      pdu->enterprise = adopted(enterprise, CloneOID);
      pdu->agent_addr = adopted(agent_addr, CloneOctetString);
      if (pdu->enterprise == nullptr || pdu->agent_addr == nullptr) {  // no memory for a copy
        if (pdu->enterprise != enterprise) FreeOID(pdu->enterprise);
        if (pdu->agent_addr != agent_addr) FreeOctetString(pdu->agent_addr);
        return nullptr;
      }
      pdu->generic_trap = generic_trap;
      pdu->specific_trap = specific_trap;
      pdu->time_ticks = time_ticks;
      break;
    case PduForm::illegal:
      ZN_LOG(APPACKET, "MakePdu: illegal type: 0x%x\n", static_cast<unsigned>(type));
      return nullptr;
  }
  pdu->type = type;
  return pdu.release();
}

int LinkVarBind(Pdu* pdu, VarBind* binding) {
  if (pdu == nullptr || binding == nullptr) {
    ZN_LOG(APWARN, "LinkVarBind: Trying to add Null Variable\n");
    return -1;
  }
  if (pdu->var_bind_list == nullptr) {
    pdu->var_bind_list = binding;
  } else {
    pdu->var_bind_end_ptr->next_var = binding;
  }
  while (binding->next_var != nullptr) binding = binding->next_var;
  pdu->var_bind_end_ptr = binding;
  return 0;
}

std::int32_t MakeReqId() {
  return static_cast<std::int32_t>(std::time(nullptr) & 0x7FFF);
}

}  // namespace tally
