#include "snmp/v2c_cmsg.h"

#include "snmp/debug.h"
#include "snmp/make_lib.h"
#include "snmp/record.h"

namespace tally {

SnmpMessage* ZnCreateV2cSnmpMessage(OctetString* community, void* context) {
  SnmpMessagePtr message(new_record<SnmpMessage>());
  if (message == nullptr) {
    ZN_LOG(APWARN, "%s:  snmp_msg malloc\n", "ZnCreateV2cSnmpMessage");
    return nullptr;
  }
  if (context == nullptr && (community == nullptr || !community->in_binding)) {
    message->community = community;
  } else {
    message->community = CloneOctetString(community);
    if (message->community == nullptr) {
      ZN_LOG(APWARN, "%s:  snmp_msg->community malloc\n", "ZnCreateV2cSnmpMessage");
      return nullptr;
    }
  }
  message->context = context;
  message->version = 1;
  return message.release();
}

}  // namespace tally
