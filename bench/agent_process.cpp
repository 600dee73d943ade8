#include "bench/agent_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace tally::bench {

AgentProcess::AgentProcess(std::vector<std::string> arguments, const std::string& program) {
  const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  arguments.insert(arguments.begin(), {(here / program).string(), "--with-parent"});
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  int pipe_ends[2];
  if (pipe2(pipe_ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
  const int error = posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_ends[1]);
  const std::unique_ptr<FILE, int (*)(FILE*)> output(fdopen(pipe_ends[0], "r"), std::fclose);
  constexpr std::string_view kReady = "listening on ";
  char line[32] = "";
  if (error != 0 || std::fgets(line, sizeof line, output.get()) == nullptr ||
      !std::string_view(line).starts_with(kReady)) {
    throw std::runtime_error(program + " does not start");
  }
  port_ = static_cast<std::uint16_t>(std::strtoul(line + kReady.size(), nullptr, 10));
}

AgentProcess::~AgentProcess() {
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

}  // namespace tally::bench
