#include "listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "daemon/base/collection_types.h"
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

// stamp_text writes a time with its nanoseconds, which a JSON number has no room for.
std::string stamp_text(const timespec& time) {
  char text[40];
  (void)std::snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(time.tv_sec),
                      time.tv_nsec);
  return text;
}

// describe_file takes the shared lock for as long as it takes to read 16 bytes, or not at all.
Json describe_file(int directory, const char* name) {
  // Not blocking, in case a FIFO lies there.
  const UniqueFd fd(openat(directory, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct stat state {};
  if (!fd || fstat(fd.get(), &state) != 0) return error_text(errno);
  if (!S_ISREG(state.st_mode)) return {{"error", "it is not a regular file"}};
  const bool writing = flock(fd.get(), LOCK_SH | LOCK_NB) != 0;
  FileHeader header{};
  const bool whole = read_file_header(fd.get(), header);
  if (fstat(fd.get(), &state) != 0) return error_text(errno);
  Json file = {{"size", state.st_size},
               {"mtime", stamp_text(state.st_mtim)},
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

double now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

Json list_collections(const std::string& directory) {
  const std::unique_ptr<DIR, CloseDirectory> entries(opendir(directory.c_str()));
  if (!entries) throw std::system_error(errno, std::generic_category(), directory);
  std::map<std::pair<std::uint32_t, std::uint32_t>, Json> collections;
  std::size_t files = 0;
  bool truncated = false;
  while (const dirent* entry = readdir(entries.get())) {
    const auto name = collection_of_file(entry->d_name);
    if (!name) continue;
    if (++files > kMaxFiles) {
      truncated = true;
      break;
    }
    Json file = describe_file(dirfd(entries.get()), entry->d_name);
    file["name"] = entry->d_name;
    collections[{name->type, name->index}][file_kind_name(name->kind)] = std::move(file);
  }
  Json list = Json::array();
  for (auto& [key, described] : collections) {
    list.push_back({{"type", type_stem(key.first)},
                    {"code", key.first},
                    {"index", key.second},
                    {"name", listing_name(key.first)},
                    {"files", std::move(described)}});
  }
  return {{"now", now()}, {"truncated", truncated}, {"collections", std::move(list)}};
}

}  // namespace tally::cgi
