// Makers of network interfaces, by the first three octets of a MAC address (IEEE MA-L).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "records/collection_files.h"

namespace tally {

// Makers reads the registry as IEEE publishes it ("MA-L,001B21,Intel Corporate,..."), which
// Debian's ieee-data has: 32,000 entries in 3 MB. It is read when the first address without a name
// is met, which takes some 40 ms and 5 MB.
class Makers {
 public:
  // The first of these files that exists is used.
  explicit Makers(std::vector<std::string> paths) : paths_(std::move(paths)) {}

  // refresh looks for the file, and forgets what was read of one that has changed. Before it there
  // are no makers.
  void refresh();

  // maker_of returns the maker of an address in a few words; empty: unknown, or the address was not
  // given by a maker.
  std::string maker_of(std::span<const unsigned char> mac) const;

 private:
  struct Maker {
    std::uint32_t prefix;
    std::string name;
  };

  void read() const;

  std::vector<std::string> paths_;
  std::string path_;                   // the one that is used
  std::optional<FileStamp> stamp_;     // nothing: there is none
  mutable std::vector<Maker> makers_;  // by prefix
  mutable bool read_ = true;
};

}  // namespace tally
