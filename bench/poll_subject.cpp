#include "bench/poll_subject.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "agent/mac_types.h"
#include "agent/procedures.h"
#include "agent/rpc_client.h"
#include "agent/tapd_agent.h"
#include "bench/sample_table.h"
#include "daemon/base/clock.h"
#include "files/file_format.h"
#include "files/poll_engine.h"
#include "files/unique_fd.h"

namespace tally::bench {
namespace {

// What an agent here is not asked to do: its connection is made, or needs none.
class FixedAgent : public Agent {
 public:
  bool connect() override { return true; }
  bool check_connection() override { return true; }
};

class ConnectedAgent final : public FixedAgent {
 public:
  explicit ConnectedAgent(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    client_ = agent_connect(address);
    if (!client_) throw std::runtime_error("no canned agent");
  }

  std::uint32_t up_time() override {
    const auto info = agent_system_info(*client_, {});
    return info ? info->up_time : 0;
  }
  AgentClient& client() override { return *client_; }
  const CollectionOps& ops(std::uint32_t type) const override { return agent_type_ops(type); }

 private:
  std::unique_ptr<AgentClient> client_;
};

// Host records in memory behind the host type's own operations. A row iterator has no room for
// them, so they pass through here.
class MemoryAgent final : public FixedAgent {
 public:
  explicit MemoryAgent(std::span<const unsigned char> records) : ops_(host_ops) {
    next_ = records.data();
    end_ = records.data() + records.size();
    ops_.rpc_getnext = [](RowIterator&) -> const unsigned char* {
      if (next_ == end_) return nullptr;
      const unsigned char* record = next_;
      next_ += host_ops.record_size;
      return record;
    };
  }

  std::uint32_t up_time() override { return 0; }
  // The engine only hands it on.
  AgentClient& client() override { return *reinterpret_cast<AgentClient*>(this); }
  const CollectionOps& ops(std::uint32_t /*type*/) const override { return ops_; }

 private:
  static inline const unsigned char* next_;
  static inline const unsigned char* end_;
  CollectionOps ops_;
};

void run_engine(Agent& agent, std::uint32_t type, std::uint32_t index, const SamplePaths& paths) {
  CollectionRecord collection{};
  collection.type = type;
  collection.index = index;
  if (poll_coll_delta(agent, collection, paths.last.c_str(), paths.prev.c_str(),
                      paths.delta.c_str()) != 1) {
    throw std::runtime_error("the poll failed");
  }
}

}  // namespace

std::vector<unsigned char> host_records(std::uint32_t count, std::uint32_t epoch) {
  const std::uint32_t counters = table_shape(TableKind::host).counters;
  std::vector<unsigned char> records;
  records.reserve(std::size_t{count} * host_ops.record_size);
  for (std::uint32_t row = 0; row < count; ++row) {
    for (int shift = 40; shift >= 0; shift -= 8) {
      records.push_back(static_cast<unsigned char>(mac_address(row) >> shift));
    }
    for (std::uint32_t field = 0; field < counters; ++field) {
      const auto value = static_cast<double>(counter_value(row, field, epoch));
      unsigned char bytes[sizeof value];
      std::memcpy(bytes, &value, sizeof value);
      records.insert(records.end(), bytes, bytes + sizeof bytes);
    }
  }
  return records;
}

void write_sample(const std::string& path, std::uint32_t type,
                  std::span<const unsigned char> records, std::int32_t time) {
  std::ofstream out(path, std::ios::binary);
  const FileHeader header{0, 0, time, type};
  out.write(reinterpret_cast<const char*>(&header), sizeof header);
  out.write(reinterpret_cast<const char*>(records.data()),
            static_cast<std::streamsize>(records.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

void make_prev(const SamplePaths& paths, std::int32_t seconds) {
  std::filesystem::rename(paths.last, paths.prev);
  const std::int32_t sample_time = now_seconds() - seconds;
  const UniqueFd file(open(paths.prev.c_str(), O_WRONLY | O_CLOEXEC));
  if (pwrite(file.get(), &sample_time, sizeof sample_time, offsetof(FileHeader, sample_time)) !=
      static_cast<ssize_t>(sizeof sample_time)) {
    throw std::runtime_error("cannot write " + paths.prev);
  }
}

PolledAgent::PolledAgent(std::uint16_t port, std::uint32_t type, std::uint32_t control_index)
    : agent_(std::make_unique<ConnectedAgent>(port)), type_(type), index_(control_index) {}

PolledAgent::~PolledAgent() = default;

void PolledAgent::poll(const SamplePaths& paths) {
  run_engine(*agent_, type_, index_, paths);
}

void merge_records(std::span<const unsigned char> records, const SamplePaths& paths) {
  MemoryAgent agent(records);
  run_engine(agent, kHost, 0, paths);
}

}  // namespace tally::bench
