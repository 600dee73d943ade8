#include "minitapd/procedures.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "minitapd/wire_rows.h"

namespace minitapd {

namespace {

constexpr int kFound = 0;
constexpr int kNotFound = 1;

// XDR routines differ in type; the library calls them all through xdrproc_t.
template <class... Parameters>
xdrproc_t as_xdrproc(bool_t (*routine)(Parameters...)) {
  return reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(routine));
}

template <class Argument>
Request read_request(Table table, const void* argument) {
  Request request = read_key(*static_cast<const Argument*>(argument));
  normalize_key(table, request.key);
  return request;
}

void append(std::string& out, std::string_view name, std::int64_t value) {
  out.append(" ").append(name).append("=").append(std::to_string(value));
}

void append_key(std::string& out, Table table, const Key& key) {
  const TableShape& shape = shape_of(table);
  for (std::size_t i = 0; i < key.numbers.size(); ++i) {
    if (!shape.numbers[i].empty()) append(out, shape.numbers[i], key.numbers[i]);
  }
  for (std::size_t i = 0; i < key.addresses.size(); ++i) {
    if (shape.addresses[i].empty()) continue;
    out.append(" ").append(shape.addresses[i]).append("=");
    out.append(hex_with_colons(key.addresses[i]));
  }
}

template <Table kTable, class Argument>
void describe_rows(const void* argument, std::string& out) {
  const Request request = read_request<Argument>(kTable, argument);
  append(out, "index", request.control_index);
  append_key(out, kTable, request.key);
  if (shape_of(kTable).bulk) {
    append(out, "count", request.count);
  } else {
    append(out, "request", request.request);
  }
  for (const auto& [name, value] : request.others) append(out, name, value);
}

void describe_control(const void* argument, std::string& out) {
  const auto& key = *static_cast<const tapd_control_key*>(argument);
  append(out, "index", key.index);
  append(out, "request", key.request);
}

template <Table kTable, class Argument, class List>
void answer_bulk(TableSource& source, const void* argument, Answer& answer) {
  const Request request = read_request<Argument>(kTable, argument);
  const auto wanted = static_cast<std::size_t>(std::max(request.count, 0));
  source.rows_after(kTable, request.control_index, request.key, std::min(wanted, kMaxBatch),
                    answer.rows);
  auto& list = answer.as<List>();
  using WireRow = std::remove_pointer_t<decltype(list.rows.rows_val)>;
  list.rows.rows_val = answer.rows_as<WireRow>(answer.rows.size());
  list.rows.rows_len = static_cast<u_int>(answer.rows.size());
  for (std::size_t i = 0; i < answer.rows.size(); ++i) fill(list.rows.rows_val[i], answer.rows[i]);
}

template <Table kTable, class Argument, class Reply>
void answer_row(TableSource& source, const void* argument, Answer& answer) {
  const Request request = read_request<Argument>(kTable, argument);
  if (request.request == TAPD_REQUEST_EXACT) {
    if (auto row = source.row_at(kTable, request.control_index, request.key)) {
      answer.rows.push_back(std::move(*row));
    }
  } else if (request.request == TAPD_REQUEST_NEXT) {
    source.rows_after(kTable, request.control_index, request.key, 1, answer.rows);
  }
  auto& reply = answer.as<Reply>();
  reply.status = answer.rows.empty() ? kNotFound : kFound;
  if (!answer.rows.empty()) fill(reply, answer.rows.front());
}

template <Table kTable, class Reply>
void answer_control(TableSource& source, const void* argument, Answer& answer) {
  const auto& key = *static_cast<const tapd_control_key*>(argument);
  const bool known_request = key.request == TAPD_REQUEST_EXACT || key.request == TAPD_REQUEST_NEXT;
  const ControlRow* row =
      known_request ? source.control_row(kTable, key.index, key.request == TAPD_REQUEST_NEXT)
                    : nullptr;
  // XDR cannot encode a null string, so a reply without an entry has an empty owner.
  static const ControlRow no_row{.index = 0, .owner = {}, .status = 0, .fields = {}};
  auto& reply = answer.as<Reply>();
  reply.status = row != nullptr ? kFound : kNotFound;
  fill(reply, row != nullptr ? *row : no_row);
}

void answer_null(TableSource& /*source*/, const void* /*argument*/, Answer& answer) {
  answer.as<int>() = 0;
}

void answer_system_info(TableSource& source, const void* /*argument*/, Answer& answer) {
  answer.system = source.system_info();
  const auto text = [](std::string& bytes) { return bytes.data(); };
  auto& info = answer.as<tapd_system_info>();
  info.descr = text(answer.system.descr);
  info.up_time = answer.system.up_time;
  info.text_2 = text(answer.system.texts[0]);
  info.text_3 = text(answer.system.texts[1]);
  info.text_4 = text(answer.system.texts[2]);
  info.text_5 = text(answer.system.texts[3]);
  info.services = answer.system.services;
}

void answer_totals(TableSource& source, const void* argument, Answer& answer) {
  const Totals totals = source.pdist_totals(*static_cast<const int*>(argument));
  auto& reply = answer.as<tapd_pdist_totals_reply>();
  reply.status = totals.status;
  reply.total_pkts = totals.pkts;
  reply.total_octets = totals.octets;
}

void describe_nothing(const void* /*argument*/, std::string& /*out*/) {}

void describe_index(const void* argument, std::string& out) {
  append(out, "index", *static_cast<const int*>(argument));
}

template <Table kTable, class Reply>
Procedure control(rpcproc_t number, std::string_view name, bool_t (*xdr_reply)(XDR*, Reply*)) {
  return {number,
          name,
          as_xdrproc(xdr_tapd_control_key),
          as_xdrproc(xdr_reply),
          sizeof(tapd_control_key),
          answer_control<kTable, Reply>,
          describe_control};
}

template <Table kTable, class Argument, class List>
Procedure bulk(rpcproc_t number, std::string_view name, bool_t (*xdr_key)(XDR*, Argument*),
               bool_t (*xdr_list)(XDR*, List*)) {
  static_assert(sizeof(Argument) <= kMaxArgumentSize);
  return {number,
          name,
          as_xdrproc(xdr_key),
          as_xdrproc(xdr_list),
          sizeof(Argument),
          answer_bulk<kTable, Argument, List>,
          describe_rows<kTable, Argument>};
}

template <Table kTable, class Argument, class Reply>
Procedure single(rpcproc_t number, std::string_view name, bool_t (*xdr_key)(XDR*, Argument*),
                 bool_t (*xdr_reply)(XDR*, Reply*)) {
  static_assert(sizeof(Argument) <= kMaxArgumentSize);
  return {number,
          name,
          as_xdrproc(xdr_key),
          as_xdrproc(xdr_reply),
          sizeof(Argument),
          answer_row<kTable, Argument, Reply>,
          describe_rows<kTable, Argument>};
}

const std::array<Procedure, 24>& table() {
  static const std::array<Procedure, 24> procedures = {{
      {AGENT_NULL, "agent_null", as_xdrproc(xdr_void), as_xdrproc(xdr_int), 0, answer_null,
       describe_nothing},
      {AGENT_SYSTEM_INFO, "agent_system_info", as_xdrproc(xdr_void),
       as_xdrproc(xdr_tapd_system_info), 0, answer_system_info, describe_nothing},
      control<Table::host>(HOST_CONTROL_GETNEXT, "host_control_getnext",
                           xdr_tapd_host_control_reply),
      bulk<Table::host>(HOST_TABLE_GET, "host_table_get", xdr_tapd_host_key, xdr_tapd_host_rows),
      control<Table::matrix>(MATRIX_CONTROL_GETNEXT, "matrix_control_getnext",
                             xdr_tapd_matrix_control_reply),
      bulk<Table::matrix>(MATRIX_TABLE_GET, "matrix_table_get", xdr_tapd_matrix_key,
                          xdr_tapd_matrix_rows),
      control<Table::pdist>(PDIST_CONTROL_GETNEXT, "pdist_control_getnext",
                            xdr_tapd_pdist_control_reply),
      bulk<Table::pdist>(PDIST_TABLE_GET, "pdist_table_get", xdr_tapd_pdist_key,
                         xdr_tapd_pdist_rows),
      control<Table::nlhost>(NLHOST_CONTROL_GETNEXT, "nlhost_control_getnext",
                             xdr_tapd_nl_control_reply),
      bulk<Table::nlhost>(NLHOST_TABLE_GET, "nlhost_table_get", xdr_tapd_nlhost_key,
                          xdr_tapd_nlhost_rows),
      control<Table::nlmatrix>(NLMATRIX_CONTROL_GETNEXT, "nlmatrix_control_getnext",
                               xdr_tapd_nl_control_reply),
      bulk<Table::nlmatrix>(NLMATRIX_TABLE_GET, "nlmatrix_table_get", xdr_tapd_nlmatrix_key,
                            xdr_tapd_nlmatrix_rows),
      control<Table::dsstats>(DSSTATS_CONTROL_GETNEXT, "dsstats_control_getnext",
                              xdr_tapd_dsstats_control_reply),
      single<Table::dsstats>(DSSTATS_TABLE_GET, "dsstats_table_get", xdr_tapd_indexed_key,
                             xdr_tapd_dsstats_row_reply),
      control<Table::vlan>(VLAN_CONTROL_GETNEXT, "vlan_control_getnext",
                           xdr_tapd_smon_control_reply),
      single<Table::vlan>(VLAN_TABLE_GET, "vlan_table_get", xdr_tapd_indexed_key,
                          xdr_tapd_vlan_row_reply),
      control<Table::prio>(PRIO_CONTROL_GETNEXT, "prio_control_getnext",
                           xdr_tapd_smon_control_reply),
      single<Table::prio>(PRIO_TABLE_GET, "prio_table_get", xdr_tapd_indexed_key,
                          xdr_tapd_prio_row_reply),
      control<Table::dspdist>(DSPDIST_CONTROL_GETNEXT, "dspdist_control_getnext",
                              xdr_tapd_dspdist_control_reply),
      control<Table::dshost>(DSHOST_CONTROL_GETNEXT, "dshost_control_getnext",
                             xdr_tapd_dshost_control_reply),
      single<Table::dspdist>(DSPDIST_TABLE_GET, "dspdist_table_get", xdr_tapd_dspdist_key,
                             xdr_tapd_dspdist_row_reply),
      single<Table::dshost>(DSHOST_TABLE_GET, "dshost_table_get", xdr_tapd_dshost_key,
                            xdr_tapd_dshost_row_reply),
      single<Table::dsmatrix>(DSMATRIX_TABLE_GET, "dsmatrix_table_get", xdr_tapd_dsmatrix_key,
                              xdr_tapd_dsmatrix_row_reply),
      {PDIST_SOURCE_TOTALS_GET, "pdist_source_totals_get", as_xdrproc(xdr_int),
       as_xdrproc(xdr_tapd_pdist_totals_reply), sizeof(int), answer_totals, describe_index},
  }};
  return procedures;
}

}  // namespace

void* Answer::claim(std::vector<std::max_align_t>& storage, std::size_t bytes) {
  const std::size_t units = bytes / sizeof(std::max_align_t) + 1;
  if (storage.size() < units) storage.resize(units);
  std::memset(storage.data(), 0, bytes);
  return storage.data();
}

std::span<const Procedure> procedures() {
  return table();
}

const Procedure* find_procedure(rpcproc_t number) {
  const auto& all = table();
  const auto* it = std::ranges::find(all, number, &Procedure::number);
  return it == all.end() ? nullptr : it;
}

rpcproc_t row_procedure(Table table) {
  static constexpr std::array<rpcproc_t, kTableCount> numbers = {
      HOST_TABLE_GET,     MATRIX_TABLE_GET, PDIST_TABLE_GET,   NLHOST_TABLE_GET,
      NLMATRIX_TABLE_GET, VLAN_TABLE_GET,   PRIO_TABLE_GET,    DSSTATS_TABLE_GET,
      DSPDIST_TABLE_GET,  DSHOST_TABLE_GET, DSMATRIX_TABLE_GET};
  return numbers[static_cast<std::size_t>(table)];
}

rpcproc_t control_procedure(Table table) {
  static constexpr std::array<rpcproc_t, kTableCount> numbers = {HOST_CONTROL_GETNEXT,
                                                                 MATRIX_CONTROL_GETNEXT,
                                                                 PDIST_CONTROL_GETNEXT,
                                                                 NLHOST_CONTROL_GETNEXT,
                                                                 NLMATRIX_CONTROL_GETNEXT,
                                                                 VLAN_CONTROL_GETNEXT,
                                                                 PRIO_CONTROL_GETNEXT,
                                                                 DSSTATS_CONTROL_GETNEXT,
                                                                 DSPDIST_CONTROL_GETNEXT,
                                                                 DSHOST_CONTROL_GETNEXT,
                                                                 0};
  return numbers[static_cast<std::size_t>(table)];
}

std::string hex_with_colons(std::string_view bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::string out;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (!out.empty()) out += ':';
    out += digits[byte >> 4];
    out += digits[byte & 0x0fU];
  }
  return out;
}

}  // namespace minitapd
