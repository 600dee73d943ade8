// Frames from an interface or a capture file, through libpcap.
#pragma once

#include <pcap/pcap.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "minitapd/packet.h"

namespace minitapd {

// Takes a frame of `wire_length` bytes, of which the first `bytes` were captured.
using FrameSink =
    std::function<void(std::span<const std::uint8_t> bytes, std::uint32_t wire_length)>;

// read_capture_file passes all frames of an Ethernet capture file to the sink. A file that ends in
// the middle of a frame, as one still being written does, gives the frames up to there and a
// message on standard error. Throws std::runtime_error when the file cannot be read.
void read_capture_file(const std::string& path, const FrameSink& sink);

// A live capture. It never blocks. An interface that goes away is reported once on standard error
// and tried again every five seconds; what was counted stays.
class Capture {
 public:
  struct Settings {
    std::string interface;
    std::string netns;  // "" = the own network namespace
    bool promiscuous = true;
    std::function<void(const MacAddress& own)> opened;  // called whenever the interface was opened
  };

  // Opens the interface. Throws std::runtime_error.
  Capture(Settings settings, FrameSink sink);

  // poll_fd returns what to wait for before work(), or -1 while there is nothing.
  [[nodiscard]] int poll_fd() const;
  void work();

  [[nodiscard]] std::uint32_t interface_index() const { return interface_index_; }
  [[nodiscard]] std::uint32_t dropped_frames() const;

 private:
  using Handle = std::unique_ptr<pcap_t, decltype(&pcap_close)>;
  void open();
  void lose(const std::string& why);

  Settings settings_;
  FrameSink sink_;
  Handle handle_{nullptr, pcap_close};
  std::uint32_t interface_index_ = 0;
  std::uint32_t dropped_before_ = 0;  // by handles that were closed
  std::chrono::steady_clock::time_point retry_at_;
};

}  // namespace minitapd
