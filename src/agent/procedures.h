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

// FreeReply clears a static result. The buffer of a list of rows is kept for the next reply.
struct FreeReply {
  template <class Result>
  void operator()(Result* result) const {
    if constexpr (requires { result->rows.clear(); }) {
      result->rows.clear();
    } else {
      *result = Result{};
    }
  }
};

// Reply is a decoded result that is freed exactly once; null when the call failed.
template <class Result>
using Reply = std::unique_ptr<Result, FreeReply>;

template <std::uint32_t kProcedureNumber, class ArgumentType, class ResultType>
struct RemoteProcedure {
  using Argument = ArgumentType;
  using Result = ResultType;
  static constexpr std::uint32_t number = kProcedureNumber;

  Reply<Result> operator()(AgentClient& client, const Argument& argument) const {
    // Never destroyed: the poll task may still be at work while the process ends.
    alignas(Result) static unsigned char storage[sizeof(Result)];
    static Result& result = *new (storage) Result;
    FreeReply()(&result);
    Reply<Result> reply(&result);
    if (!client.call(number, wire_routine<Argument>, &argument, wire_routine<Result>, &result)) {
      reply.reset();  // frees what came of it
    }
    return reply;
  }
};

// clang-format off
inline constexpr RemoteProcedure<0, Nothing, Number> agent_null;
inline constexpr RemoteProcedure<1, Nothing, AgentSystemInfo> agent_system_info;
inline constexpr RemoteProcedure<9, ControlKey, HostControlReply> host_control_getnext;
inline constexpr RemoteProcedure<11, HostTableKey, HostRowList> host_table_get;
inline constexpr RemoteProcedure<16, ControlKey, MatrixControlReply> matrix_control_getnext;
inline constexpr RemoteProcedure<18, MatrixTableKey, MatrixRowList> matrix_table_get;
inline constexpr RemoteProcedure<24, ControlKey, PdistControlReply> pdist_control_getnext;
inline constexpr RemoteProcedure<26, PdistTableKey, PdistRowList> pdist_table_get;
inline constexpr RemoteProcedure<184, Number, PdistTotalsReply> pdist_source_totals_get;
inline constexpr RemoteProcedure<32, ControlKey, NlControlReply> nlhost_control_getnext;
inline constexpr RemoteProcedure<34, NlHostTableKey, NlHostRowList> nlhost_table_get;
inline constexpr RemoteProcedure<35, ControlKey, NlControlReply> nlmatrix_control_getnext;
inline constexpr RemoteProcedure<37, NlMatrixTableKey, NlMatrixRowList> nlmatrix_table_get;
inline constexpr RemoteProcedure<76, ControlKey, SmonControlReply> vlan_control_getnext;
inline constexpr RemoteProcedure<78, IndexedKey, VlanRowReply> vlan_table_get;
inline constexpr RemoteProcedure<79, ControlKey, SmonControlReply> prio_control_getnext;
inline constexpr RemoteProcedure<81, IndexedKey, PrioRowReply> prio_table_get;
inline constexpr RemoteProcedure<72, ControlKey, DsStatsControlReply> dsstats_control_getnext;
inline constexpr RemoteProcedure<74, IndexedKey, DsStatsRowReply> dsstats_table_get;
inline constexpr RemoteProcedure<133, ControlKey, DsPdistControlReply> dspdist_control_getnext;
inline constexpr RemoteProcedure<137, DsPdistKey, DsPdistRowReply> dspdist_table_get;
inline constexpr RemoteProcedure<135, ControlKey, DsHostControlReply> dshost_control_getnext;
inline constexpr RemoteProcedure<138, DsHostKey, DsHostRowReply> dshost_table_get;
inline constexpr RemoteProcedure<141, DsMatrixKey, DsMatrixRowReply> dsmatrix_table_get;
// clang-format on

}  // namespace tally
