#include "bench/bare_poller.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <span>
#include <stdexcept>

#include "bench/sample_table.h"
#include "bench/wire_bytes.h"
#include "files/unique_fd.h"

namespace tally::bench {
namespace {

constexpr std::size_t kBlock = 8192;
constexpr std::size_t kKeySize = 6;
constexpr std::size_t kCounters = 7;
constexpr std::size_t kRecordSize = kKeySize + 8 * kCounters;
constexpr std::size_t kReplyHead = 32;  // record mark, reply header and row count
constexpr std::size_t kRowSize = 96;

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
  explicit BlockReader(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

  void header(void* to, std::size_t size) {
    must(read(file_.get(), to, size) == static_cast<ssize_t>(size), "no previous sample");
  }
  const unsigned char* next() {
    if (at_ == end_) {
      const ssize_t got = read(file_.get(), block_.data(), kBlock / kRecordSize * kRecordSize);
      if (got <= 0) return nullptr;
      at_ = block_.data();
      end_ = at_ + got;
    }
    at_ += kRecordSize;
    return at_ - kRecordSize;
  }

 private:
  UniqueFd file_;
  const unsigned char* at_ = nullptr;
  const unsigned char* end_ = nullptr;
  std::array<unsigned char, kBlock> block_;
};

// Asks for the batch behind `address` (null: from the start). Returns its rows.
std::span<const std::uint8_t> fetch_batch(int connection, std::uint32_t index,
                                          const std::uint8_t* address) {
  static std::array<std::uint8_t, 1U << 16> buffer;
  std::uint8_t* to = buffer.data() + 4;
  for (const std::uint32_t word : {1U, 0U, 2U, 99999U, 1U, 11U, 0U, 0U, 0U, 0U, index}) {
    to = put_u32(to, word);
  }
  to = put_u32(to, address ? kKeySize : 0);
  for (std::size_t i = 0; address && i < kKeySize; ++i) to = put_u32(to, address[i]);
  for (const std::uint32_t word : {100U, 3U}) to = put_u32(to, word);
  const auto length = static_cast<std::size_t>(to - buffer.data());
  put_u32(buffer.data(), static_cast<std::uint32_t>(length - 4) | 0x8000'0000);
  must(send(connection, buffer.data(), length, 0) == static_cast<ssize_t>(length), "send failed");

  std::size_t got = 0;
  std::size_t wanted = kReplyHead;
  while (got < wanted) {
    const ssize_t more = recv(connection, buffer.data() + got, buffer.size() - got, 0);
    must(more > 0, "receive failed");
    got += static_cast<std::size_t>(more);
    wanted = 4 + (load_u32(buffer.data()) & 0x7FFF'FFFF);
  }
  return std::span(buffer).subspan(kReplyHead, wanted - kReplyHead);
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

void bare_poll(int connection, std::uint32_t index, const SamplePaths& paths, std::int32_t now) {
  BlockReader prev(paths.prev);
  BlockWriter last(paths.last);
  BlockWriter delta(paths.delta);
  std::int32_t before_header[4];
  prev.header(before_header, sizeof before_header);
  const std::int32_t interval = now - before_header[2];
  const std::int32_t last_header[] = {0, 0, now, 0};
  const std::int32_t delta_header[] = {interval, 0, now, 0};
  std::memcpy(last.room(sizeof last_header), last_header, sizeof last_header);
  std::memcpy(delta.room(sizeof delta_header), delta_header, sizeof delta_header);
  const double seconds = interval;

  std::uint8_t address[kKeySize];
  const unsigned char* before = prev.next();
  for (bool first = true;; first = false) {
    const auto rows = fetch_batch(connection, index, first ? nullptr : address);
    if (rows.empty()) break;
    for (std::size_t at = 0; at < rows.size(); at += kRowSize) {
      const std::uint8_t* row = rows.data() + at;
      for (std::size_t i = 0; i < kKeySize; ++i) address[i] = row[11 + 4 * i];
      while (before && std::memcmp(before, address, kKeySize) < 0) {
        std::memcpy(last.room(kRecordSize), before, kRecordSize);
        before = prev.next();
      }
      const bool same = before && std::memcmp(before, address, kKeySize) == 0;
      double old_values[kCounters] = {};
      if (same) std::memcpy(old_values, before + kKeySize, sizeof old_values);
      double values[kCounters];
      double rates[kCounters];
      for (std::size_t i = 0; i < kCounters; ++i) {
        values[i] = static_cast<double>(load_u64(row + 40 + 8 * i));
        rates[i] = rate(old_values[i], values[i], seconds);
      }
      for (auto [file, counters] : {std::pair{&last, values}, std::pair{&delta, rates}}) {
        unsigned char* record = file->room(kRecordSize);
        std::memcpy(record, address, kKeySize);
        std::memcpy(record + kKeySize, counters, sizeof values);
      }
      if (same) before = prev.next();
    }
  }
  for (; before; before = prev.next()) {
    std::memcpy(last.room(kRecordSize), before, kRecordSize);
  }
  last.flush();
  delta.flush();
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
