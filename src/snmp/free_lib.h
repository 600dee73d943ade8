// Destructors of the value records, and owners for C++ callers.
//
// All take null. What a record owns is freed with it; a pointer into another block than the
// record's own is freed by itself (logs, for it is odd).
#pragma once

#include <memory>

#include "snmp/values.h"

namespace tally {

void FreeOctetString(OctetString* string);

// FreeOID leaves the name of a decoded binding, which is part of the binding's block, to
// FreeVarBind.
void FreeOID(OID* oid);

void FreeUInt64(UInt64* value);

// FreeVarBind frees the binding, its name and its value, not what is chained to it.
void FreeVarBind(VarBind* binding);

// FreeVarBindList frees the binding and all that are chained to it.
void FreeVarBindList(VarBind* list);

// FreePdu frees the PDU with its encoded bytes, its bindings and, by type, its trap fields.
void FreePdu(Pdu* pdu);

// Calls a Free routine; costs nothing in a unique_ptr.
template <auto free_record>
struct Freer {
  template <typename Record>
  void operator()(Record* record) const {
    free_record(record);
  }
};

using OctetStringPtr = std::unique_ptr<OctetString, Freer<FreeOctetString>>;
using OidPtr = std::unique_ptr<OID, Freer<FreeOID>>;
using UInt64Ptr = std::unique_ptr<UInt64, Freer<FreeUInt64>>;
using VarBindPtr = std::unique_ptr<VarBind, Freer<FreeVarBind>>;
using VarBindListPtr = std::unique_ptr<VarBind, Freer<FreeVarBindList>>;
using PduPtr = std::unique_ptr<Pdu, Freer<FreePdu>>;

}  // namespace tally
