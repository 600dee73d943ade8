// Data on its way to standard output or another descriptor, in large pieces.
#pragma once

#include <string>
#include <string_view>

namespace tally {

// Output collects text and writes it in blocks. After a failure (a closed pipe, a full disk) it
// takes text and drops it; good() tells.
class Output {
 public:
  // With kCollect for a descriptor it only collects: text() is all of it.
  explicit Output(int fd) : fd_(fd) {}
  static constexpr int kCollect = -1;

  // text is where writers append; flush_full must be called now and then.
  std::string& text() { return text_; }
  Output& operator<<(std::string_view more) {
    text_ += more;
    return *this;
  }
  Output& operator<<(char more) {
    text_ += more;
    return *this;
  }

  bool flush_full() { return text_.size() < kBlock || fd_ == kCollect ? good() : flush(); }
  bool flush();
  bool good() const { return error_ == 0; }
  int error() const { return error_; }  // an errno value

 private:
  static constexpr std::size_t kBlock = 65536;

  int fd_;
  int error_ = 0;
  std::string text_;
};

// finish writes what is left, and says why standard output took no more, if it did not. A reader
// that went away ("| head") is not worth a word. Returns whether all was written.
bool finish(Output& output);

}  // namespace tally
