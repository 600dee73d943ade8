#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "answers.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "files/file_format.h"
#include "files/unique_fd.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

// More files than any page can show; bounds the time and the size of the answer.
constexpr std::size_t kMaxFiles = 8192;

Json error_text(int error) {
  return {{"error", std::strerror(error)}};
}

// describe_file takes the shared lock for as long as it takes to read 16 bytes, or not at all.
Json describe_file(const char* path) {
  // Not blocking, in case a FIFO lies there.
  const UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct stat state {};
  if (!fd || fstat(fd.get(), &state) != 0) return error_text(errno);
  if (!S_ISREG(state.st_mode)) return {{"error", "it is not a regular file"}};
  const bool writing = flock(fd.get(), LOCK_SH | LOCK_NB) != 0;
  FileHeader header{};
  const bool whole = read_file_header(fd.get(), header);
  if (fstat(fd.get(), &state) != 0) return error_text(errno);
  // A JSON number has no room for nanoseconds.
  Json file = {{"size", state.st_size},
               {"mtime", fmt::format("{}.{:09}", state.st_mtim.tv_sec, state.st_mtim.tv_nsec)},
               {"writing", writing},
               {"header", nullptr}};
  if (whole) {
    file["header"] = {{"interval", header.interval},
                      {"up_time", header.up_time},
                      {"time", header.sample_time},
                      {"code", header.type}};
  }
  return file;
}

}  // namespace

Json answer_to(const ListRequest& /*request*/) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, Json> collections;
  std::size_t files = 0;
  bool truncated = false;
  std::error_code error;
  std::filesystem::directory_iterator entries(kDataDirectory, error);
  if (error) throw std::system_error(error, kDataDirectory);
  for (const auto& entry : entries) {
    const std::string file_name = entry.path().filename();
    const auto name = collection_of_file(file_name);
    if (!name) continue;
    truncated = ++files > kMaxFiles;
    if (truncated) break;
    Json& file = collections[{name->type, name->index}][file_kind_name(name->kind)];
    file = describe_file(entry.path().c_str());
    file["name"] = file_name;
  }
  Json list = Json::array();
  for (auto& [key, described] : collections) {
    list.push_back({{"type", type_stem(key.first)},
                    {"code", key.first},
                    {"index", key.second},
                    {"name", listing_name(key.first)},
                    {"files", std::move(described)}});
  }
  const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
  return {{"now", now.count()}, {"truncated", truncated}, {"collections", std::move(list)}};
}

}  // namespace tally::cgi
