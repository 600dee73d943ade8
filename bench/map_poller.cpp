#include "bench/map_poller.h"

#include <array>
#include <fstream>
#include <map>

namespace tally::bench {
namespace {

using Address = std::array<unsigned char, 6>;
using Counters = std::array<double, 7>;
using Rows = std::map<Address, Counters>;

struct Header {
  std::int32_t interval = 0;
  std::uint32_t up_time = 0;
  std::int32_t sample_time = 0;
  std::uint32_t type = 0;
};

template <class T>
void write_object(std::ofstream& out, const T& value) {
  out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
bool read_object(std::ifstream& in, T& value) {
  return bool(in.read(reinterpret_cast<char*>(&value), sizeof value));
}

void write_row(std::ofstream& out, const Address& address, const Counters& counters) {
  write_object(out, address);
  write_object(out, counters);
}

Rows read_rows(std::ifstream& in) {
  Rows rows;
  Address address;
  Counters counters;
  while (read_object(in, address) && read_object(in, counters)) rows.emplace(address, counters);
  return rows;
}

Rows fetch_rows(CLIENT& client, std::uint32_t index) {
  Rows rows;
  walk_host_rows(client, index, [&](std::span<const tapd_host_row> batch) {
    for (const tapd_host_row& row : batch) {
      Address address{};
      for (u_int i = 0; i < address.size() && i < row.hostAddress.tapd_bytes_len; ++i) {
        address[i] = row.hostAddress.tapd_bytes_val[i];
      }
      rows[address] = {static_cast<double>(row.hostInPkts),
                       static_cast<double>(row.hostOutPkts),
                       static_cast<double>(row.hostInOctets),
                       static_cast<double>(row.hostOutOctets),
                       static_cast<double>(row.hostOutErrors),
                       static_cast<double>(row.hostOutBroadcastPkts),
                       static_cast<double>(row.hostOutMulticastPkts)};
    }
  });
  return rows;
}

// A counter that fell from above 2^63 wrapped at 2^64; one that fell from below was reset.
double rate(double before, double now, long double seconds) {
  constexpr long double k2To63 = 9223372036854775808.0L;
  if (now >= before) return static_cast<double>((static_cast<long double>(now) - before) / seconds);
  if (before <= k2To63) return now;
  return static_cast<double>((static_cast<long double>(now) + 2 * k2To63 - before) / seconds);
}

}  // namespace

void map_poll(CLIENT& client, std::uint32_t index, const SamplePaths& paths, std::int32_t now) {
  std::ifstream prev(paths.prev, std::ios::binary);
  std::ofstream last(paths.last, std::ios::binary);
  std::ofstream delta(paths.delta, std::ios::binary);
  Header before;
  if (!read_object(prev, before)) throw std::runtime_error("no previous sample");

  const std::int32_t interval = now - before.sample_time;
  write_object(last, Header{0, agent_up_time(client), now, before.type});
  write_object(delta, Header{interval, 0, now, before.type});
  const auto unsigned_interval = static_cast<std::uint32_t>(interval);
  const auto seconds = static_cast<long double>(unsigned_interval == 0 ? 1 : unsigned_interval);

  const Rows old_rows = read_rows(prev);
  Rows rows = fetch_rows(client, index);
  std::size_t matched = 0;
  for (const auto& [address, counters] : rows) {
    const auto old = old_rows.find(address);
    Counters rates;
    bool any = old == old_rows.end();
    matched += any ? 0 : 1;
    for (std::size_t i = 0; i < rates.size(); ++i) {
      rates[i] = old == old_rows.end() ? static_cast<double>(counters[i] / seconds)
                                       : rate(old->second[i], counters[i], seconds);
      any = any || rates[i] != 0.0;
    }
    if (any) write_row(delta, address, rates);
  }
  // Rows that the agent did not return are carried forward.
  if (matched < old_rows.size()) rows.insert(old_rows.begin(), old_rows.end());
  for (const auto& [address, counters] : rows) write_row(last, address, counters);
  if (!last.flush() || !delta.flush()) throw std::runtime_error("cannot write the samples");
}

}  // namespace tally::bench
