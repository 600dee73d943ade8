#include "snmp/findlen.h"

#include "snmp/debug.h"

namespace tally {
namespace {

// Size of an element with `content` bytes, or -1 when that does not fit 16 bits.
std::int32_t element_size(std::int32_t content) {
  const std::int16_t length_size = DoLenLen(content);
  if (length_size < 0 || content > INT16_MAX - 1 - length_size) return -1;
  return content + length_size + 1;
}

}  // namespace

std::int16_t DoLenLen(std::int32_t length) {
  const auto size = static_cast<std::uint32_t>(length);  // a negative length is too large
  if (size <= 0x7F) return 1;
  if (size <= 0xFF) return 2;
  if (size <= 0xFFFF) return 3;
  if (size <= 0xFFFFFF) return 4;
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
  if (value == nullptr) return -1;
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
  std::int32_t content = 1;
  for (std::int32_t i = 2; i < oid->length; ++i) content += subid_size(oid->oid_ptr[i]);
  return content;
}

std::int16_t FindLenOID(const OID* oid) {
  const std::int32_t content = oid_content(oid);
  const std::int32_t size = content < 0 ? -1 : element_size(content);
  if (size < 0) ZN_LOG(APPACKET, "FindLenOID, lenlen\n");
  return static_cast<std::int16_t>(size);
}

std::int16_t FindLenVarBind(VarBind* list) {
  std::int32_t total = 0;
  for (; list != nullptr; list = list->next_var) {
    list->data_length = list->name_size + list->value_size;
    const std::int32_t size = element_size(list->data_length);
    if (size < 0 || total > INT16_MAX - size) {
      ZN_LOG(APPACKET, "FindLenVarBind, lenlen\n");
      return -1;
    }
    total += size;
  }
  return static_cast<std::int16_t>(total);
}

}  // namespace tally
