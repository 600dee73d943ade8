// The whole SNMP library.
#pragma once

#include "snmp/bld_pkt.h"   // IWYU pragma: export
#include "snmp/debug.h"     // IWYU pragma: export
#include "snmp/findlen.h"   // IWYU pragma: export
#include "snmp/free_lib.h"  // IWYU pragma: export
#include "snmp/getport.h"   // IWYU pragma: export
#include "snmp/gettime.h"   // IWYU pragma: export
#include "snmp/make_lib.h"  // IWYU pragma: export
#include "snmp/oid_lib.h"   // IWYU pragma: export
#include "snmp/prse_pkt.h"  // IWYU pragma: export
#include "snmp/snmpio.h"    // IWYU pragma: export
#include "snmp/v1_msg.h"    // IWYU pragma: export
#include "snmp/v2c_cmsg.h"  // IWYU pragma: export
#include "snmp/values.h"    // IWYU pragma: export
#include "snmp/zn_msg.h"    // IWYU pragma: export
