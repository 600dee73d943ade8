#include "sample_pdu.h"

#include "snmp/make_lib.h"

namespace tally {

OidPtr oid(std::initializer_list<std::uint32_t> sids) {
  return OidPtr(MakeOID(std::data(sids), static_cast<std::int32_t>(sids.size())));
}

PduPtr every_type(std::int16_t pdu_type) {
  PduPtr pdu(MakePdu(pdu_type, 7, 0, 0, nullptr, nullptr, 0, 0, 0));
  const OidPtr object = oid({1, 3, 6});
  for (std::int16_t type = 0; type < 0x100; ++type) {
    std::uint32_t number = 0x80000001;
    void* value = &number;
    switch (value_kind(type)) {
      case ValueKind::illegal:
        continue;
      case ValueKind::octets:
        value = MakeOctetStringFromText("abcd");
        break;
      case ValueKind::oid:
        value = oid({1, 3, 4}).release();
        break;
      case ValueKind::unsigned64:
        value = MakeCounter64(1, 2);
        break;
      default:
        break;
    }
    const OidPtr instance = oid({static_cast<std::uint32_t>(type)});
    LinkVarBind(pdu.get(), MakeVarBindWithValue(object.get(), instance.get(), type, value));
  }
  return pdu;
}

}  // namespace tally
