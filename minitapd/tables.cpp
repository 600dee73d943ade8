#include "minitapd/tables.h"

namespace minitapd {

namespace {

constexpr std::array<TableShape, kTableCount> kShapes = {{
    {"host", {}, {"address"}, 7, "creation_order", 0, true, true},
    {"matrix", {}, {"source", "dest"}, 3, "", 0, true, true},
    {"pdist", {"local_index"}, {}, 2, "tag", 0, true, true},
    {"nlhost", {"local_index"}, {"address"}, 5, "create_time", 0, true, true},
    {"nlmatrix", {"local_index"}, {"source", "dest"}, 2, "create_time", 0, true, true},
    {"vlan", {"id"}, {}, 4, "create_time", 0, true, false},
    {"prio", {"id"}, {}, 2, "", 0, true, false},
    {"dsstats", {"group"}, {}, 4, "", 0, true, false},
    {"dspdist", {"group", "local_index"}, {}, 2, "", 0, true, false},
    {"dshost", {"group", "local_index", "address_word"}, {"address"}, 4, "", 20, true, false},
    {"dsmatrix",
     {"group", "local_index", "key_word_1", "key_word_2", "key_word_3"},
     {"source", "dest"},
     2,
     "",
     20,
     false,
     false},
}};

}  // namespace

std::strong_ordering Key::operator<=>(const Key& other) const {
  for (std::size_t i = 0; i < 2; ++i) {
    if (auto order = numbers[i] <=> other.numbers[i]; std::is_neq(order)) return order;
  }
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    // std::string compares its bytes as unsigned characters.
    if (auto order = addresses[i] <=> other.addresses[i]; std::is_neq(order)) return order;
  }
  for (std::size_t i = 2; i < numbers.size(); ++i) {
    if (auto order = numbers[i] <=> other.numbers[i]; std::is_neq(order)) return order;
  }
  return std::strong_ordering::equal;
}

const TableShape& shape_of(Table table) {
  return kShapes[static_cast<std::size_t>(table)];
}

std::span<const TableShape, kTableCount> table_shapes() {
  return kShapes;
}

void normalize_key(Table table, Key& key) {
  const TableShape& shape = shape_of(table);
  for (std::int64_t& number : key.numbers) {
    const auto word = static_cast<std::uint32_t>(number);
    number = table == Table::prio ? std::int64_t{static_cast<std::int32_t>(word)} : word;
  }
  if (shape.address_size == 0) return;
  for (std::size_t i = 0; i < key.addresses.size(); ++i) {
    if (!shape.addresses[i].empty()) key.addresses[i].resize(shape.address_size);
  }
}

std::uint32_t hundredths_since(std::chrono::steady_clock::time_point start) {
  using Hundredths = std::chrono::duration<std::int64_t, std::centi>;
  const auto passed = std::chrono::steady_clock::now() - start;
  return static_cast<std::uint32_t>(std::chrono::duration_cast<Hundredths>(passed).count());
}

}  // namespace minitapd
