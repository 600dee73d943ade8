# The appliance's fixed paths, ports and names. They are settled when the daemon is built and
# stand once, in daemon/paths.h; nothing can be changed at run time.
set(TALLYD_DATA_DIRECTORY "/usr/local/apache/htdocs/tmp" CACHE STRING "Where the collection files live")
set(TALLYD_CONTROL_PIPE "/usr/local/qor/bin/tallyd_pipe" CACHE STRING "The control pipe")
set(TALLYD_PID_FILE "/tmp/tallyd.pid" CACHE STRING "The PID file")
set(TALLYD_PREFERENCES "/nvram/config/web/pref.dba" CACHE STRING "The preferences database")
set(TALLYD_AGENT_HOST "127.0.0.1" CACHE STRING "The agent's address")
set(TALLYD_AGENT_PORT "9911" CACHE STRING "The agent's TCP port")
set(TALLYD_OWNER "LocalMgr" CACHE STRING "Owner of the control rows that users ask for")
