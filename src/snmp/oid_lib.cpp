#include "snmp/oid_lib.h"

#include <algorithm>

#include "snmp/debug.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally {

OID* CatOID(const OID* first, const OID* second) {
  const std::int64_t head = first == nullptr ? 0 : first->length;
  const std::int64_t tail = second == nullptr ? 0 : second->length;
  if (head < 0 || tail < 0 || head + tail > kMaxSubIds) {
    ZN_LOG(APPACKET, "CatOID: Too long: %d\n", static_cast<int>(head + tail));
    return nullptr;
  }
  OID* const oid = MakeOID(nullptr, static_cast<std::int32_t>(head + tail));
  if (oid == nullptr) {
    ZN_LOG(APWARN, "CatOID, MakeOID failed\n");
    return nullptr;
  }
  if (head > 0) std::copy_n(first->oid_ptr, head, oid->oid_ptr);
  if (tail > 0) std::copy_n(second->oid_ptr, tail, oid->oid_ptr + head);
  return oid;
}

OID* CloneOID(const OID* oid) {
  return oid == nullptr ? MakeOID(nullptr, 0) : MakeOID(oid->oid_ptr, oid->length);
}

OID* MakeLenOID(const std::uint32_t* sids, std::int32_t length) {
  if (length < 0) {
    ZN_LOG(APPACKET, "MakeLenOID: Bad sid string length: %d\n", length);
    return nullptr;
  }
  if (sids == nullptr) length = 0;
  auto count = static_cast<std::uint32_t>(length);
  const OID head = {1, &count};
  const OID tail = {length, const_cast<std::uint32_t*>(sids)};  // CatOID only reads it
  return CatOID(&head, &tail);
}

OID* MakeOIDSubLen(const std::uint32_t* sids, std::int32_t length) {
  const bool counted = sids != nullptr && length > 0;
  if (!counted || sids[0] > static_cast<std::uint32_t>(length - 1)) {
    ZN_LOG(APPACKET, "MakeOIDSubLen: Bad sid string length: %d\n", length);
    return nullptr;
  }
  return MakeOID(sids + 1, static_cast<std::int32_t>(sids[0]));
}

OID* MakeOIDFromHex(const char* text) {
  const OctetStringPtr bytes(MakeOctetStringFromHex(text));
  if (bytes == nullptr) return nullptr;
  OID* const oid = MakeOID(nullptr, bytes->length);
  if (oid == nullptr) return nullptr;
  std::copy_n(bytes->octet_ptr, bytes->length, oid->oid_ptr);
  return oid;
}

}  // namespace tally
