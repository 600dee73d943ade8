// The remote procedures of the agent that this program calls, each an object to call like a
// function:
//
//   if (auto reply = host_table_get(client, key)) { ... reply->rows ... }
//
// The agent offers many more (numbers up to 204). A procedure has one static result: it is good
// until the next call of the same procedure, and two threads must never call the same procedure at
// the same time. The poll task alone makes the row calls, the main thread the control scans.
#pragma once

#include <cstdint>
#include <memory>
#include <new>

#include "agent/control_types.h"
#include "agent/mac_row_types.h"
#include "agent/network_row_types.h"
#include "agent/rpc_client.h"
#include "agent/single_row_types.h"
#include "agent/xdr_codec.h"

namespace tally {

// FreeReply lets go of what the decoder allocated in a static result, not of the result itself.
struct FreeReply {
  template <class Result>
  void operator()(Result* result) const {
    *result = Result{};
  }
};

// NeverDestroyed holds a value for as long as the process lives.
template <class Value>
class NeverDestroyed {
 public:
  NeverDestroyed() { new (bytes_) Value; }
  Value& value() { return *std::launder(reinterpret_cast<Value*>(bytes_)); }

 private:
  alignas(Value) unsigned char bytes_[sizeof(Value)];
};

// Reply is a decoded result that is freed exactly once; null when the call failed.
template <class Result>
using Reply = std::unique_ptr<Result, FreeReply>;

template <std::uint32_t kProcedureNumber, class ArgumentType, class ResultType>
struct RemoteProcedure {
  using Argument = ArgumentType;
  using Result = ResultType;
  static constexpr std::uint32_t number = kProcedureNumber;

  const char* name;

  Reply<Result> operator()(AgentClient& client, const Argument& argument) const {
    // Never destroyed: the poll task may still be at work while the process ends.
    static NeverDestroyed<Result> storage;
    Result& result = storage.value();
    result = Result{};
    Reply<Result> reply(&result);
    if (!client.call(number, wire_routine<Argument>, &argument, wire_routine<Result>, &result)) {
      reply.reset();  // frees what came of it
    }
    return reply;
  }
};

// clang-format off
inline constexpr RemoteProcedure<0, Nothing, NullReply> agent_null{"agent_null"};
inline constexpr RemoteProcedure<1, Nothing, AgentSystemInfo> agent_system_info{"agent_system_info"};
inline constexpr RemoteProcedure<9, ControlKey, HostControlReply> host_control_getnext{"host_control_getnext"};
inline constexpr RemoteProcedure<11, HostTableKey, HostRowList> host_table_get{"host_table_get"};
inline constexpr RemoteProcedure<16, ControlKey, MatrixControlReply> matrix_control_getnext{"matrix_control_getnext"};
inline constexpr RemoteProcedure<18, MatrixTableKey, MatrixRowList> matrix_table_get{"matrix_table_get"};
inline constexpr RemoteProcedure<24, ControlKey, PdistControlReply> pdist_control_getnext{"pdist_control_getnext"};
inline constexpr RemoteProcedure<26, PdistTableKey, PdistRowList> pdist_table_get{"pdist_table_get"};
inline constexpr RemoteProcedure<184, ControlIndex, PdistTotalsReply> pdist_source_totals_get{"pdist_source_totals_get"};
inline constexpr RemoteProcedure<32, ControlKey, NlControlReply> nlhost_control_getnext{"nlhost_control_getnext"};
inline constexpr RemoteProcedure<34, NlHostTableKey, NlHostRowList> nlhost_table_get{"nlhost_table_get"};
inline constexpr RemoteProcedure<35, ControlKey, NlControlReply> nlmatrix_control_getnext{"nlmatrix_control_getnext"};
inline constexpr RemoteProcedure<37, NlMatrixTableKey, NlMatrixRowList> nlmatrix_table_get{"nlmatrix_table_get"};
inline constexpr RemoteProcedure<76, ControlKey, SmonControlReply> vlan_control_getnext{"vlan_control_getnext"};
inline constexpr RemoteProcedure<78, IndexedKey, VlanRowReply> vlan_table_get{"vlan_table_get"};
inline constexpr RemoteProcedure<79, ControlKey, SmonControlReply> prio_control_getnext{"prio_control_getnext"};
inline constexpr RemoteProcedure<81, IndexedKey, PrioRowReply> prio_table_get{"prio_table_get"};
inline constexpr RemoteProcedure<72, ControlKey, DsStatsControlReply> dsstats_control_getnext{"dsstats_control_getnext"};
inline constexpr RemoteProcedure<74, IndexedKey, DsStatsRowReply> dsstats_table_get{"dsstats_table_get"};
inline constexpr RemoteProcedure<133, ControlKey, DsPdistControlReply> dspdist_control_getnext{"dspdist_control_getnext"};
inline constexpr RemoteProcedure<137, DsPdistKey, DsPdistRowReply> dspdist_table_get{"dspdist_table_get"};
inline constexpr RemoteProcedure<135, ControlKey, DsHostControlReply> dshost_control_getnext{"dshost_control_getnext"};
inline constexpr RemoteProcedure<138, DsHostKey, DsHostRowReply> dshost_table_get{"dshost_table_get"};
inline constexpr RemoteProcedure<141, DsMatrixKey, DsMatrixRowReply> dsmatrix_table_get{"dsmatrix_table_get"};
// clang-format on

// for_each_procedure calls a function with every one of them.
template <class Function>
constexpr void for_each_procedure(Function function) {
  const auto all = [&](const auto&... procedure) { (function(procedure), ...); };
  all(agent_null, agent_system_info, host_control_getnext, host_table_get, matrix_control_getnext,
      matrix_table_get, pdist_control_getnext, pdist_table_get, pdist_source_totals_get,
      nlhost_control_getnext, nlhost_table_get, nlmatrix_control_getnext, nlmatrix_table_get,
      vlan_control_getnext, vlan_table_get, prio_control_getnext, prio_table_get,
      dsstats_control_getnext, dsstats_table_get, dspdist_control_getnext, dspdist_table_get,
      dshost_control_getnext, dshost_table_get, dsmatrix_table_get);
}

}  // namespace tally
