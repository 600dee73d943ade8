#include "agent/xdr_codec.h"

#include <algorithm>
#include <vector>

namespace tally {

bool WireReader::refill(std::size_t bytes) {
  const std::size_t kept = left();
  const std::size_t missing = bytes - kept;
  const auto certain = static_cast<std::size_t>(
      std::min<std::uint64_t>(std::uint64_t{missing} + promised_, kWindow - kept));
  const std::size_t take = std::max(missing, certain) / 4 * 4;
  taken_ += take;
  if (bytes > kWindow || taken_ > kLongestMessage) return false;
  if (kept == 0) {
    if (const auto* in_place =
            reinterpret_cast<const std::uint8_t*>(XDR_INLINE(stream_, static_cast<u_int>(take)))) {
      at_ = in_place;
      end_ = in_place + take;
      return true;
    }
  } else {
    std::memmove(buffer_, at_, kept);
  }
  at_ = buffer_;
  end_ = buffer_ + kept;
  if (!XDR_GETBYTES(stream_, reinterpret_cast<char*>(buffer_ + kept), static_cast<u_int>(take))) {
    return false;
  }
  end_ += take;
  return true;
}

namespace wire {

bool decode_any_length(WireReader& in, std::uint32_t count, ByteList& value) {
  if (count <= ByteList::kInPlace) {
    if (!in.need(std::size_t{count} * 4)) return false;
    in.units(value.resize(count), count);
    return true;
  }
  // Longer than any address: collected in blocks, so that a count that no bytes follow costs
  // nothing.
  std::vector<std::uint8_t> bytes;
  while (bytes.size() < count) {
    const std::size_t block = std::min<std::size_t>(count - bytes.size(), WireReader::kWindow / 4);
    if (!in.need(block * 4)) return false;
    bytes.resize(bytes.size() + block);
    in.units(bytes.data() + bytes.size() - block, block);
  }
  value.assign(bytes);
  return true;
}

bool decode(WireReader& in, WireString& value) {
  const std::uint32_t length = in.u32();
  if (length > WireString::kMost || !in.need((std::size_t{length} + 3) / 4 * 4)) return false;
  value.length = length;
  in.raw(value.text.data(), length);
  return true;
}

void encode(WireWriter& out, const ByteList& value) {
  out.u32(value.size());
  for (const std::uint8_t byte : value.bytes()) out.u32(byte);
}

void encode(WireWriter& out, const WireString& value) {
  out.u32(value.length);
  for (std::uint32_t at = 0; at < value.length; at += 4) {
    std::uint32_t unit = 0;
    for (std::uint32_t i = 0; i < 4; ++i) {
      const auto byte = at + i < value.length ? static_cast<std::uint8_t>(value.text[at + i]) : 0U;
      unit = unit << 8 | byte;
    }
    out.u32(unit);
  }
}

}  // namespace wire
}  // namespace tally
