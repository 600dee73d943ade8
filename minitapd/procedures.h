// The procedures of program 99999, version 1, each a row of data.
//
// The table says how a procedure's argument and result are encoded and how its answer is made from
// a TableSource. The server (server.h) knows nothing else about them.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "minitapd/tables.h"
#include "minitapd/tapd.h"

namespace minitapd {

// The result of one call, ready for encoding. It is reused from call to call, so that serving a
// long table allocates no more than serving a short one.
class Answer {
 public:
  // as makes room for a zeroed result of a wire type and returns it.
  template <class Wire>
  Wire& as() {
    return *reinterpret_cast<Wire*>(claim(result_, sizeof(Wire)));
  }
  // rows_as makes room for `count` zeroed wire rows.
  template <class Wire>
  Wire* rows_as(std::size_t count) {
    return reinterpret_cast<Wire*>(claim(wire_rows_, count * sizeof(Wire)));
  }
  void* result() { return result_.data(); }

  std::vector<Row> rows;  // what the wire structures borrow from
  SystemInfo system;

 private:
  // Storage in units of the strictest alignment that a wire type has.
  static void* claim(std::vector<std::max_align_t>& storage, std::size_t bytes);
  std::vector<std::max_align_t> result_;
  std::vector<std::max_align_t> wire_rows_;
};

struct Procedure {
  rpcproc_t number;
  std::string_view name;
  xdrproc_t xdr_argument;
  xdrproc_t xdr_result;
  std::size_t argument_size;  // at most kMaxArgumentSize
  void (*answer)(TableSource& source, const void* argument, Answer& answer);
  void (*describe)(const void* argument, std::string& out);  // for the trace
};

inline constexpr std::size_t kMaxArgumentSize = 128;

std::span<const Procedure> procedures();
const Procedure* find_procedure(rpcproc_t number);

// The numbers of the procedures that read a table's rows and its control rows.
rpcproc_t row_procedure(Table table);
rpcproc_t control_procedure(Table table);  // 0 for a table without control rows

// hex_with_colons renders bytes as in "02:00:5e".
std::string hex_with_colons(std::string_view bytes);

}  // namespace minitapd
