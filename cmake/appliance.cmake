# The appliance's fixed paths, ports and names. They are set when the daemon is built, in
# daemon/base/paths.h, and cannot be changed at run time.
set(TALLYD_DATA_DIRECTORY "/usr/local/apache/htdocs/tmp" CACHE STRING "Where the collection files live")
set(TALLYD_CONTROL_PIPE "/usr/local/qor/bin/tallyd_pipe" CACHE STRING "The control pipe")
set(TALLYD_PID_FILE "/tmp/tallyd.pid" CACHE STRING "The PID file")
set(TALLYD_PREFERENCES "/nvram/config/web/pref.dba" CACHE STRING "The preferences database")
set(TALLYD_AGENT_HOST "127.0.0.1" CACHE STRING "The agent's address")
set(TALLYD_AGENT_PORT "9911" CACHE STRING "The agent's TCP port")
set(TALLYD_OWNER "LocalMgr" CACHE STRING "Owner of the control rows that users ask for")
set(TALLYD_NMP_SETTINGS "/nvram/config/web/nmp.dba" CACHE STRING "The supervisor settings database")
set(TALLYD_APPLIANCE_SETTINGS "/usr/local/qor/etc/qor_settings" CACHE STRING "The appliance settings file")
set(TALLYD_NMP_ADDRESS "127.0.0.11" CACHE STRING "The supervisor's address, unless the settings have one")
set(TALLYD_NMP_COMMUNITY "kivrel" CACHE STRING "The supervisor's community, unless the settings have one")
set(TALLYD_NMP_PORT "161" CACHE STRING "The supervisor's UDP port")
set(TALLYD_RMON_OWNER "monitor" CACHE STRING "Owner of the supervisor's control rows that are polled, and of the agent's that vlan and prio adopt, too")

# The column of the switch maker's private port table that holds a port's duplex mode: 13 numbers, to which
# module and port are appended. The MIB of the switch defines it; this default lies below the enterprise
# number that is reserved for documentation (RFC 5612).
set(TALLYD_PORT_TABLE_OID "1.3.6.1.4.1.32473.1.4.1.1.1.10" CACHE STRING "portDuplex, without module and port")
if(NOT TALLYD_PORT_TABLE_OID MATCHES "^(0|[1-9][0-9]*)(\\.(0|[1-9][0-9]*))*$") # 010 would be 8 in C++
  message(FATAL_ERROR "TALLYD_PORT_TABLE_OID is not a dotted object identifier: ${TALLYD_PORT_TABLE_OID}")
endif()
string(REPLACE "." ", " TALLYD_PORT_TABLE_SUBIDS "${TALLYD_PORT_TABLE_OID}")
