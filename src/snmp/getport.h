// The UDP ports of SNMP.
//
// Each is looked up once, in the environment, then among the services, and keeps its first answer
// for the life of the process. Logs where it comes from. For one thread.
#pragma once

#include <cstdint>

namespace tally {

// GetSNMPPort returns the agent's port: ZN_SNMP_TEST_PORT in the environment, else the service
// "snmp", else 161.
[[nodiscard]] std::uint16_t GetSNMPPort();

// GetSNMPTrapPort returns the port for traps: ZN_TRAP_TEST_PORT in the environment, else one more
// than ZN_SNMP_TEST_PORT, else the service "snmp-trap", else 162.
[[nodiscard]] std::uint16_t GetSNMPTrapPort();

}  // namespace tally
