// Turns the process into a daemon and makes sure that there is only one.
#pragma once

namespace tally {

// detach forks; the parent exits with status 0 at once and the child becomes the leader of a new
// session with a umask of 0. The working directory and all descriptors stay as they are. False
// when the fork failed (logs).
[[nodiscard]] bool detach();

enum class PidFile { taken, held_by_another, failed };

// take_pid_file writes the process id into the PID file and locks it for the life of the process.
// Logs any other outcome.
[[nodiscard]] PidFile take_pid_file();

}  // namespace tally
