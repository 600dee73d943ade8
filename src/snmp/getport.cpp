#include "snmp/getport.h"

#include <netdb.h>
#include <netinet/in.h>

#include <cstdlib>

#include "snmp/debug.h"

namespace tally {
namespace {

constexpr std::uint16_t kSnmpPort = 161;
constexpr std::uint16_t kSnmpTrapPort = 162;
constexpr char kSnmpVariable[] = "ZN_SNMP_TEST_PORT";
constexpr char kTrapVariable[] = "ZN_TRAP_TEST_PORT";

// Reads a port from the environment. False when the variable is not set; text other than a number
// gives port 0.
bool port_from_environment(const char* variable, std::uint16_t& port) {
  const char* const text = std::getenv(variable);
  if (text == nullptr) return false;
  port = static_cast<std::uint16_t>(std::strtoul(text, nullptr, 10));
  return true;
}

// Looks up a UDP service. False when there is none by that name.
bool port_from_services(const char* service, std::uint16_t& port) {
  const servent* const entry = getservbyname(service, "udp");
  if (entry == nullptr) return false;
  port = ntohs(static_cast<std::uint16_t>(entry->s_port));
  return true;
}

std::uint16_t find_snmp_port() {
  std::uint16_t port = kSnmpPort;
  if (port_from_environment(kSnmpVariable, port)) {
    ZN_LOG(APTRACE, "%s: snmp port is %d from getenv(\"%s\")\n", "GetSNMPPort", port,
           kSnmpVariable);
  } else if (port_from_services("snmp", port)) {
    ZN_LOG(APTRACE, "%s: snmp port is %d from %s in /etc/services\n", "GetSNMPPort", port, "snmp");
  } else {
    ZN_LOG(APWARN, "%s: no %s entry in /etc/services; ", "GetSNMPPort", "snmp");
    ZN_LOG(APWARN, "snmp port is %d from #define SNMP_PORT\n", port);
  }
  return port;
}

std::uint16_t find_trap_port() {
  std::uint16_t port = kSnmpTrapPort;
  if (port_from_environment(kTrapVariable, port)) {
    ZN_LOG(APTRAP, "%s: trap port is %d from getenv(\"%s\")\n", "GetSNMPTrapPort", port,
           kTrapVariable);
  } else if (port_from_environment(kSnmpVariable, port)) {
    ++port;
    ZN_LOG(APTRAP, "%s: trap port is %d from getenv(\"%s\") + 1\n", "GetSNMPTrapPort", port,
           kSnmpVariable);
  } else if (port_from_services("snmp-trap", port)) {
    ZN_LOG(APTRAP, "%s: trap port is %d from %s in /etc/services\n", "GetSNMPTrapPort", port,
           "snmp-trap");
  } else {
    ZN_LOG(APTRAP, "%s: no %s entry in /etc/services; ", "GetSNMPTrapPort", "snmp-trap");
    ZN_LOG(APTRAP, "trap port is %d from #define SNMP_TRAP_PORT\n", port);
  }
  return port;
}

}  // namespace

std::uint16_t GetSNMPPort() {
  static const std::uint16_t port = find_snmp_port();
  return port;
}

std::uint16_t GetSNMPTrapPort() {
  static const std::uint16_t port = find_trap_port();
  return port;
}

}  // namespace tally
