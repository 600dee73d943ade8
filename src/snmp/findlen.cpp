#include "snmp/findlen.h"

#include <span>

#include "snmp/ber_size.h"
#include "snmp/debug.h"

namespace tally {
namespace {

// Size of an element with `content` bytes, or -1 when that does not fit 16 bits.
std::int32_t element_size(std::int32_t content) {
  if (content < 0 || content > kMaxLength) return DoLenLen(content);  // logs
  const std::int32_t size = content + length_size(content) + 1;
  return size > INT16_MAX ? -1 : size;
}

}  // namespace

std::int16_t DoLenLen(std::int32_t length) {
  if (length >= 0 && length <= kMaxLength) return length_size(length);
  ZN_LOG(APPACKET, "Lenlen: Length greater than 0x01000000???\n");
  return -1;
}

std::int16_t FindLenInt(std::int32_t value) {
  return static_cast<std::int16_t>(int_content(value) + 2);
}

std::int16_t FindLenUInt(std::uint32_t value) {
  return static_cast<std::int16_t>(uint_content(value) + 2);
}

std::int16_t FindLenUInt64(const UInt64* value) {
  if (value == nullptr) {
    ZN_LOG(APPACKET, "FindLenUInt64, NULL input\n");
    return -1;
  }
  return static_cast<std::int16_t>(uint_content(as_number(*value)) + 2);
}

std::int16_t FindLenOctetString(const OctetString* string) {
  if (string == nullptr) {
    ZN_LOG(APPACKET, "FindLenOctetString, NULL input\n");
    return -1;
  }
  const std::int32_t size = element_size(string->length);
  if (size < 0) ZN_LOG(APPACKET, "FindLenOctetString, lenlen\n");
  return static_cast<std::int16_t>(size);
}

std::int32_t oid_content(const OID* oid) {
  if (oid == nullptr || oid->length > INT16_MAX) return -1;
  if (oid->length < 3 || oid->oid_ptr == nullptr) return 1;
  std::int32_t content = oid->length - 1;  // one for the first two, at least one for each other
  for (const std::uint32_t subid : std::span(oid->oid_ptr + 2, oid->oid_ptr + oid->length)) {
    if (subid > 0x7F) content += subid_size(subid) - 1;
  }
  return content;
}

std::int16_t FindLenOID(const OID* oid) {
  const std::int32_t content = oid_content(oid);
  const std::int32_t size = content < 0 ? -1 : element_size(content);
  if (size < 0) ZN_LOG(APPACKET, "FindLenOID, lenlen\n");
  return static_cast<std::int16_t>(size);
}

std::int16_t value_size(const VarBind& binding) {
  switch (value_kind(binding.type)) {
    case ValueKind::integer:
      return FindLenInt(binding.value.sl_value);
    case ValueKind::unsigned32:
      return FindLenUInt(binding.value.ul_value);
    case ValueKind::unsigned64:
      return FindLenUInt64(binding.value.uint64_value);
    case ValueKind::octets:
      return FindLenOctetString(binding.value.os_value);
    case ValueKind::oid:
      return FindLenOID(binding.value.oid_value);
    default:
      return 2;
  }
}

std::int16_t FindLenVarBind(VarBind* list) {
  std::int32_t total = 0;
  for (; list != nullptr; list = list->next_var) {
    list->data_length = list->name_size + list->value_size;
    const bool measured = list->name_size >= 0 && list->value_size >= 0;
    const std::int32_t size = measured ? element_size(list->data_length) : -1;
    if (size < 0 || total > INT16_MAX - size) {
      ZN_LOG(APPACKET, "FindLenVarBind, lenlen\n");
      return -1;
    }
    total += size;
  }
  return static_cast<std::int16_t>(total);
}

}  // namespace tally
