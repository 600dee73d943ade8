// What the poll engine and the poll task need from an agent: the table of operations that every
// collection type fills in, and the connection. The agent room implements both.
#pragma once

#include <cstdint>
#include <memory>

#include "daemon/base/collection_record.h"
#include "daemon/base/collection_types.h"
#include "files/filebuf.h"

namespace tally {

class AgentClient;  // one connection to the agent; opaque here

// Size of the longest record of an agent type, in bytes.
inline constexpr std::uint32_t kMaxRecordSize = 68;

// Held owns an object whose type only its user knows.
using Held = std::unique_ptr<void, void (*)(void* object)>;

// RowIterator is the state of one pass over a collection's rows. The caller fills in the first
// group; the rest belongs to the type's rpc_getnext.
struct RowIterator {
  std::uint32_t control_index = 0;
  std::uint32_t time_mark = 0;         // rows are compared with it; always 0
  std::uint32_t previous_up_time = 0;  // the agent's, at the previous sample; unused
  AgentClient* client = nullptr;

  std::uint32_t flags = 0;           // see kClosingRowDone
  Held reply{nullptr, nullptr};      // the decoded reply that is being stepped through
  std::uint32_t position = 0;        // row within the reply
  std::uint32_t replies = 0;         // replies so far
  Held milestone{nullptr, nullptr};  // the key that one of them led to
  unsigned char record[kMaxRecordSize] = {};
};

// Bit 0 of RowIterator::flags: the row that closes the table has been produced.
inline constexpr std::uint32_t kClosingRowDone = 1U << 0;

// Adopter takes in the collections that the agent's control rows ask for.
class Adopter {
 public:
  virtual ~Adopter() = default;

  // adopt registers a collection unless it exists already. False on failure.
  virtual bool adopt(std::uint32_t type, std::uint32_t index) = 0;
};

// CollectionOps is what generic code knows about an agent collection type. Any slot may be null
// (illegal types have none), so test it before calling. Records are `record_size` bytes, a key
// followed by doubles, at any alignment.
struct CollectionOps {
  std::uint32_t record_size = 0;

  // upload puts every row of the collection into the cache. 1, or 0 when a put failed (logs).
  int (*upload)(AgentClient& client, RecordCache& cache, std::uint32_t index,
                const CollectionRecord& collection) = nullptr;

  // compare orders two records by key: -1, 0 or 1.
  int (*compare)(const unsigned char* a, const unsigned char* b) = nullptr;

  // calc_delta writes the rates between two records of one key into `out`; an interval of 0 is
  // taken as 1 (logs). 1 when any rate is not zero, 0 when all are, -1 on a null argument (logs).
  int (*calc_delta)(const unsigned char* prev, const unsigned char* last, unsigned char* out,
                    std::uint32_t interval) = nullptr;

  // calc_rate writes the rates of a record that has no previous one. 1, or 0 on a null argument.
  int (*calc_rate)(const unsigned char* last, unsigned char* out, std::uint32_t interval) = nullptr;

  // add_active adopts a collection for each valid control row of this type that is ours.
  void (*add_active)(AgentClient& client, Adopter& adopter) = nullptr;

  // rpc_getnext returns the next record, or null at the end or after a failed call (logs). The
  // pointer is valid until the next call.
  const unsigned char* (*rpc_getnext)(RowIterator& rows) = nullptr;
};

// Agent is the poll task's connection to the agent, with the operations of all types.
class Agent {
 public:
  virtual ~Agent() = default;

  // connect makes the connection; false when the agent cannot be reached.
  virtual bool connect() = 0;

  // check_connection tests the connection and replaces a dead one (logs). False when that fails.
  virtual bool check_connection() = 0;

  // up_time returns the agent's up-time, or 0 when the call fails.
  virtual std::uint32_t up_time() = 0;

  // client returns the connection, which must exist.
  virtual AgentClient& client() = 0;

  // ops returns the operations of any type below kTypeSlots.
  virtual const CollectionOps& ops(std::uint32_t type) const = 0;
};

}  // namespace tally
