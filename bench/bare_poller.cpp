#include "bench/bare_poller.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <initializer_list>
#include <span>
#include <stdexcept>

#include "bench/sample_table.h"
#include "bench/wire_bytes.h"
#include "files/unique_fd.h"

namespace tally::bench {
namespace {

constexpr std::size_t kBlock = 8192;
constexpr std::size_t kReplyHead = 28;  // record mark and reply header
constexpr std::size_t kMostKey = 44;
constexpr std::size_t kMostRow = 136;

void must(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

class BlockWriter {
 public:
  explicit BlockWriter(const std::string& path)
      : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}

  unsigned char* room(std::size_t size) {
    if (used_ + size > kBlock) flush();
    used_ += size;
    return block_.data() + used_ - size;
  }
  void flush() {
    must(write(file_.get(), block_.data(), used_) == static_cast<ssize_t>(used_), "write failed");
    used_ = 0;
  }

 private:
  UniqueFd file_;
  std::size_t used_ = 0;
  std::array<unsigned char, kBlock> block_;
};

class BlockReader {
 public:
  BlockReader(const std::string& path, std::size_t record)
      : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)), record_(record) {}

  void header(void* to, std::size_t size) {
    must(read(file_.get(), to, size) == static_cast<ssize_t>(size), "no previous sample");
  }
  const unsigned char* next() {
    if (at_ == end_) {
      const ssize_t got = read(file_.get(), block_.data(), kBlock / record_ * record_);
      if (got <= 0) return nullptr;
      at_ = block_.data();
      end_ = at_ + got;
    }
    at_ += record_;
    return at_ - record_;
  }

 private:
  UniqueFd file_;
  std::size_t record_;
  const unsigned char* at_ = nullptr;
  const unsigned char* end_ = nullptr;
  std::array<unsigned char, kBlock> block_;
};

std::uint8_t* put_words(std::uint8_t* to, std::initializer_list<std::uint32_t> words) {
  for (const std::uint32_t word : words) to = put_u32(to, word);
  return to;
}
// Copies a piece of the last row, which travels in the request as it came; at first, zeros.
std::uint8_t* put_piece(std::uint8_t* to, const std::uint8_t* row, std::size_t at,
                        std::size_t length, std::size_t at_first) {
  if (!row) {
    std::memset(to, 0, at_first);
    return to + at_first;
  }
  std::memcpy(to, row + at, length);
  return to + length;
}
void take_units(unsigned char* to, const std::uint8_t* units, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) to[i] = units[4 * i + 3];
}
void take_word(unsigned char* to, const std::uint8_t* word) {
  const std::uint32_t value = load_u32(word);
  std::memcpy(to, &value, sizeof value);
}
// An IPv4 address with its count: the length, the address and zeros.
void take_ip(unsigned char* to, const std::uint8_t* list) {
  std::memset(to, 0, 20);
  take_word(to, list);
  take_units(to + 4, list + 4, 4);
}

// The tables: bytes of their keys in files, where things lie in a row, and how the request behind a
// row (null: from the start) and the key of a row are made.
struct HostRows {
  static constexpr std::size_t kKey = 6, kCounters = 7, kRow = 96, kFirst = 40;
  static constexpr bool kBatched = true;
  static std::uint8_t* request(std::uint8_t* to, std::uint32_t index, const std::uint8_t* row) {
    to = put_piece(put_words(to, {index}), row, 4, 28, 4);
    return put_words(to, {100, 3});
  }
  static void key(unsigned char* to, const std::uint8_t* row) { take_units(to, row + 8, 6); }
};
struct MatrixRows {
  static constexpr std::size_t kKey = 12, kCounters = 3, kRow = 88, kFirst = 64;
  static constexpr bool kBatched = true;
  static std::uint8_t* request(std::uint8_t* to, std::uint32_t index, const std::uint8_t* row) {
    to = put_piece(put_words(to, {index}), row, 4, 56, 8);
    return put_words(to, {100, 3, 0});
  }
  static void key(unsigned char* to, const std::uint8_t* row) {
    take_units(to, row + 8, 6);
    take_units(to + 6, row + 36, 6);
  }
};
struct NlHostRows {
  static constexpr std::size_t kKey = 24, kCounters = 5, kRow = 84, kFirst = 28;
  static constexpr bool kBatched = true;
  static std::uint8_t* request(std::uint8_t* to, std::uint32_t index, const std::uint8_t* row) {
    to = put_words(to, {index, 0, row ? load_u32(row + 76) : 0, 0});
    return put_words(put_piece(to, row, 8, 20, 4), {3, 0, 100});
  }
  static void key(unsigned char* to, const std::uint8_t* row) {
    take_word(to, row + 76);
    take_ip(to + 4, row + 8);
  }
};
struct NlMatrixRows {
  static constexpr std::size_t kKey = 44, kCounters = 2, kRow = 80, kFirst = 48;
  static constexpr bool kBatched = true;
  static std::uint8_t* request(std::uint8_t* to, std::uint32_t index, const std::uint8_t* row) {
    to = put_words(to, {index, 0, row ? load_u32(row + 72) : 0, 0});
    return put_words(put_piece(to, row, 8, 40, 8), {3, 0, 0, 100});
  }
  static void key(unsigned char* to, const std::uint8_t* row) {
    take_word(to, row + 72);
    take_ip(to + 4, row + 8);
    take_ip(to + 24, row + 28);
  }
};
struct DsHostRows {
  static constexpr std::size_t kKey = 28, kCounters = 4, kRow = 136, kFirst = 104;
  static constexpr bool kBatched = false;
  static std::uint8_t* request(std::uint8_t* to, std::uint32_t index, const std::uint8_t* row) {
    to = put_piece(put_words(to, {index, 0}), row, 12, 92, 92);
    return put_words(to, {2});
  }
  static void key(unsigned char* to, const std::uint8_t* row) {
    take_word(to, row + 12);
    take_word(to + 4, row + 16);
    take_word(to + 8, row + 100);
    take_units(to + 12, row + 20, 16);
  }
};

// Asks for what follows a row (null: from the start). Returns its rows.
template <class Table>
std::span<const std::uint8_t> fetch(int connection, std::uint32_t procedure, std::uint32_t index,
                                    const std::uint8_t* row) {
  static std::array<std::uint8_t, 1U << 16> buffer;
  std::uint8_t* to = put_words(buffer.data() + 4, {1, 0, 2, 99999, 1, procedure, 0, 0, 0, 0});
  to = Table::request(to, index, row);
  const auto length = static_cast<std::size_t>(to - buffer.data());
  put_u32(buffer.data(), static_cast<std::uint32_t>(length - 4) | 0x8000'0000);
  must(send(connection, buffer.data(), length, 0) == static_cast<ssize_t>(length), "send failed");

  std::size_t got = 0;
  std::size_t wanted = kReplyHead + 4;
  while (got < wanted) {
    const ssize_t more = recv(connection, buffer.data() + got, buffer.size() - got, 0);
    must(more > 0, "receive failed");
    got += static_cast<std::size_t>(more);
    wanted = 4 + (load_u32(buffer.data()) & 0x7FFF'FFFF);
  }
  const auto results = std::span(buffer).subspan(kReplyHead, wanted - kReplyHead);
  if constexpr (Table::kBatched) return results.subspan(4);  // behind the count
  return load_u32(results.data()) == 0 ? results : results.first(0);
}

// In plain doubles, which is exact enough for the canned table's counters.
double rate(double before, double now, double seconds) {
  if (now >= before) return (now - before) / seconds;
  return before <= 0x1p63 ? now : (now + 0x1p64 - before) / seconds;
}

}  // namespace

int connect_raw(std::uint16_t port) {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  must(connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "no agent");
  const int on = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connection;
}

namespace {

template <class Table>
void poll_table(int connection, const TableShape& shape, std::uint32_t index,
                const SamplePaths& paths, std::int32_t now) {
  static_assert(Table::kKey <= kMostKey && Table::kRow <= kMostRow);
  constexpr std::size_t kRecordSize = Table::kKey + 8 * Table::kCounters;
  BlockReader prev(paths.prev, kRecordSize);
  BlockWriter last(paths.last);
  BlockWriter delta(paths.delta);
  std::int32_t before_header[4];
  prev.header(before_header, sizeof before_header);
  const std::int32_t interval = now - before_header[2];
  const auto type = static_cast<std::int32_t>(shape.type);
  const std::int32_t last_header[] = {0, 0, now, type};
  const std::int32_t delta_header[] = {interval, 0, now, type};
  std::memcpy(last.room(sizeof last_header), last_header, sizeof last_header);
  std::memcpy(delta.room(sizeof delta_header), delta_header, sizeof delta_header);
  const double seconds = interval;

  unsigned char key[Table::kKey];
  std::uint8_t last_row[Table::kRow];
  const unsigned char* before = prev.next();
  for (bool first = true;; first = false) {
    const auto rows = fetch<Table>(connection, shape.procedure, index, first ? nullptr : last_row);
    if (rows.empty()) break;
    for (std::size_t at = 0; at < rows.size(); at += Table::kRow) {
      const std::uint8_t* row = rows.data() + at;
      Table::key(key, row);
      while (before && std::memcmp(before, key, sizeof key) < 0) {
        std::memcpy(last.room(kRecordSize), before, kRecordSize);
        before = prev.next();
      }
      const bool same = before && std::memcmp(before, key, sizeof key) == 0;
      double old_values[Table::kCounters] = {};
      if (same) std::memcpy(old_values, before + Table::kKey, sizeof old_values);
      double values[Table::kCounters];
      double rates[Table::kCounters];
      for (std::size_t i = 0; i < Table::kCounters; ++i) {
        values[i] = static_cast<double>(load_u64(row + Table::kFirst + 8 * i));
        rates[i] = rate(old_values[i], values[i], seconds);
      }
      for (auto [file, counters] : {std::pair{&last, values}, std::pair{&delta, rates}}) {
        unsigned char* record = file->room(kRecordSize);
        std::memcpy(record, key, sizeof key);
        std::memcpy(record + Table::kKey, counters, sizeof values);
      }
      if (same) before = prev.next();
    }
    std::memcpy(last_row, rows.data() + rows.size() - Table::kRow, Table::kRow);
  }
  for (; before; before = prev.next()) {
    std::memcpy(last.room(kRecordSize), before, kRecordSize);
  }
  last.flush();
  delta.flush();
}

}  // namespace

void bare_poll(int connection, TableKind kind, std::uint32_t index, const SamplePaths& paths,
               std::int32_t now) {
  const TableShape& shape = table_shape(kind);
  switch (kind) {
    case TableKind::host:
      return poll_table<HostRows>(connection, shape, index, paths, now);
    case TableKind::matrix:
      return poll_table<MatrixRows>(connection, shape, index, paths, now);
    case TableKind::nlhost:
      return poll_table<NlHostRows>(connection, shape, index, paths, now);
    case TableKind::nlmatrix:
      return poll_table<NlMatrixRows>(connection, shape, index, paths, now);
    case TableKind::dshost:
      return poll_table<DsHostRows>(connection, shape, index, paths, now);
    case TableKind::pdist:
      break;
  }
  throw std::invalid_argument("no bare poller for this table");
}

void copy_in_blocks(const std::string& from, const std::string& to) {
  const UniqueFd source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  const UniqueFd target(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  std::array<unsigned char, kBlock> block;
  for (;;) {
    const ssize_t got = read(source.get(), block.data(), block.size());
    must(got >= 0, "read failed");
    if (got == 0) return;
    must(write(target.get(), block.data(), static_cast<std::size_t>(got)) == got, "write failed");
  }
}

}  // namespace tally::bench
