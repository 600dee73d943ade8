// Names of what tables have numbers for: protocols, stations, VLANs, priorities, DSMON groups.
//
// They come from text files that the machine and whoever integrates the appliance keep:
//
//   FOLDER/protocols, vlans, priorities, groups: lines of NAME NUMBER [BRIEF], as /etc/protocols
//   has FOLDER/ethers, FOLDER/hosts, /etc/ethers, /etc/hosts: lines of MAC or ADDRESS and NAME
//   FOLDER/oui.csv, else that of ieee-data: makers, for MAC addresses without a name
//
// A number that stands twice has the name of its first line. A file that is missing, larger than 4
// MiB (of makers 16 MiB) or not a regular one has no names, and a line that makes no sense has none
// either. What of a name is not printable ASCII is escaped: names come from elsewhere and go to
// terminals.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "names/makers.h"
#include "names/name_file.h"
#include "names/resolver.h"
#include "records/collection_files.h"
#include "records/record_cell.h"

namespace tally {

class Names {
 public:
  // The folder is /etc/tallyd, or what TALLYD_NAMES in the environment says. Nothing is read yet.
  explicit Names(std::string folder = names_folder());

  // refresh reads the files again if one has changed. It is called before rows are shown.
  void refresh();

  // resolve has DNS asked for addresses without a name from now on. Answers come when they come:
  // until then an address has no name.
  void resolve() { resolver_.emplace(); }
  bool resolves() const { return resolver_.has_value(); }

  // expect asks DNS for all addresses of a row at once; await waits, but not for long, for the
  // answers.
  void expect(const RecordLayout& layout, const unsigned char* record) const;
  void await() const;

  // name_of gives the name of a key's value in full; empty: it has none.
  std::string name_of(const RecordLayout& layout, const unsigned char* record,
                      std::size_t column) const;

  // label_of gives what people see in place of the value: its name, behind the number where people
  // know that ("20 voice"), else the value itself. `brief`: there is little room.
  std::string label_of(const RecordLayout& layout, const unsigned char* record, std::size_t column,
                       bool brief) const;

 private:
  struct Name {
    std::string full;
    std::string brief;
  };
  struct Source {
    std::string path;
    NameKind kind;  // whose names it has
    std::optional<FileStamp> stamp{};
  };
  using ByNumber = std::unordered_map<std::uint32_t, Name>;

  static std::string names_folder();
  void add_number(ByNumber& names, const NameLine& line) const;
  void add_station(const NameLine& line);
  const Name* numbered(NameKind kind, std::uint32_t number) const;
  std::string station(const Octets& octets, bool mac) const;

  std::vector<Source> sources_;
  std::map<NameKind, ByNumber> numbers_;
  std::unordered_map<std::string, std::string> stations_;  // by the text of the address
  Makers makers_;
  mutable std::optional<Resolver> resolver_;
  bool read_ = false;
};

}  // namespace tally
