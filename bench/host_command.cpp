#include "host_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

double SecondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

Cost TimeCommand(const std::vector<std::string>& words)
{
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    }

    pid_t process = 0;
    const double started = NowSeconds();
    const int error = posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    int status = 0;
    rusage usage = {};
    const bool ended = error == 0 && wait4(process, &status, 0, &usage) == process;
    const double seconds = NowSeconds() - started;
    posix_spawn_file_actions_destroy(&actions);
    if (!ended || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("this command failed: " + words[0]);
    }
    return {seconds, SecondsOf(usage.ru_utime) + SecondsOf(usage.ru_stime)};
}

}  // namespace bench
