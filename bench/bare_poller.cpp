#include "bench/bare_poller.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

#include "bench/measure.h"
#include "bench/wire_bytes.h"
#include "files/unique_fd.h"

namespace tally::bench {
namespace {

constexpr std::size_t kBlock = 8192;
constexpr std::size_t kReplyHead = 28;  // record mark and reply header

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

// Writes the argument that asks for what follows a row (null: from the start). The row's key goes
// in as it came; at first an empty address takes its place, or zeros.
template <TableKind kind>
std::uint8_t* put_argument(std::uint8_t* to, std::uint32_t index, const std::uint8_t* row) {
  static constexpr TableShape kShape = table_shape(kind);
  const auto put_key = [row](std::uint8_t* at, std::size_t size_at_first) {
    const std::size_t size = row ? kShape.key_size : size_at_first;
    if (row) {
      std::memcpy(at, row + kShape.key_at, size);
    } else {
      std::memset(at, 0, size);
    }
    return at + size;
  };
  if constexpr (kind == TableKind::host) {
    return put_words(put_key(put_words(to, {index}), 4), {100, 3});
  } else if constexpr (kind == TableKind::nlhost) {
    to = put_words(to, {index, 0, row ? load_u32(row + 76) : 0, 0});
    return put_words(put_key(to, 4), {3, 0, 100});
  } else if constexpr (kind == TableKind::nlmatrix) {
    to = put_words(to, {index, 0, row ? load_u32(row + 72) : 0, 0});
    return put_words(put_key(to, 8), {3, 0, 0, 100});
  } else {
    return put_words(put_key(put_words(to, {index, 0}), kShape.key_size), {2});
  }
}

// Makes the key of a record.
template <TableKind kind>
void take_key(unsigned char* to, const std::uint8_t* row) {
  if constexpr (kind == TableKind::host) {
    take_units(to, row + 8, 6);
  } else if constexpr (kind == TableKind::nlhost) {
    take_word(to, row + 76);
    take_ip(to + 4, row + 8);
  } else if constexpr (kind == TableKind::nlmatrix) {
    take_word(to, row + 72);
    take_ip(to + 4, row + 8);
    take_ip(to + 24, row + 28);
  } else {
    take_word(to, row + 12);
    take_word(to + 4, row + 16);
    take_word(to + 8, row + 100);
    take_units(to + 12, row + 20, 16);
  }
}

// Asks for what follows a row (null: from the start). Returns its rows.
template <TableKind kind>
std::span<const std::uint8_t> fetch(int connection, std::uint32_t index, const std::uint8_t* row) {
  static constexpr TableShape kShape = table_shape(kind);
  static std::array<std::uint8_t, 1U << 16> buffer;
  std::uint8_t* to =
      put_words(buffer.data() + 4, {1, 0, 2, 99999, 1, kShape.procedure, 0, 0, 0, 0});
  to = put_argument<kind>(to, index, row);
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
  if constexpr (kShape.batched) return results.subspan(4);  // behind the count
  return load_u32(results.data()) == 0 ? results : results.first(0);
}

// In plain doubles, which is exact enough for the canned table's counters.
double rate(double before, double now, double seconds) {
  if (now >= before) return (now - before) / seconds;
  return before <= 0x1p63 ? now : (now + 0x1p64 - before) / seconds;
}

template <TableKind kind>
void poll_table(int connection, std::uint32_t index, const SamplePaths& paths, std::int32_t now) {
  static constexpr TableShape kShape = table_shape(kind);
  constexpr std::size_t kRecordSize = kShape.stored + 8 * kShape.counters;
  BlockReader prev(paths.prev, kRecordSize);
  BlockWriter last(paths.last);
  BlockWriter delta(paths.delta);
  std::int32_t before_header[4];
  prev.header(before_header, sizeof before_header);
  const std::int32_t interval = now - before_header[2];
  const auto type = static_cast<std::int32_t>(kShape.type);
  const std::int32_t last_header[] = {0, 0, now, type};
  const std::int32_t delta_header[] = {interval, 0, now, type};
  std::memcpy(last.room(sizeof last_header), last_header, sizeof last_header);
  std::memcpy(delta.room(sizeof delta_header), delta_header, sizeof delta_header);
  const double seconds = interval;

  unsigned char key[kShape.stored];
  std::uint8_t last_row[kShape.row_size];
  const unsigned char* before = prev.next();
  for (bool first = true;; first = false) {
    const auto rows = fetch<kind>(connection, index, first ? nullptr : last_row);
    if (rows.empty()) break;
    for (std::size_t at = 0; at < rows.size(); at += kShape.row_size) {
      const std::uint8_t* row = rows.data() + at;
      take_key<kind>(key, row);
      while (before && std::memcmp(before, key, sizeof key) < 0) {
        std::memcpy(last.room(kRecordSize), before, kRecordSize);
        before = prev.next();
      }
      const bool same = before && std::memcmp(before, key, sizeof key) == 0;
      double old_values[kShape.counters] = {};
      if (same) std::memcpy(old_values, before + kShape.stored, sizeof old_values);
      double values[kShape.counters];
      double rates[kShape.counters];
      for (std::size_t i = 0; i < kShape.counters; ++i) {
        values[i] = static_cast<double>(load_u64(row + kShape.first_counter + 8 * i));
        rates[i] = rate(old_values[i], values[i], seconds);
      }
      for (auto [file, counters] : {std::pair{&last, values}, std::pair{&delta, rates}}) {
        unsigned char* record = file->room(kRecordSize);
        std::memcpy(record, key, sizeof key);
        std::memcpy(record + kShape.stored, counters, sizeof values);
      }
      if (same) before = prev.next();
    }
    std::memcpy(last_row, rows.data() + rows.size() - kShape.row_size, kShape.row_size);
  }
  for (; before; before = prev.next()) {
    std::memcpy(last.room(kRecordSize), before, kRecordSize);
  }
  last.flush();
  delta.flush();
}

}  // namespace

int connect_raw(std::uint16_t port) {
  const int connection = connected_socket(SOCK_STREAM, port);
  const int on = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connection;
}

void bare_poll(int connection, TableKind kind, std::uint32_t index, const SamplePaths& paths,
               std::int32_t now) {
  switch (kind) {
    case TableKind::host:
      return poll_table<TableKind::host>(connection, index, paths, now);
    case TableKind::nlhost:
      return poll_table<TableKind::nlhost>(connection, index, paths, now);
    case TableKind::nlmatrix:
      return poll_table<TableKind::nlmatrix>(connection, index, paths, now);
    case TableKind::dshost:
      return poll_table<TableKind::dshost>(connection, index, paths, now);
  }
}

}  // namespace tally::bench
