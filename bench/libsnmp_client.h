// libsnmp's synchronous client, behind a header of its own: libsnmp's defines far too much.
#pragma once

#include <cstdint>
#include <vector>

#include "bench/canned_supervisor.h"

namespace tally::bench {

// LibsnmpClient builds every request anew, checks that there was a response and drops it.
class LibsnmpClient {
 public:
  LibsnmpClient(std::uint16_t port, std::vector<Request> requests);
  ~LibsnmpClient();
  LibsnmpClient(const LibsnmpClient&) = delete;
  LibsnmpClient& operator=(const LibsnmpClient&) = delete;
  void run();  // throws when the supervisor does not answer

 private:
  void* session_;
  std::vector<Request> requests_;
};

}  // namespace tally::bench
