// metrics: the page for Prometheus, once or as an endpoint.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "console/wait.h"
#include "files/unique_fd.h"
#include "metrics/http_server.h"
#include "metrics/metrics_page.h"

namespace tally {
namespace {

// write_textfile puts the page in the place of the file as a whole: who reads it sees the old page
// or the new one. Returns an empty text, or why it failed.
std::string write_textfile(const ToolPaths& paths, const Options& options, Names& names) {
  const std::string& path = options.textfile;
  // The node exporter reads *.prom only, so this name is passed over until it is renamed.
  const std::string temporary = fmt::format("{}.{}", path, getpid());
  const UniqueFd fd(
      open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd) {
    return fmt::format("{}: {}; its directory must exist and be writable", temporary,
                       std::strerror(errno));
  }
  Output output(fd.get());
  write_metrics_page(paths, options.collections, options.own_series, names, output);
  output.flush();
  int error = output.error();
  if (error == 0 && fsync(fd.get()) != 0) error = errno;
  if (error == 0 && std::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return {};
  (void)unlink(temporary.c_str());
  return fmt::format("{}: {}; the old file is left as it was", path, std::strerror(error));
}

ExitCode serve(const ToolPaths& paths, const Options& options, Names& names) {
  HttpServer server([&] {
    Output page(Output::kCollect);
    write_metrics_page(paths, options.collections, options.own_series, names, page);
    return std::move(page.text());
  });
  if (const std::string error = server.listen(options.listen); !error.empty()) {
    complain(error);
    return kAbsent;
  }
  Signals signals;
  complain("metrics are at {}/metrics", server.address());
  for (;;) {
    server.serve_once(signals.fd());
    if (signals.ended()) return kDone;
  }
}

}  // namespace

ExitCode metrics(const ToolPaths& paths, const Options& options) {
  Names names;
  if (!options.listen.empty()) return serve(paths, options, names);
  if (options.textfile.empty()) {
    Output output(STDOUT_FILENO);
    write_metrics_page(paths, options.collections, options.own_series, names, output);
    return finish(output) ? kDone : kAbsent;
  }
  const std::string error = write_textfile(paths, options, names);
  if (error.empty()) return kDone;
  complain(error);
  return kAbsent;
}

}  // namespace tally
